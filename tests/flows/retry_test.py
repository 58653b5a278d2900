"""What a sync could not do: told by status, sent first by the next one."""

import os

from flow import DONE, PARTLY, Flow, main


class Retry(Flow):
    def failed(self):
        lines = self.device.lines("status", "--json")
        failures = self.of_type(lines, "failure")
        self.assertEqual(lines[-1]["failed"], len(failures))
        return {f["path"]: f for f in failures}

    def test_what_failed_is_told_with_its_reason_and_what_helps(self):
        self.song("good.mp3")
        self.write("bad.mp3", b"")
        self.write("list.m3u", b"good.mp3\nnowhere.mp3\n")
        self.sync(expect=PARTLY)
        failed = self.failed()
        self.assertEqual(set(failed), {"bad.mp3", "list.m3u"})
        for failure in failed.values():
            self.assertEqual(failure["folder"], os.path.realpath(self.media))
            self.assertTrue(failure["reason"] and failure["next_step"])
        told = self.device.orlith("status").stdout.decode()
        self.assertIn("2 items", told)
        self.assertIn("  bad.mp3: ", told)
        self.assertIn("repair or replace it", told)
        self.assertIn("correct the playlist", told)

    def test_what_was_mended_or_has_vanished_leaves_the_list(self):
        self.song("good.mp3")
        self.write("bad.mp3", b"")
        self.write("worse.mp3", b"")
        self.sync(expect=PARTLY)
        os.unlink(os.path.join(self.media, "worse.mp3"))
        self.assertEqual(set(self.failed()), {"bad.mp3"})
        self.song("bad.mp3", title="Mended")
        self.sync()
        self.assertEqual(self.failed(), {})
        self.assertNotIn("failed", self.device.orlith("status").stdout.decode())

    def test_each_device_has_a_list_of_its_own(self):
        self.song("good.mp3")
        self.write("bad.mp3", b"")
        self.sync(expect=PARTLY)
        other = self.another("other")
        os.unlink(os.path.join(self.media, "bad.mp3"))
        self.sync(device=other)
        self.song("bad.mp3", title="Mended")
        self.assertEqual(set(self.failed()), {"bad.mp3"})
        self.assertEqual(other.lines("status", "--json")[-1]["failed"], 0)

    def test_it_is_sent_before_the_others(self):
        self.song("a.mp3", title="A")
        self.write("z.mp3", b"")
        self.sync(expect=PARTLY)
        # Of themselves devices ask in the order of artists and albums.
        self.song("z.mp3", title="Z", TPE1="Zebra", TALB="Zoo")
        for name in "bcdef":
            self.song(f"{name}.mp3", title=name.upper(), TPE1="Ape", TALB="Ark")
        self.sync(expect=DONE)
        arrival = {t["title"]: os.stat(self.device.real(t["path"])).st_mtime_ns
                   for t in self.tracks()}
        self.assertLess(arrival["A"], arrival["Z"])
        self.assertLess(arrival["Z"], min(arrival[title] for title in "BCDEF"))
        self.assertEqual(self.failed(), {})
        self.assertSound()


if __name__ == "__main__":
    main()
