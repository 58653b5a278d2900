"""A device is backed up, lost, and brought back."""

import contextlib
import os
import random
import shutil
import subprocess
import time

from flow import BUSY, DONE, FAILURE, GUARD, NOT_FOUND, Flow, collection, main
from store import DEADLINE, Store


class Restore(Flow):
    maxDiff = None
    def setUp(self):
        super().setUp()
        self.store = Store()
        self.addCleanup(self.store.close)
        self.talk = collection.id3({"TIT2": "Talk"}) + self.body() * 3
        self.store.files["talk.mp3"] = self.talk
        self.backup = os.path.join(self.scratch, "player.backup")

    def fill(self):
        """A library of songs with covers, a podcast, playlists, ratings, and two purchases."""
        self.make(8)
        self.song("Podcasts/episode.mp3", title="Episode")
        self.sync()
        self.buy("A talk", self.store.url("talk.mp3"))
        near = os.path.join(self.scratch, "near.mp3")
        with open(near, "wb") as file:
            file.write(collection.id3({"TIT2": "Near"}) + self.body())
        self.buy("Near", "file://" + near)
        os.remove(near)
        for stars, title in ((5, "A talk"), (4, "Near"), (3, "Title 00000"), (2, "Episode")):
            self.device.lines("rate", title, str(stars), "--json")
        self.device.lines("played", "A talk", "--json")
        self.device.lines("playlist", "create", "Mine", "A talk", "Title 00000", "Near",
                          "Episode", "--json")

    def buy(self, title, url, *more):
        self.device.lines("download", url, "--title", title, "--json", *more)
        self.wait_for_files()

    def wait_for_files(self, missing=0):
        """Until that many tracks lack their file and nothing is under way."""
        deadline = time.monotonic() + DEADLINE
        while True:
            lacking = [t["title"] for t in self.tracks() if t["path"] is None]
            going = [d for d in self.device.lines("downloads", "--json")[:-1]
                     if d["phase"] != "failed"]
            if len(lacking) == missing and not going:
                return
            self.assertLess(time.monotonic(), deadline, f"{lacking} {going}")
            time.sleep(0.05)

    def back_up(self):
        return self.device.lines("backup", "--output", self.backup, "--json")[-1]

    def lose(self):
        self.device.kill_daemon()
        shutil.rmtree(self.device.root)

    def restore(self, *arguments, device=None, expect=DONE):
        done = (device or self.device).orlith("restore", "--from", self.backup, "--json", *arguments)
        self.assertEqual(done.returncode, expect, done.stderr.decode(errors="replace"))
        return done

    def uid(self):
        return self.device.lines("status", "--json")[-1]["library_uid"]

    def test_after_a_restore_and_a_sync_the_library_is_what_it_was(self):
        self.fill()
        before, uid = self.device.state(), self.uid()
        summary = self.back_up()
        # Three databases, and the file that no store can give again.
        self.assertEqual(summary["files"], 4)
        self.lose()
        self.restore()
        self.assertNotEqual(self.uid(), uid)
        self.sync()
        self.wait_for_files()
        self.assertEqual(self.device.state(), before)
        self.assertSound()
        self.sync()
        self.assertEqual(self.device.state(), before)

    def test_between_restore_and_sync_the_purchases_are_back(self):
        self.fill()
        self.back_up()
        self.lose()
        self.restore()
        self.wait_for_files(missing=1)
        rows = {t["title"]: t for t in self.tracks()}
        self.assertEqual(sorted(rows), ["A talk", "Episode", "Near"])
        self.assertIsNone(rows["Episode"]["path"])
        self.assertEqual([rows[t]["rating"] for t in ("A talk", "Near", "Episode")], [100, 80, 40])
        self.assertEqual(rows["A talk"]["play_count"], 1)
        with open(self.device.real(rows["A talk"]["path"]), "rb") as file:
            self.assertEqual(file.read(), self.talk)
        done = self.device.orlith("check", "--full")
        self.assertEqual(done.returncode, DONE, done.stdout.decode())

    def test_a_purchase_whose_address_is_gone_leaves_and_is_told(self):
        self.fill()
        self.back_up()
        self.lose()
        self.store.files.clear()
        self.restore()
        self.wait_for_files(missing=1)
        self.assertNotIn("A talk", self.titles())
        self.assertIn(b"A talk", self.device.orlith("status").stdout)
        self.sync()
        self.assertSound()
        (mine,) = [p for name, p in self.playlists().items() if name == "Mine"]
        self.assertEqual(len(mine["tracks"]), 3)

    def test_a_store_that_is_away_is_asked_again_later(self):
        self.fill()
        before = self.device.state()
        self.back_up()
        self.lose()
        self.store.server.shutdown()
        address = self.store.server.server_address
        self.store.server.server_close()
        self.restore()
        self.sync()
        self.assertIn("A talk", self.titles())
        self.device.stop_daemon()
        again = Store(address)
        self.addCleanup(again.close)
        again.files["talk.mp3"] = self.talk
        self.wait_for_files()
        self.assertEqual(self.device.state(), before)

    def test_what_was_still_coming_comes_after_the_restore(self):
        self.fill()
        self.store.gate = len(self.talk) // 2
        self.store.open.clear()
        self.store.files["late.mp3"] = self.talk
        self.device.lines("download", self.store.url("late.mp3"), "--title", "Late", "--json")
        self.back_up()
        self.lose()
        self.store.open.set()
        self.restore()
        self.sync()
        self.wait_for_files()
        self.assertIn("Late", self.titles())
        self.assertEqual(self.device.lines("downloads", "--json")[:-1], [])

    def test_a_restore_twice_is_one(self):
        self.fill()
        before = self.device.state()
        self.back_up()
        self.lose()
        self.restore()
        first = self.uid()
        self.sync()
        self.wait_for_files()
        self.restore()
        self.assertNotEqual(self.uid(), first)
        self.sync()
        self.wait_for_files()
        self.assertEqual(self.device.state(), before)
        self.assertSound()

    def test_a_backup_during_a_sync_is_whole(self):
        self.fill()
        self.make(40, seed=5)
        sync = self.device.start_sync(self.media)
        backups = 0
        while sync.poll() is None and backups < 20:
            self.back_up()
            backups += 1
        sync.communicate(timeout=300)
        self.assertGreater(backups, 0)
        before = self.device.state()
        self.lose()
        self.restore()
        self.sync()
        self.wait_for_files()
        self.assertEqual(self.device.state(), before)

    def test_a_restore_that_is_killed_anywhere_can_be_run_again(self):
        self.fill()
        before = self.device.state()
        self.back_up()
        chance = random.Random(int(os.environ.get("ORLITH_SEED", "7")))
        for number in range(8):
            device = self.another(f"restored-{number}")
            restoring = device.start("restore", "--device", device.root, "--from", self.backup)
            with contextlib.suppress(subprocess.TimeoutExpired):
                restoring.wait(timeout=chance.uniform(0, 0.6))
            if number % 2:
                device.kill_daemon()
            restoring.kill()
            restoring.communicate()
            device.kill_daemon()
            self.restore(device=device)
            self.sync(device=device)
            self.device = device
            self.wait_for_files()
            self.assertEqual(device.state(), before)

    def test_another_mirrors_a_restored_device_and_loses_nothing(self):
        self.fill()
        other = self.another("other")
        self.mirror(self.device, other)
        before = other.shared_state()
        self.back_up()
        self.lose()
        self.restore()
        self.mirror(self.device, other)
        self.assertEqual(other.shared_state(), before)
        self.sync()
        self.wait_for_files()
        self.mirror(self.device, other)
        self.mirror(other, self.device)
        self.assertEqual(other.shared_state(), before)
        self.assertEqualDevices(self.device, other)

    def test_a_restored_companion_is_filled_by_the_next_mirror(self):
        self.fill()
        other = self.another("other")
        self.mirror(self.device, other)
        other.lines("rate", "Title 00001", "1", "--json")
        before = other.shared_state()
        other.lines("backup", "--output", self.backup, "--json")
        other.kill_daemon()
        shutil.rmtree(other.root)
        self.restore(device=other)
        self.mirror(self.device, other)
        self.assertEqual(other.shared_state(), before)
        self.mirror(other, self.device)
        self.mirror(self.device, other)
        self.assertEqualDevices(self.device, other)

    def test_a_directory_that_came_back_by_other_means_is_reconciled(self):
        self.fill()
        before, uid = self.device.state(), self.uid()
        self.device.stop_daemon()
        media = os.path.join(self.device.root, "var/mobile/Media")
        for folder in ("Tessel_Control/Music", "Podcasts", "Tessel_Control/Artwork"):
            shutil.rmtree(os.path.join(media, folder))
        self.device.lines("restore", "--json")
        self.assertNotEqual(self.uid(), uid)
        self.sync()
        self.wait_for_files()
        self.assertEqual(self.device.state(), before)

    def test_what_another_device_has_is_not_replaced_unasked(self):
        self.fill()
        self.back_up()
        other = self.another("other")
        self.make(3, seed=9)
        self.sync(device=other)
        before = other.state()
        self.assertRefused(self.restore(device=other, expect=GUARD), GUARD, "--replace")
        self.assertEqual(other.state(), before)
        kept = self.device.lines("list", "--json")
        self.restore("--replace", device=other)
        self.assertTrue(os.path.exists(other.real("/var/mobile/Media/Replaced")))
        kept_aside = other.lines("status", "--json")[-1]["kept"]
        self.assertEqual([place["path"] for place in kept_aside], ["/var/mobile/Media/Replaced/"])
        self.assertGreater(kept_aside[0]["bytes"], 0)
        self.assertIn(b"kept from before", other.orlith("status").stdout)
        self.assertEqual(self.device.lines("list", "--json"), kept)

    def test_bad_backups_are_refused_and_change_nothing(self):
        self.fill()
        before = self.device.state()
        self.back_up()
        with open(self.backup, "rb") as file:
            good = file.read()
        noise = bytearray(good)
        noise[len(good) // 2] ^= 1
        newer = bytearray(good)
        newer[8] = 9
        for bad, word in ((good[:-1], "cut off"), (good[:len(good) // 2], "cut off"),
                          (bytes(noise), "damaged"), (bytes(newer), "version 9"),
                          (b"", "cut off"), (b"hello" * 100, "no backup"),
                          (good + b"x", "follows")):
            with open(self.backup, "wb") as file:
                file.write(bad)
            self.assertRefused(self.restore(expect=FAILURE), FAILURE, word)
        self.assertEqual(self.device.state(), before)
        self.assertFalse(os.path.exists(self.device.real("/var/mobile/Media/Replaced")))

    def test_commands_say_what_is_wrong(self):
        self.assertRefused(self.device.orlith("backup", "--output", self.backup), NOT_FOUND,
                           "no device")
        self.assertRefused(self.device.orlith("restore"), NOT_FOUND, "no device")
        self.assertRefused(self.device.orlith("restore", "--from", self.backup), NOT_FOUND,
                           "player.backup")
        self.assertFalse(os.path.exists(self.device.root))
        self.fill()
        self.assertRefused(self.device.orlith("backup", "--output", self.scratch), FAILURE,
                           "directory")
        before = self.device.state()
        self.assertRefused(self.device.orlith("restore"), GUARD, "nothing to restore")
        self.assertEqual(self.device.state(), before)
        self.assertRefused(self.device.orlith("backup", "--output", "/nowhere/at/all"), NOT_FOUND,
                           "/nowhere/at/all")

    def test_a_busy_device_is_not_restored(self):
        self.fill()
        self.back_up()
        self.make(60, seed=4)
        with self.held_sync():
            self.assertRefused(self.device.orlith("restore", "--from", self.backup, "--replace"),
                               BUSY, "busy")


if __name__ == "__main__":
    main()
