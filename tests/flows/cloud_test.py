"""Signing in to the cloud library and out of it."""

from flow import Flow, main


class Cloud(Flow):
    def setUp(self):
        super().setUp()
        self.make(1)
        self.sync()

    def state(self):
        status = self.device.lines("status", "--json")[-1]
        return status["cloud_signed_in"], status["cloud_kenning"]

    def test_the_owner_signs_in_and_out(self):
        self.assertEqual(self.state(), (False, False))
        self.assertEqual(self.device.lines("cloud", "sign-in", "--json"),
                         [{"type": "summary", "signed_in": True}])
        self.assertEqual(self.state(), (True, False))
        self.assertEqual(self.device.orlith("cloud", "sign-out").stdout, b"signed out\n")
        self.assertEqual(self.state(), (False, False))

    def test_a_cloud_with_recommendation_data_is_known_as_such(self):
        self.device.lines("cloud", "sign-in", "--with-kenning", "--json")
        self.assertEqual(self.state(), (True, True))
        self.assertIn(b"recommendation data", self.device.orlith("status").stdout)
        self.device.lines("cloud", "sign-in", "--json")
        self.assertEqual(self.state(), (True, False))

    def test_the_state_outlives_the_daemon_and_syncs(self):
        self.device.lines("cloud", "sign-in", "--with-kenning", "--json")
        self.device.stop_daemon()
        self.assertEqual(self.state(), (True, True))
        self.sync("--reset")
        self.assertEqual(self.state(), (True, True))
        self.assertSound()


if __name__ == "__main__":
    main()
