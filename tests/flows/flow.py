"""What the flow tests share: a device, a media folder and a host's state, fresh for each test."""

import os
import shutil
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "support", "commands"))
import collection  # noqa: E402
from device import Device  # noqa: E402

SOURCE = os.path.realpath(os.path.join(HERE, "..", ".."))
BUILD = os.environ.get("ORLITH_BUILD", os.path.join(SOURCE, "build"))

# The exit codes of `orlith`.
DONE, USAGE, PARTLY, NOT_FOUND, BUSY, NO_SPACE, GUARD = 0, 2, 3, 10, 11, 13, 14


class Flow(unittest.TestCase):
    def setUp(self):
        self.scratch = tempfile.mkdtemp(prefix="orlith-flow-")
        self.media = os.path.join(self.scratch, "media")
        os.makedirs(self.media)
        self.device = Device(BUILD, os.path.join(self.scratch, "device"),
                             os.path.join(self.scratch, "state"))

    def tearDown(self):
        self.device.stop_daemon()
        shutil.rmtree(self.scratch, ignore_errors=True)

    def make(self, files=12, **options):
        return collection.make(self.media, self.scratch, files=files, **options)

    def body(self):
        return collection.mp3_body(self.scratch)

    def write(self, name, content):
        """`name` may be bytes."""
        path = os.path.join(os.fsencode(self.media), os.fsencode(name))
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)
        return path

    def song(self, name, title="Song", cover=None, **tags):
        frames = {"TIT2": title, **tags}
        return self.write(name, collection.id3(frames, cover) + self.body())

    def sync(self, *arguments, expect=DONE, media=None):
        """The JSON lines of a sync, the summary last."""
        code, lines, errors = self.device.sync(media or self.media, *arguments)
        self.assertEqual(code, expect, f"{lines[-3:]}\n{errors}")
        if code in (DONE, PARTLY) and "--dry-run" not in arguments:
            self.assertEqual(lines[-1]["type"], "summary")
        return lines

    def of_type(self, lines, kind):
        return [line for line in lines if line["type"] == kind]

    def tracks(self):
        lines = self.device.lines("list", "--json")
        self.assertEqual(lines[-1], {"type": "summary", "tracks": len(lines) - 1})
        return lines[:-1]

    def playlists(self):
        lines = self.device.lines("list", "--playlists", "--json")
        self.assertEqual(lines[-1], {"type": "summary", "playlists": len(lines) - 1})
        return {p["name"]: p for p in lines[:-1] if not p["smart"]}

    def titles(self):
        return sorted(t["title"] for t in self.tracks())

    def assertSound(self):
        """Nothing missing, short, shared, unowned or left in staging."""
        self.assertEqual(self.device.problems(), [])

    def assertSameFiles(self):
        """Every media file of the folder is on the device, byte for byte, once."""
        here = sorted(self._hashes())
        there = sorted(row["sha256"] for row in self.device.state()["tracks"])
        self.assertEqual(here, there)

    def _hashes(self):
        import hashlib
        for folder, _, names in os.walk(self.media):
            for name in names:
                if name.lower().endswith((".mp3", ".m4a", ".flac", ".ogg", ".mp4", ".m4b", ".mkv")):
                    with open(os.path.join(folder, name), "rb") as file:
                        yield hashlib.sha256(file.read()).hexdigest()


def main():
    unittest.main(verbosity=2)
