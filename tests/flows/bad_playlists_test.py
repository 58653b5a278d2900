"""Playlists that name missing files, absolute paths, themselves, in other encodings."""

import os

from flow import PARTLY, Flow, main


class BadPlaylists(Flow):
    def listed(self, name):
        title = {t["persistent_id"]: t["title"] for t in self.tracks()}
        return [title[t] for t in self.playlists()[name]["tracks"]]

    def test_missing_entries_are_reported_and_the_others_keep_their_order(self):
        self.song("a.mp3", title="A")
        self.song("b.mp3", title="B")
        self.write("P.m3u8", b"b.mp3\nnot-there.mp3\na.mp3\n")
        lines = self.sync(expect=PARTLY)
        self.assertTrue(any("not-there.mp3" in f["path"] + f["reason"]
                            for f in self.of_type(lines, "failure")))
        self.assertEqual(self.listed("P"), ["B", "A"])

    def test_absolute_paths_are_understood(self):
        path = self.song("a.mp3", title="A")
        self.write("P.m3u", os.fsencode(path) + b"\n")
        self.sync()
        self.assertEqual(self.listed("P"), ["A"])

    def test_an_absolute_path_outside_the_folder_brings_nothing_in(self):
        self.song("a.mp3", title="A")
        self.write("P.m3u", b"/etc/passwd\n../../outside.mp3\na.mp3\n")
        self.sync(expect=PARTLY)
        self.assertEqual(self.listed("P"), ["A"])
        self.assertEqual(self.titles(), ["A"])

    def test_other_encodings_and_line_ends_are_understood(self):
        self.song("Müller.mp3", title="A")
        self.write("Latin.m3u", "#EXTM3U\r\nMüller.mp3\r\n".encode("latin-1"))
        self.write("Marked.m3u8", "\ufeffMüller.mp3\n".encode())
        self.write("Slashes.m3u8", b".\\M\xc3\xbcller.mp3\n")
        self.sync()
        for name in ("Latin", "Marked", "Slashes"):
            self.assertEqual(self.listed(name), ["A"], name)

    def test_a_playlist_that_names_itself_is_no_endless_one(self):
        self.song("a.mp3", title="A")
        self.write("Self.m3u8", b"Self.m3u8\na.mp3\n")
        self.sync(expect=PARTLY)
        self.assertEqual(self.listed("Self"), ["A"])

    def test_xspf_is_understood_and_a_broken_one_is_listed(self):
        self.song("one two.mp3", title="A")
        self.write("X.xspf", b'<?xml version="1.0"?><playlist version="1" '
                   b'xmlns="http://xspf.org/ns/0/"><title>Named</title><trackList><track>'
                   b'<location>one%20two.mp3</location></track></trackList></playlist>')
        self.write("Broken.xspf", b"<playlist><trackList>")
        lines = self.sync(expect=PARTLY)
        self.assertEqual(self.listed("Named"), ["A"])
        self.assertEqual([f["path"] for f in self.of_type(lines, "failure")], ["Broken.xspf"])


if __name__ == "__main__":
    main()
