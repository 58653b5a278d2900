"""The device answers by itself which of its tracks are alike."""

import os
import shutil

from flow import DONE, NOT_FOUND, USAGE, Flow, main


class Similar(Flow):
    def setUp(self):
        super().setUp()
        for number in range(8):
            self.song(f"{number}.mp3", title=f"Same {number}", TPE1="Somebody", TALB="Album")
        self.song("other.mp3", title="Other", TPE1="Someone", TALB="Another")
        self.sync()

    def test_tracks_of_one_album_are_alike_without_the_host(self):
        shutil.rmtree(self.media)
        lines = self.device.lines("similar", "Same 3", "--json")
        titles = [line["title"] for line in lines[:-1]]
        self.assertEqual(sorted(titles), [f"Same {n}" for n in range(8) if n != 3])
        likeness = [line["likeness"] for line in lines[:-1]]
        self.assertEqual(likeness, sorted(likeness, reverse=True))
        self.assertEqual(lines[-1], {"type": "summary", "title": "Same 3", "tracks": 7,
                                     "available": 7, "minimum": 5})
        self.assertEqual(len(self.device.lines("similar", "Same 3", "--count", "2", "--json")), 3)

    def test_what_cannot_be_answered_says_why(self):
        self.assertRefused(self.device.orlith("similar", "Nothing"), NOT_FOUND, "no track")
        self.assertRefused(self.device.orlith("similar", "Same 1", "--count", "0"), USAGE, "--count")
        bare = self.another("bare")
        self.sync("--no-kenning", device=bare)
        self.assertRefused(bare.orlith("similar", "Same 1"), NOT_FOUND, "no recommendation data",
                           "--no-kenning")

    def test_few_are_not_offered_unless_asked_for(self):
        for number in range(2, 8):
            os.unlink(os.path.join(self.media, f"{number}.mp3"))
        few = self.another("few")
        self.sync(device=few)
        done = few.orlith("similar", "Same 0")
        self.assertEqual(done.returncode, DONE)
        self.assertIn(b"--count shows", done.stdout)
        self.assertIn(b"Same 1", few.orlith("similar", "Same 0", "--count", "9").stdout)


if __name__ == "__main__":
    main()
