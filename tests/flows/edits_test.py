"""Changes made on the device come back to the host and are not overwritten."""

from flow import DONE, NOT_FOUND, USAGE, Flow, collection, main


class Edits(Flow):
    def test_ratings_and_plays_survive_a_change_of_the_host(self):
        path = self.song("a.mp3", title="A")
        self.sync()
        self.assertEqual(self.device.orlith("rate", "A", "3").returncode, DONE)
        for _ in range(2):
            self.assertEqual(self.device.orlith("played", "A").returncode, DONE)
        with open(path, "wb") as file:
            file.write(collection.id3({"TIT2": "A", "TALB": "Now with an album"}) + self.body())
        self.sync()
        track = self.tracks()[0]
        self.assertEqual((track["rating"], track["play_count"], track["album"]),
                         (60, 2, "Now with an album"))
        self.sync("--reset")
        track = self.tracks()[0]
        self.assertEqual((track["rating"], track["play_count"]), (60, 2))

    def test_the_host_shows_what_changed_on_the_device(self):
        self.song("a.mp3", title="A")
        self.sync()
        self.device.orlith("rate", "A", "4")
        done = self.device.orlith("sync", self.media)
        self.assertEqual(done.returncode, DONE)
        shown = (done.stdout + done.stderr).decode()
        self.assertIn("A", shown)
        self.assertIn("rating", shown.lower())
        again = self.device.orlith("sync", self.media)
        self.assertNotIn("rating", (again.stdout + again.stderr).decode().lower())

    def test_a_track_can_be_named_by_its_id(self):
        self.song("a.mp3", title="A")
        self.sync()
        identifier = self.tracks()[0]["persistent_id"]
        self.assertEqual(self.device.orlith("rate", identifier, "1").returncode, DONE)
        self.assertEqual(self.tracks()[0]["rating"], 20)

    def test_a_track_that_is_not_there_is_not_found(self):
        self.song("a.mp3", title="A")
        self.sync()
        self.assertEqual(self.device.orlith("rate", "Nobody", "1").returncode, NOT_FOUND)

    def test_six_stars_are_a_usage_error(self):
        self.assertEqual(self.device.orlith("rate", "A", "6").returncode, USAGE)


if __name__ == "__main__":
    main()
