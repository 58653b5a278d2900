"""A database that is locked, cut or noise, and a disk that is full."""

import os
import random
import shutil
import sqlite3
import subprocess
import unittest

from flow import DONE, NO_SPACE, PARTLY, Flow, main

DATABASE = "/var/mobile/Media/Tessel_Control/Tessel/MediaLibrary.sqlitedb"


class Damage(Flow):
    def database(self):
        return self.device.real(DATABASE)

    def hurt(self, how):
        """A synced device whose database is damaged while no daemon runs."""
        self.make(12)
        self.sync()
        before = self.device.state()
        self.device.stop_daemon()
        for suffix in ("-wal", "-shm"):
            if os.path.exists(self.database() + suffix):
                connection = sqlite3.connect(self.database())
                connection.execute("PRAGMA wal_checkpoint(TRUNCATE)")
                connection.close()
        how(self.database())
        done = self.device.orlith("sync", self.media)
        self.assertIn(done.returncode, (DONE, PARTLY), done.stderr.decode())
        said = (done.stdout + done.stderr).decode().lower()
        self.assertIn("damaged", said)
        self.assertEqual(self.device.state(), before)
        self.assertSound()
        self.assertEqual(self.sync()[-1]["sent"], 0)

    def test_a_truncated_database_is_set_aside_and_the_library_comes_back(self):
        self.hurt(lambda path: os.truncate(path, os.path.getsize(path) // 2))

    def test_a_database_of_noise_is_set_aside_and_the_library_comes_back(self):
        def noise(path):
            with open(path, "r+b") as file:
                file.write(random.Random(7).randbytes(os.path.getsize(path)))
        self.hurt(noise)

    def test_pages_of_noise_in_the_middle_are_noticed(self):
        def noise(path):
            size = os.path.getsize(path)
            with open(path, "r+b") as file:
                for page in range(4, size // 4096, 3):
                    file.seek(page * 4096)
                    file.write(random.Random(page).randbytes(4096))
        self.hurt(noise)

    def test_a_locked_database_is_a_clear_error_and_nothing_is_lost(self):
        self.make(12)
        self.sync()
        before = self.device.state()
        self.song("new.mp3", title="New")
        lock = sqlite3.connect(self.database(), isolation_level=None)
        lock.execute("BEGIN IMMEDIATE")
        code, _, errors = self.device.sync(self.media)
        self.assertNotEqual(code, DONE)
        self.assertTrue("lock" in errors.lower() or "busy" in errors.lower(), errors)
        lock.execute("ROLLBACK")
        lock.close()
        self.assertEqual(self.device.state(), before)
        self.sync()
        self.assertIn("New", self.titles())
        self.assertSound()

    def test_a_reset_whose_import_fails_puts_every_file_back(self):
        self.make(12)
        self.sync()
        before = self.device.state()
        lock = sqlite3.connect(self.database(), isolation_level=None)
        lock.execute("BEGIN IMMEDIATE")
        code, _, _ = self.device.sync(self.media, "--reset")
        self.assertNotEqual(code, DONE)
        lock.execute("ROLLBACK")
        lock.close()
        self.assertEqual(self.device.state(), before)
        self.assertSound()


@unittest.skipUnless(os.geteuid() == 0, "mounting needs root")
class FullDisk(Flow):
    def setUp(self):
        super().setUp()
        self.mount = os.path.join(self.scratch, "disk")
        os.makedirs(self.mount)
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=12m", "tmpfs", self.mount],
                          check=False).returncode != 0:
            self.skipTest("no tmpfs can be mounted here")
        self.device.root = os.path.join(self.mount, "device")

    def tearDown(self):
        self.device.stop_daemon()
        subprocess.run(["umount", "-l", self.mount], check=False)
        shutil.rmtree(self.scratch, ignore_errors=True)

    def test_a_plan_that_does_not_fit_is_refused_before_it_starts(self):
        self.make(40, size=500_000)
        code, _, errors = self.device.sync(self.media)
        self.assertEqual(code, NO_SPACE, errors)
        self.assertEqual(self.tracks(), [])

    def test_a_disk_that_fills_up_meanwhile_leaves_nothing_half_done(self):
        self.make(10, size=500_000)
        self.sync()
        filler = os.path.join(self.mount, "filler")
        free = os.statvfs(self.mount)
        with open(filler, "wb") as file:
            file.write(bytes(max(0, free.f_bavail * free.f_bsize - 1_500_000)))
        self.song("big.mp3", title="Big", TXXX="x\0" + "y" * 2_000_000)
        code, _, _ = self.device.sync(self.media)
        self.assertIn(code, (PARTLY, NO_SPACE))
        self.assertEqual([p for p in self.device.problems() if not p.startswith("no file")], [])
        os.unlink(filler)
        self.sync()
        self.assertSameFiles()
        self.assertSound()


if __name__ == "__main__":
    main()
