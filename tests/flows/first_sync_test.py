"""A first sync, a second one that finds nothing to do, and changes that travel."""

import os
import shutil

from flow import DONE, USAGE, Flow, collection, main


class FirstSync(Flow):
    def test_every_file_arrives_byte_for_byte(self):
        self.make(30)
        summary = self.sync()[-1]
        self.assertEqual((summary["sent"], summary["failed"], summary["playlists"]), (30, 0, 3))
        self.assertSameFiles()
        self.assertSound()

    def test_tags_artwork_and_order_of_playlists_arrive(self):
        names = self.make(12)
        self.write("Order.m3u8", "\n".join([names[5], names[1], names[5], names[0]]).encode())
        self.sync()
        track = next(t for t in self.tracks() if t["title"] == "Title 00003")
        self.assertEqual((track["artist"], track["album"], track["track_number"]),
                         ("Artist 0", "Album 0000", 4))
        self.assertEqual((track["media_type"], track["asset_type"]), (8, "Music"))
        self.assertTrue(track["artwork"] and track["kenning"])
        title = {t["persistent_id"]: t["title"] for t in self.tracks()}
        order = [title[t] for t in self.playlists()["Order"]["tracks"]]
        self.assertEqual(order, ["Title 00005", "Title 00001", "Title 00005", "Title 00000"])

    def test_a_second_run_finds_nothing_to_do_and_changes_nothing(self):
        self.make(12)
        first = self.sync()[-1]
        before = self.device.lines("status", "--json")[-1]
        second = self.sync()[-1]
        self.assertEqual((second["sent"], second["unchanged"], second["bytes"]), (0, 12, 0))
        self.assertEqual(second["anchor"], first["anchor"])
        after = self.device.lines("status", "--json")[-1]
        self.assertEqual((after["revision"], after["anchor"]), (before["revision"], before["anchor"]))

    def test_a_second_run_says_that_there_is_nothing_to_do(self):
        self.make(3)
        self.sync()
        done = self.device.orlith("sync", self.media)
        self.assertEqual((done.returncode, done.stdout), (DONE, b"nothing to do: 3 files up to date\n"))

    def test_status_tells_the_truth(self):
        self.make(12)
        anchor = self.sync()[-1]["anchor"]
        status = self.device.lines("status", "--json")[-1]
        self.assertEqual((status["tracks"], status["missing_files"], status["anchor"]),
                         (12, 0, anchor))
        self.assertFalse(status["background_suppressed"])

    def test_a_dry_run_names_each_step_and_does_nothing(self):
        names = self.make(3)
        lines = self.sync("--dry-run")
        plan = self.of_type(lines, "plan")
        self.assertEqual(sorted(p["path"] for p in plan if p["action"] == "add"), sorted(names))
        self.assertEqual(sum(p["bytes"] for p in plan if p["action"] == "add"),
                         sum(os.path.getsize(os.path.join(self.media, n)) for n in names))
        self.assertEqual(self.tracks(), [])

    def test_the_sample_collection_brings_every_kind(self):
        self.samples()
        self.sync()
        kinds = {t["asset_type"] for t in self.tracks()}
        self.assertLessEqual({"Music", "Podcast", "Audiobook", "Movie"}, kinds)
        self.assertTrue(any(t["chapters"] > 0 for t in self.tracks()))
        self.assertSound()
        self.assertEqual(self.sync()[-1]["sent"], 0)

    def test_a_wrong_word_is_a_usage_error(self):
        self.sync("--no-such-option", expect=USAGE)


class Changes(Flow):
    def test_a_retagged_file_is_updated_and_keeps_its_identity(self):
        path = self.song("a.mp3", title="Old")
        self.sync()
        before = self.tracks()[0]
        with open(path, "wb") as file:
            file.write(collection.id3({"TIT2": "New"}) + self.body())
        self.sync()
        after = self.tracks()
        self.assertEqual([t["title"] for t in after], ["New"])
        self.assertEqual(after[0]["persistent_id"], before["persistent_id"])
        self.assertSameFiles()
        self.assertSound()

    def test_a_renamed_file_keeps_identity_rating_and_counts_and_is_not_sent_again(self):
        self.song("a.mp3", title="Stays")
        self.sync()
        before = self.tracks()[0]
        self.assertEqual(self.device.orlith("rate", "Stays", "4").returncode, DONE)
        self.assertEqual(self.device.orlith("played", "Stays").returncode, DONE)
        os.rename(os.path.join(self.media, "a.mp3"), os.path.join(self.media, "b.mp3"))
        summary = self.sync()[-1]
        self.assertEqual((summary["sent"], summary["bytes"]), (0, 0))
        after = self.tracks()[0]
        self.assertEqual(after["persistent_id"], before["persistent_id"])
        self.assertEqual((after["rating"], after["play_count"]), (80, 1))

    def test_a_host_that_lost_its_state_sends_no_file_again(self):
        self.make(12)
        self.sync()
        before = {t["title"]: t["persistent_id"] for t in self.tracks()}
        shutil.rmtree(os.path.join(self.scratch, "state"))
        summary = self.sync()[-1]
        self.assertEqual((summary["sent"], summary["bytes"]), (0, 0))
        self.assertEqual({t["title"]: t["persistent_id"] for t in self.tracks()}, before)
        self.assertSound()

    def test_a_chapters_new_picture_takes_the_old_ones_place(self):
        self.samples()
        self.sync()
        companion = self.another("companion")
        self.mirror(self.device, companion)
        before = [self.device.picture_hashes(), companion.picture_hashes()]
        book = os.path.join(self.media, "Audiobooks", "The Lantern Keeper.m4b")
        with open(book, "rb") as file:
            content = bytearray(file.read())
        second = content.index(b"\xff\xd8\xff", content.index(b"\xff\xd8\xff") + 1)
        content[content.index(b"\xff\xdb", second) + 8] += 1  # of its quantisation table
        with open(book, "wb") as file:
            file.write(content)
        self.sync()
        self.mirror(self.device, companion)
        for device, known in zip((self.device, companion), before):
            self.assertEqual(len(set(device.picture_hashes()) - set(known)), 1)
            self.assertComesTo(lambda: len(device.picture_hashes()), len(known))
            self.assertEqual(device.orlith("check").returncode, DONE)
        self.assertEqual(self.sync()[-1]["sent"], 0)
        self.assertMovesNothing(self.device, companion)

    def test_a_playlist_that_changes_is_sent_and_only_it(self):
        names = self.make(6)
        self.write("P.m3u8", "\n".join(names[:2]).encode())
        self.sync()
        self.write("P.m3u8", "\n".join(names[2:5]).encode())
        summary = self.sync()[-1]
        self.assertEqual((summary["sent"], summary["playlists"]), (0, 1))
        self.assertEqual(len(self.playlists()["P"]["tracks"]), 3)

    def test_a_reset_brings_the_same_state(self):
        self.make(12)
        self.sync()
        before = self.device.state()
        self.sync("--reset")
        self.assertEqual(self.device.state(), before)
        self.assertSound()


if __name__ == "__main__":
    main()
