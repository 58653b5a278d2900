"""A device is brought up to date from another one, and both come to rest."""

import json
import os
import signal
import time

from flow import BUSY, DONE, INTERRUPTED, NOT_FOUND, PARTLY, USAGE, Flow, main

DEADLINE = 60  # seconds


class Mirror(Flow):
    def setUp(self):
        super().setUp()
        self.other = self.another("other")

    def edit(self, device, *words):
        done = device.orlith(*words)
        self.assertEqual(done.returncode, DONE, done.stderr.decode())

    def come_to_rest(self):
        """Both ways twice; the second time there is nothing to do."""
        self.mirror(self.device, self.other)
        self.mirror(self.other, self.device)
        self.assertMovesNothing(self.device, self.other)
        self.assertMovesNothing(self.other, self.device)
        self.assertEqualDevices(self.device, self.other)

    def test_every_kind_arrives_with_files_playlists_ratings_and_counts(self):
        self.samples()
        self.sync()
        self.edit(self.device, "rate", "Steam", "4")
        self.edit(self.device, "played", "Steam")
        summary = self.mirror(self.device, self.other)
        self.assertEqual((summary["tracks_changed"], summary["playlists_changed"],
                          summary["failed"], summary["full"]), (21, 2, 0, True))
        self.assertEqualDevices(self.device, self.other)
        track = next(t for t in self.other.lines("list", "--json") if t.get("title") == "Steam")
        self.assertEqual((track["rating"], track["play_count"]), (80, 1))

    def test_pictures_arrive_and_are_no_larger_than_the_device_shows(self):
        self.make(12)
        self.sync()
        self.mirror(self.device, self.other)
        self.assertTrue(all(t["artwork"] for t in self.other.shared_state()["tracks"]))
        pictures = self.pictures(self.other)
        self.assertEqual(len(pictures), 2)  # an album each
        for size in pictures:
            self.assertGreater(size, 0)

    def pictures(self, device):
        root = os.path.join(device.root, "var/mobile/Media/Tessel_Control/Artwork/Originals")
        return [os.path.getsize(os.path.join(folder, name))
                for folder, _, names in os.walk(root) for name in names]

    def test_a_second_run_moves_nothing_and_says_so(self):
        self.make(6)
        self.sync()
        self.mirror(self.device, self.other)
        before = self.other.lines("revision", "--json")[-1]
        self.assertMovesNothing(self.device, self.other)
        self.assertEqual(self.other.lines("revision", "--json")[-1], before)
        done = self.other.start("mirror", "--from", self.device.root, "--to", self.other.root)
        output, _ = done.communicate(timeout=DEADLINE)
        self.assertTrue(output.startswith(b"nothing to do"), output)

    def test_edits_of_both_owners_meet(self):
        self.make(8)
        self.sync()
        self.come_to_rest()
        self.edit(self.device, "edit", "Title 00001", "title=Renamed here", "year=1994")
        self.edit(self.other, "edit", "Title 00001", "artist=Renamed there")
        self.edit(self.device, "rate", "Title 00002", "2")
        self.edit(self.other, "rate", "Title 00002", "5")
        for device in (self.device, self.other, self.other):
            self.edit(device, "played", "Title 00003")
        self.edit(self.device, "playlist", "create", "Here", "Title 00004", "Title 00005")
        self.edit(self.other, "playlist", "create", "There", "Title 00006")
        self.edit(self.other, "playlist", "rename", "List 0", "List of both")
        self.edit(self.other, "playlist", "delete", "List 1")
        self.edit(self.device, "playlist", "move", "List 2", "1", "3")
        self.edit(self.device, "delete", "Title 00007")
        self.come_to_rest()
        tracks = {t["title"]: t for t in self.tracks()}
        self.assertEqual(tracks["Renamed here"]["artist"], "Renamed there")
        self.assertEqual(tracks["Title 00002"]["rating"], 100)
        self.assertEqual(tracks["Title 00003"]["play_count"], 3)
        self.assertNotIn("Title 00007", tracks)
        self.assertEqual(sorted(self.playlists()), ["Here", "List 2", "List of both", "There"])

    def test_what_was_deleted_on_the_first_leaves_the_other_and_nothing_else_does(self):
        self.make(6)
        self.sync()
        self.mirror(self.device, self.other)
        self.edit(self.device, "delete", "Title 00000")
        for name in ("List 0", "List 1"):
            self.edit(self.device, "playlist", "delete", name)
        summary = self.mirror(self.device, self.other)
        self.assertEqual((summary["tracks_deleted"], summary["playlists_deleted"],
                          summary["assets"]), (1, 2, 0))
        self.assertEqualDevices(self.device, self.other)

    def test_a_companion_that_is_emptied_takes_nothing_away(self):
        self.make(6)
        self.sync()
        self.mirror(self.device, self.other)
        before = self.device.shared_state()
        self.edit(self.other, "reset-changes")
        self.assertEqual(self.other.shared_state()["tracks"], [])
        self.assertComesToOrder(self.other)
        self.mirror(self.other, self.device)
        self.assertEqual(self.device.shared_state(), before)
        self.mirror(self.device, self.other)
        self.assertEqualDevices(self.device, self.other)

    def test_only_the_kinds_that_are_asked_for_come_and_the_others_later(self):
        self.samples()
        self.sync()
        self.mirror(self.device, self.other, "--kinds", "podcast,audiobook")
        kinds = {t["asset_type"] for t in self.other.state()["tracks"]}
        self.assertEqual(kinds, {"Podcast", "Audiobook"})
        self.mirror(self.device, self.other)
        self.assertEqualDevices(self.device, self.other)

    def test_a_run_that_is_interrupted_ends_in_order_and_the_next_one_goes_on(self):
        self.make(60, size=1_000_000)
        self.sync()
        process = self.other.start_mirror_from(self.device)
        for line in process.stdout:
            if json.loads(line)["type"] == "asset":
                break
        process.send_signal(signal.SIGINT)
        output, _ = process.communicate(timeout=DEADLINE)
        lines = [json.loads(line) for line in output.splitlines()]
        self.assertEqual(process.returncode, INTERRUPTED)
        self.assertEqual([line["type"] for line in lines[-2:]], ["error", "summary"])
        summary = self.mirror(self.device, self.other)
        self.assertEqual((summary["tracks_changed"], summary["failed"]), (0, 0))
        self.assertEqualDevices(self.device, self.other)

    def test_a_file_that_is_gone_is_named_and_the_rest_comes(self):
        self.make(4)
        self.sync()
        gone = next(t for t in self.tracks() if t["title"] == "Title 00002")
        os.remove(self.device.real(gone["path"]))
        code, lines, _ = self.other.mirror_from(self.device)
        self.assertEqual(code, PARTLY)
        failures = self.of_type(lines, "failure")
        self.assertEqual([f["title"] for f in failures], ["Title 00002"])
        self.assertTrue(failures[0]["reason"])
        self.assertEqual(lines[-1]["failed"], 1)
        have = [t for t in self.other.state()["tracks"] if t["sha256"]]
        self.assertEqual(len(have), 3)

    def test_a_file_that_is_worn_out_is_not_passed_on_until_it_has_come_again(self):
        self.make(4)
        self.sync()
        worn = next(t for t in self.tracks() if t["title"] == "Title 00002")
        with open(self.device.real(worn["path"]), "r+b") as file:
            file.seek(1000)
            file.write(b"noise of a worn-out disk")
        code, lines, _ = self.other.mirror_from(self.device)
        self.assertEqual(code, PARTLY)
        failure, = self.of_type(lines, "failure")
        self.assertEqual(failure["title"], "Title 00002")
        self.assertIn("orlith check --full --repair", failure["reason"])
        self.edit(self.device, "check", "--full", "--repair")
        self.assertEqual(self.sync()[-1]["sent"], 1)
        self.assertEqual(self.mirror(self.device, self.other)["assets"], 1)
        self.assertEqualDevices(self.device, self.other)


class Following(Flow):
    def test_an_edit_is_on_the_other_device_a_moment_later(self):
        self.make(4)
        self.sync()
        other = self.another("other")
        process = other.start_mirror_from(self.device, "--follow")
        try:
            self.wait_for_summary(process)
            self.assertEqualDevices(self.device, other)
            self.device.orlith("rate", "Title 00001", "3")
            self.assertEqual(self.wait_for_summary(process)["tracks_changed"], 1)
            self.assertEqualDevices(self.device, other)
            self.song("new.mp3", title="New")
            self.sync()
            deadline = time.monotonic() + DEADLINE
            while other.shared_state() != self.device.shared_state():
                self.assertLess(time.monotonic(), deadline)
                self.wait_for_summary(process)
        finally:
            process.send_signal(signal.SIGINT)
            process.communicate(timeout=DEADLINE)
        self.assertEqual(process.returncode, INTERRUPTED)

    def wait_for_summary(self, process):
        for line in process.stdout:
            event = json.loads(line)
            if event["type"] == "summary":
                return event
        self.fail(process.stderr.read().decode())


class Busy(Flow):
    def test_a_device_that_is_taken_says_by_whom(self):
        self.make(2)
        self.sync()
        other = self.another("other")
        self.mirror(self.device, other)
        self.make(40, size=1_000_000)
        with self.held_sync():
            self.assertIn(b"busy with", self.device.orlith("status").stdout)
            file = os.path.join(self.scratch, "changes")
            for words in (["export", "--after", "0", "--output", file], ["reset-changes"]):
                self.assertRefused(self.device.orlith(*words), BUSY, "busy with", "process")
            self.assertEqual(os.path.exists(file), False)
            code, lines, errors = other.mirror_from(self.device)
            self.assertEqual(code, BUSY, errors)
            self.assertIn("busy", errors)
            self.assertTrue(self.of_type(lines, "waiting"))
        self.mirror(self.device, other)
        self.assertEqualDevices(self.device, other)


class WrongUse(Flow):
    def test_a_first_device_that_is_not_there_is_not_made(self):
        missing = self.another("missing")
        code, _, errors = self.device.mirror_from(missing)
        self.assertEqual(code, NOT_FOUND, errors)
        self.assertFalse(os.path.exists(missing.root))
        self.assertFalse(os.path.exists(self.device.root))

    def test_a_device_is_not_mirrored_from_itself(self):
        self.make(1)
        self.sync()
        self.assertEqual(self.device.mirror_from(self.device)[0], USAGE)

    def test_a_kind_that_there_is_not_is_a_usage_error(self):
        code, _, errors = self.another("other").mirror_from(self.device, "--kinds", "noise")
        self.assertEqual(code, USAGE)
        self.assertIn("noise", errors)


if __name__ == "__main__":
    main()
