"""What a device tells of its media outside of a session, and metadata updates from a host."""

import json
import os

from flow import DONE, FAILURE, NOT_FOUND, USAGE, Flow, main


class Reports(Flow):
    def run_well(self, *words):
        done = self.device.orlith(*words)
        self.assertEqual(done.returncode, DONE, done.stderr.decode())
        return done.stdout.decode()

    def anchor(self):
        return self.device.lines("status", "--json")[-1]["anchor"]


class Metrics(Reports):
    def test_every_kind_is_measured_as_the_file_system_counts_it(self):
        self.samples()
        self.sync()
        lines = self.device.lines("metrics", "--json")
        self.assertEqual(lines[-1], {"type": "summary", "asset_types": len(lines) - 1})
        kinds = {line["asset_type"]: line for line in lines[:-1]}
        counts, sizes = {}, {}
        for track in self.tracks():
            kind = track["asset_type"]
            path = os.path.join(self.device.root, track["path"].lstrip("/"))
            counts[kind] = counts.get(kind, 0) + 1
            sizes[kind] = sizes.get(kind, 0) + os.stat(path).st_blocks * 512
        self.assertEqual({k: v["_Count"] for k, v in kinds.items()}, counts)
        self.assertNotIn("_PurgeableSize", kinds["Music"])
        for kind in kinds.keys() - {"Music"}:
            self.assertEqual(kinds[kind]["_PhysicalSize"], sizes[kind], kind)
        # The covers and the library itself.
        self.assertGreater(kinds["Music"]["_PhysicalSize"], sizes["Music"])

    def test_a_device_without_tracks_has_no_metrics(self):
        os.makedirs(os.path.join(self.device.root, "var"))
        self.assertEqual(self.run_well("metrics"), "no media on the device\n")
        self.assertEqual(self.device.lines("metrics", "--json"),
                         [{"type": "summary", "asset_types": 0}])

    def test_the_chart_has_a_line_for_each_kind(self):
        self.song("a.mp3", title="A")
        self.sync()
        lines = self.run_well("metrics").splitlines()
        self.assertEqual([line.split()[0] for line in lines], ["Music", "all"])
        self.assertIn("#" * 30, lines[0])


class Accounts(Reports):
    def setUp(self):
        super().setUp()
        self.song("a.mp3", title="A")
        self.sync()

    def test_accounts_are_named_and_forgotten(self):
        self.assertEqual(self.run_well("account", "list"), "no accounts\n")
        self.run_well("account", "add", "4711", "me@example.org")
        self.run_well("account", "add", "4711", "you@example.org")
        self.assertEqual(self.device.lines("account", "list", "--json"),
                         [{"type": "account", "account": "4711", "name": "you@example.org"},
                          {"type": "summary", "accounts": 1}])
        self.run_well("account", "remove", "4711")
        self.assertRefused(self.device.orlith("account", "remove", "4711"), NOT_FOUND, "4711")

    def test_numbers_that_no_account_has_are_refused(self):
        for number in ("0", "-5", "-9223372036854775808"):
            self.assertRefused(self.device.orlith("account", "add", number, "x"), FAILURE,
                               "1 or more")
        self.assertRefused(self.device.orlith("account", "add", "9223372036854775808", "x"), USAGE)
        self.assertRefused(self.device.orlith("account", "add", "5", ""), FAILURE, "name")

    def test_only_accounts_that_something_was_bought_with_are_told(self):
        self.run_well("account", "add", "4711", "me@example.org")
        self.assertEqual(self.device.lines("accounts", "--json"),
                         [{"type": "summary", "accounts": 0}])


class TheCloud(Reports):
    def test_disabled_types_follow_the_sign_in(self):
        self.song("a.mp3", title="A")
        self.sync()
        self.assertEqual(self.device.lines("disabled-types", "--json"),
                         [{"type": "summary", "disabled_types": 0}])
        self.run_well("cloud", "sign-in")
        self.assertEqual(self.run_well("disabled-types"), "Music\nMusicVideo\n")
        self.run_well("cloud", "sign-out")
        self.assertEqual(self.run_well("disabled-types"),
                         "none: the host may send every kind of media\n")


class Updates(Reports):
    def setUp(self):
        super().setUp()
        for name in ("First", "Second"):
            self.song(f"{name}.mp3", title=name, TPE1="Artist")
        self.sync()

    def track(self, title):
        return next(t for t in self.tracks() if t["title"] == title)

    def test_an_update_sets_all_fields_and_gives_a_new_anchor(self):
        before = self.anchor()
        self.assertEqual(self.run_well("update", "First", "title=Anew", "artist=", "rating=60"),
                         "First: updated\n")
        track = self.track("Anew")
        self.assertEqual((track["artist"], track["rating"]), (None, 60))
        self.assertNotEqual(self.anchor(), before)
        summary = json.loads(self.run_well("update", "Anew", "title=Again", "--json"))
        self.assertEqual(summary["anchor"], self.anchor())

    def test_an_update_stays_and_the_host_learns_of_it(self):
        self.run_well("update", "First", "title=Anew", "rating=60")
        code, lines, errors = self.device.sync(self.media)
        self.assertEqual(code, DONE, errors)
        self.assertIn("rating", errors)
        self.assertEqual(lines[-1]["sent"], 0)
        self.sync()
        self.assertEqual(self.track("Anew")["rating"], 60)
        self.assertSound()

    def test_an_update_that_is_refused_changes_nothing(self):
        before = (self.anchor(), self.tracks())
        for code, words, saying in (
                (FAILURE, ["First", "title=x", "colour=red"], "colour"),
                (FAILURE, ["First", "title=x", "rating=101"], "rating"),
                (FAILURE, ["First", "title=x", "year=long ago"], "year"),
                (FAILURE, ["First", b"title=\xff\xfe"], "property list"),
                (NOT_FOUND, ["Nobody", "title=x"], "Nobody"),
                (USAGE, ["First"], "FIELD=VALUE"),
                (USAGE, ["First", "title"], "FIELD=VALUE")):
            self.assertRefused(self.device.orlith("update", *words), code, saying)
            self.assertEqual((self.anchor(), self.tracks()), before)

    def test_clearing_makes_the_next_sync_begin_from_nothing(self):
        self.run_well("clear")
        self.assertEqual(self.anchor(), "0")
        self.assertEqual(len(self.tracks()), 2)
        self.run_well("clear")
        self.assertEqual(self.sync()[-1]["sent"], 0)
        self.assertNotEqual(self.anchor(), "0")


if __name__ == "__main__":
    main()
