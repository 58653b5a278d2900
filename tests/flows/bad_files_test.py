"""Files that are no media, damaged or strangely named."""

import os
import unicodedata

from flow import PARTLY, Flow, main


class BadFiles(Flow):
    def failures(self, lines):
        return {f["path"]: f["reason"] for f in self.of_type(lines, "failure")}

    def test_what_is_no_media_is_listed_and_the_rest_goes_on(self):
        self.make(3)
        self.write("text.mp3", b"This is a letter, not a song.\n" * 50)
        self.write("empty.mp3", b"")
        lines = self.sync(expect=PARTLY)
        failures = self.failures(lines)
        self.assertEqual(set(failures), {"text.mp3", "empty.mp3"})
        self.assertTrue(all(failures.values()))
        self.assertEqual((lines[-1]["sent"], lines[-1]["failed"]), (3, 2))
        self.assertSound()

    def test_a_truncated_film_is_listed(self):
        self.make(1)
        self.write("film.mp4", b"\0\0\0\x18ftypisom\0\0\0\0isommp42" + b"\0\1\0\0moov" + bytes(300))
        self.assertEqual(set(self.failures(self.sync(expect=PARTLY))), {"film.mp4"})

    def test_a_failed_file_is_tried_again_and_its_mended_form_arrives(self):
        self.write("a.mp3", b"")
        self.sync(expect=PARTLY)
        self.song("a.mp3", title="Mended")
        self.sync()
        self.assertEqual(self.titles(), ["Mended"])

    def test_names_of_any_bytes_arrive(self):
        names = [b"new\nline.mp3", "😀 emoji.mp3".encode(), b"latin-1 \xe9\xff.mp3",
                 unicodedata.normalize("NFD", "Ölé.mp3").encode(), b"tab\tand \x1b[31mred.mp3",
                 b"-starts-with-a-dash.mp3", b"%s%n percent.mp3"]
        for number, name in enumerate(names):
            self.song(name, title=f"Name {number}")
        lines = self.sync()
        self.assertEqual(lines[-1]["sent"], len(names))
        self.assertEqual(self.titles(), [f"Name {n}" for n in range(len(names))])
        self.assertSameFiles()
        self.assertEqual(self.sync()[-1]["sent"], 0)

    def test_names_that_differ_only_in_case_are_two_tracks(self):
        self.song("Song.mp3", title="Upper")
        self.song("song.mp3", title="Lower")
        self.sync()
        self.assertEqual(self.titles(), ["Lower", "Upper"])
        self.assertSound()

    def test_two_identical_files_are_two_tracks(self):
        self.song("a.mp3", title="Twin")
        self.song("b.mp3", title="Twin")
        self.sync()
        tracks = self.tracks()
        self.assertEqual(len({t["persistent_id"] for t in tracks}), 2)
        self.assertSound()
        self.assertEqual(self.sync()[-1]["sent"], 0)

    def test_a_name_of_255_bytes_arrives(self):
        self.song("x" * 251 + ".mp3", title="Long")
        self.sync()
        self.assertEqual(self.titles(), ["Long"])

    def test_links_that_lead_out_bring_nothing_in(self):
        self.song("a.mp3", title="Inside")
        secret = os.path.join(self.scratch, "outside")
        os.makedirs(secret)
        with open(os.path.join(secret, "s.mp3"), "wb") as file:
            file.write(self.body())
        os.symlink(secret, os.path.join(self.media, "folder"))
        code, _, errors = self.device.sync(self.media)
        self.assertIn(code, (0, PARTLY), errors)
        self.assertEqual(self.titles(), ["Inside"])


if __name__ == "__main__":
    main()
