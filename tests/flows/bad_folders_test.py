"""Folders that are missing, unreadable or empty."""

import os
import shutil
import subprocess
import unittest

from flow import BUILD, DONE, NOT_FOUND, Device, Flow, main


class BadFolders(Flow):
    def test_a_missing_folder_is_not_found_and_makes_no_device(self):
        code, _, errors = self.device.sync(os.path.join(self.scratch, "nowhere"))
        self.assertEqual(code, NOT_FOUND)
        self.assertIn("nowhere", errors)

    def test_a_file_instead_of_a_folder_is_refused(self):
        path = self.song("a.mp3")
        code, _, _ = self.device.sync(os.fsdecode(path))
        self.assertNotEqual(code, DONE)

    def test_an_empty_folder_removes_nothing_even_with_delete(self):
        self.make(3)
        self.sync()
        shutil.rmtree(self.media)
        os.makedirs(self.media)
        code, _, errors = self.device.sync(self.media, "--delete")
        self.assertNotEqual(code, 2, errors)
        self.assertEqual(len(self.tracks()), 3)
        self.assertSound()

    def test_an_empty_folder_onto_an_empty_device_is_no_error(self):
        summary = self.sync()[-1]
        self.assertEqual((summary["sent"], summary["failed"]), (0, 0))

    @unittest.skipUnless(os.geteuid() == 0 and shutil.which("setpriv"), "needs root and setpriv")
    def test_an_unreadable_folder_says_so(self):
        os.chmod(self.scratch, 0o755)
        os.chmod(self.media, 0o000)
        home = os.path.join(self.scratch, "home")
        os.makedirs(home)
        os.chown(home, 65534, 65534)
        done = subprocess.run(
            ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
             os.path.join(BUILD, "bin/orlith"), "sync", self.media, "--device",
             os.path.join(home, "device")],
            env=dict(os.environ, XDG_STATE_HOME=home, HOME=home), stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, timeout=60)
        self.assertNotEqual(done.returncode, DONE)
        self.assertIn(b"ermission", done.stderr)
        Device(BUILD, os.path.join(home, "device"), home).stop_daemon()


if __name__ == "__main__":
    main()
