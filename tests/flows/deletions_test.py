"""Nothing is deleted unless asked, and never more than allowed."""

import os

from flow import DONE, GUARD, Flow, main


class Deletions(Flow):
    def remove(self, names):
        for name in names:
            os.unlink(os.path.join(self.media, name))

    def plain(self, count):
        names = [f"{n:02d}.mp3" for n in range(count)]
        for name in names:
            self.song(name, title=name)
        return names

    def test_without_delete_nothing_leaves_the_device(self):
        names = self.plain(4)
        self.sync()
        self.remove(names[:2])
        self.assertEqual(self.sync()[-1]["removed"], 0)
        self.assertEqual(len(self.tracks()), 4)

    def test_with_delete_what_left_the_folder_leaves_the_device(self):
        names = self.plain(4)
        self.sync()
        self.remove(names[:1])
        self.assertEqual(self.sync("--delete")[-1]["removed"], 1)
        self.assertEqual(self.titles(), names[1:])
        self.assertSound()

    def test_nothing_of_a_deleted_track_stays_behind(self):
        names = self.plain(4)
        self.sync()
        self.remove(names[:2])
        self.sync("--delete")
        self.assertComesTo(lambda: self.device.orlith("check", "--full").returncode, DONE)

    def test_more_than_max_delete_stops_before_anything_is_done(self):
        names = self.plain(6)
        self.sync()
        self.remove(names[:3])
        self.song("new.mp3", title="new")
        self.sync("--delete", "--max-delete", "2", expect=GUARD)
        self.assertEqual(self.titles(), names)
        self.assertEqual(self.sync("--delete", "--max-delete", "3")[-1]["removed"], 3)

    def test_a_dry_run_names_what_would_be_removed(self):
        names = self.plain(3)
        self.sync()
        self.remove(names[:1])
        plan = self.of_type(self.sync("--delete", "--dry-run"), "plan")
        self.assertEqual([(p["action"], p["path"]) for p in plan], [("remove", names[0])])
        self.assertEqual(len(self.tracks()), 3)

    def test_a_file_that_comes_back_gets_its_rating_and_identity_back(self):
        self.song("a.mp3", title="Back")
        self.song("b.mp3", title="Other")
        self.sync()
        before = next(t for t in self.tracks() if t["title"] == "Back")
        self.device.orlith("rate", "Back", "5")
        self.sync()
        self.remove(["a.mp3"])
        self.sync("--delete")
        self.assertEqual(self.titles(), ["Other"])
        self.song("a.mp3", title="Back")
        self.sync()
        after = next(t for t in self.tracks() if t["title"] == "Back")
        self.assertEqual((after["persistent_id"], after["rating"]), (before["persistent_id"], 100))


if __name__ == "__main__":
    main()
