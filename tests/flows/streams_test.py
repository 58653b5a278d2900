"""Change streams as another program reads them: by the page that describes the format, alone."""

import json
import os

from flow import DONE, Flow, collection, main
import qorx_page

REVISION_ZERO = "0"


class Streams(Flow):
    def export(self, after, *arguments):
        """The path of an export of what came after a revision."""
        path = os.path.join(self.scratch, f"after-{after}.qorx")
        done = self.device.orlith("export", "--after", after, "--output", path, *arguments)
        self.assertEqual(done.returncode, DONE, done.stderr)
        return path

    def by_page(self, path):
        """The lines that the page's reader makes of both sections."""
        with open(path, "rb") as file:
            data = file.read()
        with open(path + ".json", encoding="utf-8") as file:
            split = int(json.load(file)["PlaylistDataLen"])
        lines = []
        sections = [part for part in (data[:split], data[split:]) if part]
        for index, part in enumerate(sections):
            header, records = qorx_page.stream(part)
            lines.append({"type": "header", "section": index, **header})
            for kind, fields in records:
                # What was deleted is always said.
                said = {"entity": "track"} if kind == "deletion" else {}
                lines.append({"type": kind, **said, **fields})
        return lines

    def by_command(self, path):
        done = self.device.orlith_alone("qorx", path, "--json")
        self.assertEqual(done.returncode, DONE, done.stderr)
        lines = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual(lines.pop()["type"], "summary")
        first = min(line["section"] for line in lines if line["type"] == "header")
        for line in lines:
            if line["type"] == "header":
                line["section"] -= first
        return lines

    def assertReadAlike(self, path):
        lines = self.by_page(path)
        self.assertEqual(lines, self.by_command(path))
        return lines

    def edit(self, *arguments):
        done = self.device.orlith(*arguments)
        self.assertEqual(done.returncode, DONE, done.stderr)

    def fill(self):
        self.song("a.mp3", title="Äpfel", TPE1="Künstler", TALB="Album", TDRC="1999", TRCK="3/12",
                  TPOS="1/2", TCOM="Composer", TCON="Genre", TBPM="120", TSOT="Apfel",
                  cover=(collection.png((9, 9, 9)), "image/png"))
        for name in "bcd":
            self.song(f"{name}.mp3", title=name.upper())
        self.write("mix.m3u8", b"#EXTM3U\nb.mp3\na.mp3\nb.mp3\n")
        self.sync()

    def test_the_whole_library_is_read_alike(self):
        self.fill()
        self.edit("rate", "Äpfel", "3")
        self.edit("played", "B")
        self.song("c.mp3", title="C", TCON="Edited", TCOM="Somebody")
        self.sync()
        lines = self.assertReadAlike(self.export(REVISION_ZERO))
        tracks = {line["title"]: line for line in lines if line["type"] == "track"}
        self.assertEqual(sorted(tracks), ["B", "C", "D", "Äpfel"])
        self.assertEqual(tracks["Äpfel"]["rating"]["value"], 60)
        self.assertEqual(tracks["Äpfel"]["year"], 1999)
        self.assertEqual(tracks["B"]["plays"][0]["play_count"], 1)
        self.assertLessEqual({10, 11}, {change["field"] for change in tracks["C"]["field_changes"]})
        playlists = {line["name"]: line for line in lines if line["type"] == "playlist"}
        self.assertEqual([item["persistent_id"] for item in playlists["mix"]["items"]],
                         [tracks[title]["persistent_id"] for title in ("B", "Äpfel", "B")])

    def test_deletions_are_read_alike(self):
        self.fill()
        for name in ("d.mp3", "mix.m3u8"):
            os.unlink(os.path.join(self.media, name))
        self.sync("--delete")
        lines = self.assertReadAlike(self.export("1"))
        deleted = [line["entity"] for line in lines if line["type"] == "deletion"]
        self.assertEqual(sorted(deleted), ["playlist", "track"])

    def test_damage_is_found_by_the_page_as_well(self):
        self.fill()
        path = self.export(REVISION_ZERO)
        with open(path, "rb") as file:
            data = bytearray(file.read())
        data[len(data) // 2] ^= 1
        with open(path, "wb") as file:
            file.write(data)
        with self.assertRaises(qorx_page.Damaged):
            self.by_page(path)


if __name__ == "__main__":
    main()
