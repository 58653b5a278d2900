"""Changes of a library as a file: exported, looked at, imported, and refused when damaged."""

import json
import os
import subprocess

from flow import DONE, FAILURE, NO_SPACE, NOT_FOUND, ORLITH, USAGE, Flow, main


class ChangeStream(Flow):
    def setUp(self):
        super().setUp()
        self.other = self.another("other")
        self.file = os.path.join(self.scratch, "changes.qorx")
        self.make(6)
        self.sync()

    def export(self, *more, after="0"):
        return self.device.lines("export", "--after", after, "--output", self.file, "--json",
                                 *more)[-1]

    def revision(self, device):
        return device.lines("revision", "--json")[-1]["revision"]

    def qorx(self):
        done = subprocess.run([ORLITH, "qorx", self.file, "--json"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, check=False)
        return done, [json.loads(line) for line in done.stdout.splitlines()]

    def test_a_library_travels_as_a_file(self):
        exported = self.export("--sync-type", "2")
        self.assertEqual((exported["items"], exported["to_revision"]),
                         (9, self.revision(self.device)))
        imported = self.other.lines("import", self.file, "--json")[-1]
        self.assertEqual((imported["items"], imported["bytes"]), (9, exported["bytes"]))
        titles = sorted(t["title"] for t in self.other.lines("list", "--json")[:-1])
        self.assertEqual(titles, self.titles())
        # Files do not travel this way; the device knows what it lacks.
        wanted = self.other.lines("assets", "--json")
        self.assertEqual(len([a for a in wanted[:-1] if "file" in a["parts"]]), 6)
        self.mirror(self.device, self.other)
        self.assertEqualDevices(self.device, self.other)
        self.assertEqual(self.other.lines("assets", "--json"), [{"type": "summary", "assets": 0}])

    def test_only_what_came_after_a_revision_is_exported(self):
        before = self.revision(self.device)
        self.device.orlith("rate", "Title 00001", "3")
        self.assertEqual(self.export(after=before)["items"], 1)
        done, lines = self.qorx()
        self.assertEqual(done.returncode, DONE)
        self.assertEqual([t["title"] for t in self.of_type(lines, "track")], ["Title 00001"])
        self.assertEqual(self.export(after=self.revision(self.device))["items"], 0)

    def test_the_same_import_again_changes_nothing(self):
        self.export()
        self.other.lines("import", self.file, "--json")
        before = self.revision(self.other)
        self.assertEqual(self.other.lines("import", self.file, "--json")[-1]["revision"], before)

    def test_a_deletion_is_exported_and_obeyed(self):
        self.export()
        self.other.lines("import", self.file, "--json")
        before = self.revision(self.device)
        self.device.orlith("delete", "Title 00002")
        self.export(after=before)
        _, lines = self.qorx()
        self.assertEqual([d["entity"] for d in self.of_type(lines, "deletion")], ["track"])
        self.other.lines("import", self.file, "--json")
        titles = [t["title"] for t in self.other.lines("list", "--json")[:-1]]
        self.assertNotIn("Title 00002", titles)
        self.assertEqual(len(titles), 5)

    def test_the_file_of_a_track_whose_deletion_was_imported_goes_too(self):
        self.mirror(self.device, self.other)
        before = self.revision(self.device)
        self.device.orlith("delete", "Title 00002")
        self.export(after=before)
        self.other.lines("import", self.file, "--json")
        self.assertComesToOrder(self.other)

    def test_a_damaged_file_is_refused_and_the_library_is_as_it_was(self):
        self.export()
        with open(self.file, "rb") as file:
            whole = file.read()
        self.other.lines("import", self.file, "--json")
        state, revision = self.other.state(), self.revision(self.other)
        flipped = bytearray(whole)
        flipped[len(flipped) // 3] ^= 0x10
        for damaged in (whole[:len(whole) // 2], whole[:-1], bytes(flipped), whole + b"x", b""):
            with open(self.file, "wb") as file:
                file.write(damaged)
            self.assertRefused(self.other.orlith("import", self.file), FAILURE, "damaged")
        self.assertEqual((self.other.state(), self.revision(self.other)), (state, revision))

    def test_a_damaged_file_whose_parameters_fit_is_refused_by_the_device(self):
        self.export()
        with open(self.file, "r+b") as file:
            file.seek(100)
            file.write(b"\xff" * 20)
        with open(self.file + ".json", encoding="utf-8") as file:
            parameters = json.load(file)
        del parameters["Stream"]
        with open(self.file + ".json", "w", encoding="utf-8") as file:
            json.dump(parameters, file)
        done = self.other.orlith("import", self.file)
        self.assertEqual(done.returncode, FAILURE)
        self.assertNotIn(b"no reason", done.stderr)
        self.assertEqual(self.other.state()["tracks"], [])
        done, lines = self.qorx()
        self.assertEqual((done.returncode, self.of_type(lines, "track")), (FAILURE, []))
        self.assertIn(b"(byte ", done.stderr)

    def test_a_stream_goes_through_a_pipe(self):
        done = self.device.orlith("export", "--after", "0")
        self.assertEqual(done.returncode, DONE)
        exported = self.export()
        self.assertEqual(len(done.stdout), exported["bytes"])
        parameters = json.loads(done.stderr)
        self.assertEqual(parameters["SyncItemCount"], 9)
        with open(self.file, "wb") as file:
            file.write(done.stdout)
        with open(self.file + ".json", "wb") as file:
            file.write(done.stderr)
        self.other.lines("import", self.file, "--json")
        self.assertEqual(len(self.other.lines("list", "--json")), 7)

    def test_a_pipe_that_takes_no_more_is_no_success(self):
        command = [ORLITH, "export", "--after", "0", "--device", self.device.root]
        with open("/dev/full", "wb") as full:
            done = subprocess.run(command, stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertRefused(done, NO_SPACE, "the standard output")

    def test_what_is_missing_is_named(self):
        self.assertRefused(self.other.orlith("import", self.file), NOT_FOUND, "changes.qorx:")
        self.export()
        os.remove(self.file + ".json")
        self.assertRefused(self.other.orlith("import", self.file), NOT_FOUND, "changes.qorx.json")

    def test_wrong_usage_is_told(self):
        self.assertRefused(self.device.orlith("export", "--output", self.file), USAGE, "--after")
        self.assertRefused(self.device.orlith("export", "--after", "-1", "--output", self.file),
                           USAGE, "-1")
        self.assertRefused(self.device.orlith("export", "--after", "0", "--json"), USAGE,
                           "--output")
        before = os.listdir(self.scratch)
        self.assertRefused(self.device.orlith("export", "--after", "0", "--output", self.scratch),
                           FAILURE, "directory")
        self.assertEqual(os.listdir(self.scratch), before)

    def test_a_reset_takes_away_what_came_from_others_alone(self):
        self.export()
        self.song("own.mp3", title="Own")
        self.other.lines("import", self.file, "--json")
        own = os.path.join(self.scratch, "own")
        os.makedirs(own)
        os.rename(os.path.join(self.media, "own.mp3"), os.path.join(own, "own.mp3"))
        # What the stream brought without files is not the folder's to send.
        self.assertEqual(self.sync(device=self.other, media=own)[-1]["failed"], 0)
        self.other.lines("reset-changes", "--json")
        self.assertEqual([t["title"] for t in self.other.lines("list", "--json")[:-1]], ["Own"])
        self.assertEqual(len(self.tracks()), 6)


if __name__ == "__main__":
    main()
