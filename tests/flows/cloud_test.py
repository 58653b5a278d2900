"""Signing in to the cloud library and out of it."""

import os

from flow import PARTLY, Flow, main


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


class DisabledKinds(Flow):
    def setUp(self):
        super().setUp()
        self.samples()
        os.rename(os.path.join(self.media, "Music/Kettle"), os.path.join(self.scratch, "Kettle"))
        self.sync(expect=PARTLY)  # playlists miss it
        self.before = self.device.state()

    def test_while_signed_in_no_music_is_planned_nor_removed_and_it_is_said_why(self):
        self.device.lines("cloud", "sign-in", "--json")
        os.rename(os.path.join(self.scratch, "Kettle"), os.path.join(self.media, "Music/Kettle"))
        self.song("Audiobooks/new.m4b", title="New book")
        for arguments in (("--dry-run",), ()):
            lines = self.sync(*arguments)
            self.assertEqual(self.of_type(lines, "disabled"),
                             [{"type": "disabled", "kinds": ["Music", "MusicVideo"], "files": 4}])
            self.assertEqual([step["path"] for step in self.of_type(lines, "plan")
                              if step["action"] != "playlist"],
                             ["Audiobooks/new.m4b"] if arguments else [])
        self.assertEqual((lines[-1]["sent"], lines[-1]["disabled"], lines[-1]["removed"]),
                         (1, 4, 0))
        self.assertEqual(len(self.device.state()["tracks"]), len(self.before["tracks"]) + 1)
        again = self.device.orlith("sync", self.media)
        self.assertIn(b"nothing to do", again.stdout)
        self.assertIn(b"not sent: 4 files of kinds that the device has disabled", again.stderr)
        self.device.lines("cloud", "sign-out", "--json")
        self.assertEqual(self.sync()[-1]["sent"], 4)
        self.assertSound()


if __name__ == "__main__":
    main()
