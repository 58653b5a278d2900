"""Tracks of the device that the host asks for."""

import hashlib
import os

from flow import DONE, Flow, main


def digest(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def digests(folder):
    return {digest(os.path.join(where, name))
            for where, _, names in os.walk(folder) for name in names}


class Uploads(Flow):
    def test_an_upload_brings_the_file_back_byte_for_byte(self):
        path = self.song("a.mp3", title="A")
        self.song("b.mp3", title="B")
        self.sync()
        wanted = digest(path)
        track = next(t for t in self.tracks() if t["title"] == "A")
        os.unlink(path)
        summary = self.sync("--upload", track["persistent_id"])[-1]
        self.assertEqual((summary["uploaded"], summary["failed"]), (1, 0))
        self.assertIn(wanted, digests(self.media))

    def test_delete_after_upload_takes_it_off_the_device(self):
        path = self.song("a.mp3", title="A")
        self.song("b.mp3", title="B")
        self.sync()
        track = next(t for t in self.tracks() if t["title"] == "A")
        wanted = digest(path)
        os.unlink(path)
        self.sync("--upload", track["sync_id"], "--delete-after-upload")
        self.assertIn(wanted, digests(self.media))
        self.assertEqual(self.titles(), ["B"])
        self.assertSound()

    def test_an_upload_of_an_unknown_id_is_reported(self):
        self.song("a.mp3", title="A")
        self.sync()
        code, _, errors = self.device.sync(self.media, "--upload", "123456789")
        self.assertNotEqual(code, DONE, errors)


if __name__ == "__main__":
    main()
