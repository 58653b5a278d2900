"""What the flow tests share: a device, a media folder and a host's state, fresh for each test."""

import contextlib
import os
import shutil
import signal
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "support", "commands"))
import collection  # noqa: E402
from device import Device  # noqa: E402

SOURCE = os.path.realpath(os.path.join(HERE, "..", ".."))
BUILD = os.environ.get("ORLITH_BUILD", os.path.join(SOURCE, "build"))

# The exit codes of `orlith`.
DONE, FAILURE, USAGE, PARTLY, NOT_FOUND, BUSY, NO_SPACE, GUARD = 0, 1, 2, 3, 10, 11, 13, 14
INTERRUPTED = 130
ORLITH = os.path.join(BUILD, "bin", "orlith")


class Flow(unittest.TestCase):
    def setUp(self):
        self.scratch = tempfile.mkdtemp(prefix="orlith-flow-")
        self.media = os.path.join(self.scratch, "media")
        os.makedirs(self.media)
        self.devices = []
        self.device = self.another("device")

    def tearDown(self):
        for device in self.devices:
            device.stop_daemon()
        shutil.rmtree(self.scratch, ignore_errors=True)

    def another(self, name):
        """One more device, not made yet."""
        self.devices.append(Device(BUILD, os.path.join(self.scratch, name),
                                   os.path.join(self.scratch, "state")))
        return self.devices[-1]

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

    def samples(self):
        """The sample collection, which has every kind of media."""
        shutil.rmtree(self.media)
        shutil.copytree(os.path.join(SOURCE, "examples/media"), self.media)

    def sync(self, *arguments, expect=DONE, media=None, device=None):
        """The JSON lines of a sync, the summary last."""
        code, lines, errors = (device or self.device).sync(media or self.media, *arguments)
        self.assertEqual(code, expect, f"{lines[-3:]}\n{errors}")
        if code in (DONE, PARTLY) and "--dry-run" not in arguments:
            self.assertEqual(lines[-1]["type"], "summary")
        return lines

    def follow_folder(self, device):
        """The summary of a sync after which the device has what the folder has, and nothing else of
        it. A playlist may name a file that has left."""
        code, lines, errors = device.sync(self.media, "--delete", "--max-delete", "1000")
        self.assertIn(code, (DONE, PARTLY), errors)
        return lines[-1]

    @contextlib.contextmanager
    def held_sync(self):
        """A sync that has the device, whose daemon runs already, and stands still meanwhile; it goes on
        to its end after that."""
        host = self.device.start_sync(self.media)
        deadline = time.monotonic() + 60
        try:
            while True:
                self.assertLess(time.monotonic(), deadline, "the sync does not begin")
                host.send_signal(signal.SIGSTOP)
                if self.device.lines("status", "--json")[-1]["busy_with"]:
                    break
                host.send_signal(signal.SIGCONT)
                self.assertIsNone(host.poll(), "the sync was over too soon")
                time.sleep(0.01)
            yield host
        finally:
            host.send_signal(signal.SIGCONT)
            errors = host.communicate(timeout=300)[1]
        self.assertEqual(host.returncode, DONE, errors)

    def mirror(self, source, target, *arguments, expect=DONE):
        """The summary of a mirror run."""
        code, lines, errors = target.mirror_from(source, *arguments)
        self.assertEqual(code, expect, f"{lines[-3:]}\n{errors}")
        self.assertEqual(lines[-1]["type"], "summary")
        return lines[-1]

    def assertMovesNothing(self, source, target):
        summary = self.mirror(source, target)
        moved = {key: value for key, value in summary.items()
                 if value and key not in ("type", "from_revision", "to_revision")}
        self.assertEqual(moved, {})

    def assertEqualDevices(self, *devices):
        """The same tracks, files, pictures, ratings, counts and playlists; nobody lacks a file."""
        first = devices[0].shared_state()
        for device in devices:
            self.assertEqual(device.shared_state(), first)
            self.assertComesToOrder(device)

    def assertComesToOrder(self, device):
        """What deleted tracks leave behind is swept soon after."""
        self.assertComesTo(device.problems, [])

    def assertComesTo(self, state, expected):
        """Soon, by what happens in the background."""
        deadline = time.monotonic() + 30
        while state() != expected and time.monotonic() < deadline:
            time.sleep(0.1)
        self.assertEqual(state(), expected)

    def assertRefused(self, done, code, *words):
        """A command that ended with this code and said these words, and in JSON the same."""
        errors = done.stderr.decode(errors="replace")
        self.assertEqual(done.returncode, code, errors)
        for word in words:
            self.assertIn(word, errors)

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
