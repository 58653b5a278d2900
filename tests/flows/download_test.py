"""A device fetches media by itself, from a server on this machine and from files."""

import os
import time

from flow import DONE, FAILURE, NOT_FOUND, USAGE, Flow, collection, main
from store import DEADLINE, Store


class Download(Flow):
    def setUp(self):
        super().setUp()
        self.song("own.mp3", title="Own")
        self.sync()
        self.store = Store()
        self.addCleanup(self.store.close)
        self.content = collection.id3({"TIT2": "Talk"}) + self.body() * 40
        self.store.files["talk.mp3"] = self.content

    def downloads(self):
        lines = self.device.lines("downloads", "--json")
        self.assertEqual(lines[-1], {"type": "summary", "downloads": len(lines) - 1})
        return lines[:-1]

    def download(self, url, *more):
        return self.device.lines("download", url, "--json", *more)[-1]["download"]

    def wait_until(self, condition):
        deadline = time.monotonic() + DEADLINE
        while not condition():
            self.assertLess(time.monotonic(), deadline, f"{self.downloads()} {self.tracks()}")
            time.sleep(0.05)

    def wait_until_gone(self, device, daemon):
        """Without a question that would keep any daemon here."""
        deadline = time.monotonic() + DEADLINE
        while daemon and device.daemon_process() == daemon:
            self.assertLess(time.monotonic(), deadline, "the daemon does not leave")
            time.sleep(0.05)

    def wait_for_file(self, title):
        self.wait_until(lambda: any(t["title"] == title and t["path"] for t in self.tracks()))
        return next(t for t in self.tracks() if t["title"] == title)

    def content_of(self, track):
        with open(self.device.real(track["path"]), "rb") as file:
            return file.read()

    def wait_for_failure(self):
        self.wait_until(lambda: any(d["phase"] == "failed" for d in self.downloads()))
        return next(d["failure"] for d in self.downloads() if d["phase"] == "failed")

    def hold_back(self):
        self.store.gate = len(self.content) // 2
        self.store.open.clear()

    def wait_for_half(self):
        self.wait_until(lambda: any(d["bytes"] == self.store.gate for d in self.downloads()))

    def test_a_file_of_a_server_becomes_a_track(self):
        self.download(self.store.url("talk.mp3"), "--title", "A talk")
        track = self.wait_for_file("A talk")
        self.assertEqual((self.content_of(track), track["size"]), (self.content, len(self.content)))
        self.wait_until(lambda: self.downloads() == [])

    def test_a_file_of_this_machine_becomes_a_track(self):
        path = os.path.join(self.scratch, "near by.mp3")
        with open(path, "wb") as file:
            file.write(self.content)
        self.download("file://" + path.replace(" ", "%20"))
        self.assertEqual(self.content_of(self.wait_for_file("near by")), self.content)

    def test_progress_is_shown(self):
        self.hold_back()
        number = self.download(self.store.url("talk.mp3"), "--title", "A talk")
        self.wait_for_half()
        (row,) = self.downloads()
        self.assertEqual((row["download"], row["title"], row["size"], row["failure"]),
                         (number, "A talk", len(self.content), None))
        self.assertIn(b" %)", self.device.orlith("downloads").stdout)
        self.store.open.set()
        self.wait_for_file("A talk")

    def test_a_cancelled_one_leaves_nothing(self):
        self.hold_back()
        number = self.download(self.store.url("talk.mp3"), "--title", "A talk")
        self.wait_for_half()
        self.assertEqual(self.device.lines("downloads", "--cancel", number, "--json"),
                         [{"type": "summary", "cancelled": number}])
        self.assertEqual((self.downloads(), self.titles()), ([], ["Own"]))
        self.assertRefused(self.device.orlith("downloads", "--cancel", number), NOT_FOUND,
                           "no such download")

    def test_a_daemon_that_is_killed_goes_on_where_it_was(self):
        # What a kill costs at most is less than half of this.
        self.content *= 60
        self.store.files["talk.mp3"] = self.content
        self.hold_back()
        self.download(self.store.url("talk.mp3"), "--title", "A talk")
        self.wait_for_half()
        self.assertTrue(self.device.kill_daemon())
        self.store.open.set()
        self.assertEqual(self.content_of(self.wait_for_file("A talk")), self.content)
        self.assertEqual(len(self.store.ranges), 1)
        self.assertGreater(self.store.ranges[0], 0)

    def test_the_daemon_stays_for_as_long_as_something_comes(self):
        self.device.stop_daemon()
        self.device.environment["ORLITH_IDLE_SECONDS"] = "1"
        self.hold_back()
        self.download(self.store.url("talk.mp3"), "--title", "A talk")
        daemon = self.device.daemon_process()
        # One that has nothing to do tells when the time is over.
        idle = self.another("idle")
        idle.environment["ORLITH_IDLE_SECONDS"] = "1"
        self.sync(device=idle)
        self.wait_until_gone(idle, idle.daemon_process())
        self.assertEqual(self.device.daemon_process(), daemon)
        self.store.open.set()
        self.wait_until_gone(self.device, daemon)
        self.assertIn("A talk", self.titles())

    def test_a_track_that_lacks_its_file_gets_it(self):
        own = self.tracks()[0]
        self.assertRefused(self.device.orlith("download", self.store.url("talk.mp3"), "--track",
                                              "Own"), FAILURE, "on the device already")
        stream = os.path.join(self.scratch, "stream")
        self.device.lines("export", "--after", "0", "--output", stream, "--json")
        self.device = self.another("companion")
        self.device.lines("import", stream, "--json")
        number = self.download(self.store.url("talk.mp3"), "--track", "Own")
        self.assertTrue(number)
        track = self.wait_for_file("Own")
        self.assertEqual(self.content_of(track), self.content)
        self.assertEqual((len(self.tracks()), track["sync_id"]), (1, own["persistent_id"]))

    def test_a_temporary_one_is_there_like_any_other(self):
        self.download(self.store.url("talk.mp3"), "--title", "A talk", "--temporary")
        self.wait_for_file("A talk")

    def test_asking_again_is_asking_for_the_same(self):
        self.hold_back()
        first = self.download(self.store.url("talk.mp3"), "--title", "A talk")
        self.assertEqual(self.download(self.store.url("talk.mp3")), first)
        self.store.open.set()
        self.wait_for_file("A talk")
        self.assertRefused(self.device.orlith("download", self.store.url("talk.mp3")), FAILURE,
                           "on the device already")

    def test_a_sync_and_a_mirror_keep_what_was_downloaded(self):
        self.download(self.store.url("talk.mp3"), "--title", "A talk")
        self.wait_for_file("A talk")
        self.sync()
        self.sync("--reset")
        self.assertEqual(self.titles(), ["A talk", "Own"])
        other = self.another("other")
        self.mirror(self.device, other)
        self.assertEqualDevices(self.device, other)

    def test_addresses_that_cannot_be_are_refused_at_once(self):
        for url, word in (("ftp://localhost/a.mp3", "https"), ("no address", "address"),
                          ("http://u:p@localhost/a.mp3", "password"), ("", "address")):
            self.assertRefused(self.device.orlith("download", url), FAILURE, word)
        self.assertRefused(self.device.orlith("download"), USAGE, "URL")
        self.assertRefused(self.device.orlith("download", self.store.url("talk.mp3"), "--track",
                                              "Nobody"), NOT_FOUND, "Nobody")
        self.assertEqual((self.downloads(), self.titles()), ([], ["Own"]))

    def test_what_is_not_there_fails_with_the_reason(self):
        self.download(self.store.url("none.mp3"))
        self.assertIn("404", self.wait_for_failure())
        self.assertIn(b"404", self.device.orlith("downloads").stdout)

    def test_a_file_that_is_not_there_fails_with_the_reason(self):
        self.download("file:///nowhere/at all.mp3".replace(" ", "%20"))
        self.assertIn("No such file", self.wait_for_failure())

    def test_what_is_no_media_file_fails_with_the_reason(self):
        self.store.files["page.mp3"] = b"<!DOCTYPE html><p>Please sign in"
        number = self.download(self.store.url("page.mp3"))
        self.assertIn("no media file", self.wait_for_failure())
        self.assertIsNone(next(t for t in self.tracks() if t["title"] == "page")["path"])
        self.device.lines("downloads", "--cancel", number, "--json")
        self.assertEqual(self.titles(), ["Own"])

    def test_one_that_failed_is_tried_again_when_asked_for_again(self):
        number = self.download(self.store.url("late.mp3"))
        self.wait_for_failure()
        self.store.files["late.mp3"] = self.content
        self.assertEqual(self.download(self.store.url("late.mp3")), number)
        self.wait_for_file("late")


if __name__ == "__main__":
    main()
