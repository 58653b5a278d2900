"""What does not agree on a device is found, mended, and found no more; nothing is lost by it."""

import glob
import json
import os
import random
import signal
import sqlite3

from flow import BUSY, DONE, INTERRUPTED, PARTLY, Flow, main

DATABASE = "/var/mobile/Media/Tessel_Control/Tessel/MediaLibrary.sqlitedb"
MUSIC = "/var/mobile/Media/Tessel_Control/Music"
ORIGINALS = "/var/mobile/Media/Tessel_Control/Artwork/Originals"
ASIDE = "/var/mobile/Media/Set_Aside"


class Check(Flow):
    def setUp(self):
        super().setUp()
        self.samples()
        self.sync()
        self.well("rate", "Boil", "4")
        self.well("played", "Steam")
        self.well("playlist", "create", "Mine", "Lid", "Boil", "Lid")
        self.well("playlist", "create", "Best", "--smart", "rating >= 4")
        self.before = self.held()

    def well(self, *words):
        done = self.device.orlith(*words)
        self.assertEqual(done.returncode, DONE, done.stderr.decode())

    def held(self):
        """What nothing may take from the owner."""
        tracks = self.tracks()
        titles = {t["persistent_id"]: t["title"] for t in tracks}
        lists = self.device.lines("list", "--playlists", "--json")[:-1]
        return (sorted((t["title"], t["artist"] or "", t["album"] or "", t["rating"],
                        t["play_count"]) for t in tracks),
                sorted((p["name"], [titles[track] for track in p["tracks"]]) for p in lists))

    def check(self, *arguments, expect=DONE):
        done = self.device.orlith("check", "--json", *arguments)
        lines = [json.loads(line) for line in done.stdout.decode().splitlines()]
        self.assertEqual(done.returncode, expect, f"{lines}\n{done.stderr.decode()}")
        self.assertEqual(lines[-1]["found"], len(lines) - 1)
        for finding in lines[:-1]:
            self.assertTrue(finding["problem"] and finding["remedy"] and finding["subject"])
        return lines[:-1]

    def assertMends(self, area, count=1, also=()):
        """Found; mended; found no more; nothing lost."""
        found = self.check(expect=PARTLY)
        self.assertEqual([f["area"] for f in found if f["area"] not in also], [area] * count, found)
        self.assertFalse(any(f["mended"] for f in found))
        mended = self.check("--repair")
        self.assertTrue(all(f["mended"] for f in mended), mended)
        self.assertEqual(self.check(), [])
        return found

    def sql(self, *statements):
        """Run on the database while no daemon has it."""
        self.device.stop_daemon()
        connection = sqlite3.connect(self.device.real(DATABASE))
        for statement in statements:
            connection.execute(statement)
        connection.commit()
        connection.execute("PRAGMA wal_checkpoint(TRUNCATE)")
        connection.close()


class Sound(Check):
    def test_a_device_at_rest_agrees(self):
        self.assertEqual(self.check(), [])
        self.assertIn(b"all agrees: 21 tracks", self.device.orlith("check").stdout)
        self.assertEqual(self.check("--repair"), [])
        self.assertEqual(self.held(), self.before)


    def test_a_device_that_was_mirrored_agrees_too(self):
        companion = self.another("companion")
        self.mirror(self.device, companion)
        done = companion.orlith("check")
        self.assertEqual((done.returncode, done.stderr), (DONE, b""), done.stdout.decode())


class Files(Check):
    def test_a_missing_file_is_waited_for(self):
        path = [t["path"] for t in self.tracks() if t["title"] == "Boil"][0]
        os.unlink(self.device.real(path))
        found = self.assertMends("file")
        self.assertEqual(found[0]["subject"], "Boil")
        self.assertEqual(self.held(), self.before)
        self.assertEqual(self.sync()[-1]["sent"], 1)
        self.assertEqual(self.held(), self.before)
        self.assertSound()

    def test_a_file_that_is_cut_short_comes_again(self):
        path = self.device.real([t["path"] for t in self.tracks() if t["title"] == "Boil"][0])
        os.truncate(path, 100)
        self.assertMends("file")
        self.assertEqual(self.sync()[-1]["sent"], 1)
        self.assertSound()
        self.assertEqual(self.held(), self.before)

    def test_a_file_that_nobody_owns_is_moved_aside(self):
        os.makedirs(self.device.real(MUSIC + "/F07"), exist_ok=True)
        stranger = self.device.real(MUSIC + "/F07/stranger.mp3")
        with open(stranger, "wb") as file:
            file.write(b"somebody's song")
        found = self.check(expect=PARTLY)
        self.assertEqual([f["subject"] for f in found], [MUSIC + "/F07/stranger.mp3"])
        self.assertTrue(os.path.exists(stranger))
        self.check("--repair")
        self.assertFalse(os.path.exists(stranger))
        with open(self.device.real(ASIDE + "/Tessel_Control/Music/F07/stranger.mp3"), "rb") as file:
            self.assertEqual(file.read(), b"somebody's song")
        kept = self.device.lines("status", "--json")[-1]["kept"]
        self.assertEqual([place["path"] for place in kept], [ASIDE + "/"])
        self.assertEqual(self.check(), [])
        self.assertEqual(self.held(), self.before)

    def test_a_file_that_was_moved_finds_its_track_again(self):
        path = [t["path"] for t in self.tracks() if t["title"] == "Boil"][0]
        os.makedirs(self.device.real(MUSIC + "/F08"), exist_ok=True)
        os.rename(self.device.real(path), self.device.real(MUSIC + "/F08/moved.opus"))
        found = self.assertMends("file", 2)
        self.assertIn("Boil", found[1]["problem"])
        self.assertEqual(self.sync()[-1]["sent"], 0)
        self.assertEqual(self.held(), self.before)
        self.assertSound()


    def noise_in_a_file(self):
        """Its path on the device; its size stays."""
        path = [t["path"] for t in self.tracks() if t["title"] == "Boil"][0]
        with open(self.device.real(path), "r+b") as file:
            file.seek(1000)
            file.write(b"noise of a worn-out disk")
        return path

    def test_a_full_check_finds_what_changed_in_a_file(self):
        self.assertEqual(self.check("--full"), [])
        path = self.noise_in_a_file()
        self.assertEqual(self.check(), [])
        found = self.check("--full", expect=PARTLY)
        self.assertEqual([(f["area"], f["subject"]) for f in found], [("file", "Boil")])
        self.assertIn(f"its file {path} is not what came", found[0]["problem"])
        self.check("--full", "--repair")
        self.assertFalse(os.path.exists(self.device.real(path)))
        self.assertEqual(self.sync()[-1]["sent"], 1)
        self.assertEqual(self.check("--full"), [])
        self.assertEqual(self.held(), self.before)

    def test_what_a_store_sent_is_not_compared_with_the_hosts_file(self):
        path = self.noise_in_a_file()
        purchase = self.device.real("/var/mobile/Media/Purchases/boil.opus")
        os.makedirs(os.path.dirname(purchase), exist_ok=True)
        self.sql("UPDATE item SET base_location_id = 300 WHERE item_id = "
                 "(SELECT item_id FROM item_extra WHERE title = 'Boil')",
                 "UPDATE item_extra SET location_file_name = 'boil.opus' WHERE title = 'Boil'")
        os.rename(self.device.real(path), purchase)
        self.assertEqual(self.check("--full"), [])

    def test_a_companions_files_are_read_as_well(self):
        companion = self.another("companion")
        self.mirror(self.device, companion)
        self.assertIn(b"byte for byte", companion.orlith("check", "--full").stdout)
        self.noise_in_a_file()
        self.assertEqual(companion.orlith("check", "--full").returncode, DONE)

    def test_a_full_check_that_is_broken_off_leaves_the_device_free(self):
        with open(self.device.real([t["path"] for t in self.tracks() if t["title"] == "Boil"][0]),
                  "r+b") as file:
            file.truncate(1 << 36)  # a hole that takes long to read
        self.sql("UPDATE item_extra SET total_size = 1 << 36 WHERE title = 'Boil'")
        running = self.device.start("check", "--full", "--device", self.device.root)
        try:
            self.assertComesTo(lambda: self.device.lines("status", "--json")[-1]["busy_with"]
                               is not None, True)
        finally:
            running.send_signal(signal.SIGINT)
            errors = running.communicate()[1]
        self.assertEqual(running.returncode, INTERRUPTED, errors)
        self.assertComesTo(lambda: self.device.lines("status", "--json")[-1]["busy_with"], None)
        self.sync()


class Pictures(Check):
    def test_artwork_without_an_owner_is_moved_aside(self):
        stranger = self.device.real(ORIGINALS + "/ab/cd/stranger")
        os.makedirs(os.path.dirname(stranger))
        with open(stranger, "wb") as file:
            file.write(b"a picture")
        self.assertMends("artwork")
        self.assertFalse(os.path.exists(stranger))
        self.assertEqual(self.held(), self.before)

    def pictures(self, of_chapters, device=None):
        """Those that lie on the device, by their kind."""
        root = (device or self.device).real(ORIGINALS)
        with sqlite3.connect((device or self.device).real(DATABASE)) as connection:
            recorded = connection.execute("SELECT relative_path FROM artwork WHERE "
                                          "(artwork_type = 3) = ?", (of_chapters,)).fetchall()
        return sorted(os.path.join(root, path) for path, in recorded)

    def test_a_cover_that_is_gone_comes_again(self):
        covers = self.pictures(of_chapters=False)
        self.assertTrue(covers)
        for cover in covers:
            os.unlink(cover)
        self.assertMends("artwork", len(covers))
        self.sync()
        self.assertEqual(self.pictures(of_chapters=False), covers)
        self.assertTrue(all(os.path.exists(cover) for cover in covers))
        self.assertEqual(self.check(), [])

    def test_a_picture_that_is_damaged_comes_again(self):
        cover, chapter = self.pictures(False)[0], self.pictures(True)[0]
        with open(cover, "rb") as file:
            whole = file.read()
        os.truncate(cover, 0)
        with open(chapter, "r+b") as file:
            file.write(bytes(64))
        found = self.assertMends("artwork", 2)
        self.assertTrue(all("damaged" in finding["problem"] for finding in found), found)
        self.sync()
        with open(cover, "rb") as file:
            self.assertEqual(file.read(), whole)
        self.assertTrue(os.path.exists(chapter))
        self.assertEqual(self.check(), [])

    def test_a_chapters_picture_that_is_gone_comes_again_with_the_cover(self):
        chapters = self.pictures(of_chapters=True)
        self.assertEqual(len(chapters), 3)
        for lost in (chapters[:1], chapters):
            for picture in lost:
                os.unlink(picture)
            found = self.assertMends("artwork")
            self.assertEqual(found[0]["subject"], "The Lantern Keeper")
            self.assertIn(f"{len(lost)} of its chapters' pictures", found[0]["problem"])
            self.sync()
            self.assertEqual(self.pictures(of_chapters=True), chapters)
            self.assertTrue(all(os.path.exists(picture) for picture in chapters))
            self.assertEqual(self.check(), [])

    def test_a_companions_chapter_picture_comes_again_with_a_mirror(self):
        companion = self.another("companion")
        self.mirror(self.device, companion)
        chapters = self.pictures(of_chapters=True, device=companion)
        self.assertEqual(len(chapters), 3)
        os.unlink(chapters[1])
        self.assertEqual(companion.orlith("check").returncode, PARTLY)
        self.assertEqual(companion.orlith("check", "--repair").returncode, DONE)
        self.mirror(self.device, companion)
        self.assertTrue(os.path.exists(chapters[1]))
        self.assertIn(b"all agrees", companion.orlith("check").stdout)
        self.assertMovesNothing(self.device, companion)


class Databases(Check):
    def noise(self, *pages):
        self.device.stop_daemon()
        path = self.device.real(DATABASE)
        with sqlite3.connect(path) as connection:
            connection.execute("PRAGMA wal_checkpoint(TRUNCATE)")
            count = connection.execute("PRAGMA page_count").fetchone()[0]
        with open(path, "r+b") as file:
            for page in pages:
                file.seek((page - 1) % count * 4096)
                file.write(random.Random(page).randbytes(4096))

    def page_of(self, table):
        self.device.stop_daemon()
        with sqlite3.connect(self.device.real(DATABASE)) as connection:
            return connection.execute("SELECT rootpage FROM sqlite_master WHERE name = ?",
                                      (table,)).fetchone()[0]

    def assertComesBack(self, *tables):
        self.noise(*[self.page_of(table) for table in tables])
        found = self.check(expect=PARTLY)
        self.assertIn("database", {f["area"] for f in found})
        mended = self.check("--repair")
        self.assertTrue(all(f["mended"] for f in mended), mended)
        self.assertEqual(self.check(), [])
        self.sync("--delete")
        self.assertEqual(self.check(), [])
        self.assertEqual(self.held(), self.before)

    def test_a_page_of_names_of_noise_loses_nothing(self):
        self.assertComesBack("album")

    def test_a_page_of_tracks_of_noise_loses_nothing(self):
        self.assertComesBack("item")

    def test_a_page_of_the_order_of_names_loses_nothing(self):
        self.assertComesBack("sort_map", "item_artist", "item_artwork")

    def test_damage_that_comes_while_the_daemon_runs_is_mended_in_one_go(self):
        page = self.page_of("item")
        self.check()
        path = self.device.real(DATABASE)
        with sqlite3.connect(path) as connection:
            connection.execute("PRAGMA wal_checkpoint(TRUNCATE)")
        with open(path, "r+b") as file:
            file.seek((page - 1) * 4096)
            file.write(random.Random(page).randbytes(4096))
        found = self.check(expect=PARTLY)
        self.assertEqual([f["area"] for f in found], ["database"])
        self.check("--repair")
        self.assertEqual(self.check(), [])
        self.sync()
        self.assertEqual(self.held(), self.before)
        carried = glob.glob(path + ".carried-*[0-9]")
        self.assertEqual(len(carried), 1)
        kept = self.device.lines("status", "--json")[-1]["kept"]
        self.assertEqual([self.device.real(place["path"]) for place in kept], carried)

    def test_what_is_left_of_a_playlist_without_its_name_comes_back(self):
        self.noise(self.page_of("container"))
        self.check("--repair")
        self.assertEqual(self.check(), [])
        tracks, lists = self.held()
        self.assertEqual(tracks, self.before[0])
        self.assertIn(["Lid", "Boil", "Lid"], [items for _, items in lists])

    def test_an_index_that_disagrees_is_built_anew(self):
        self.device.stop_daemon()
        path = self.device.real(DATABASE)
        where = "FROM sqlite_master WHERE name = 'item_unplaced'"
        # A track changes while the database does not know its index.
        with sqlite3.connect(path) as connection:
            index = connection.execute("SELECT * " + where).fetchone()
            connection.execute("PRAGMA writable_schema = ON")
            connection.execute("DELETE " + where)
        with sqlite3.connect(path) as connection:
            connection.execute("UPDATE item SET album_order = 0 WHERE item_id = 1")
            connection.execute("PRAGMA writable_schema = ON")
            connection.execute("INSERT INTO sqlite_master VALUES (?, ?, ?, ?, ?)", index)
        found = self.assertMends("database")
        self.assertIn("an index disagrees with its table", found[0]["problem"])
        self.assertEqual(glob.glob(path + ".damaged-*") + glob.glob(path + ".carried-*"), [])
        self.assertEqual(self.held(), self.before)


class Revisions(Check):
    def test_a_revision_that_went_back_goes_on_above_everything_known(self):
        companion = self.another("companion")
        self.mirror(self.device, companion)
        highest = int(self.device.lines("revision", "--json")[-1]["revision"])
        uid = self.device.lines("revision", "--json")[-1]["library_uid"]
        self.sql("UPDATE sqlite_sequence SET seq = 3 WHERE name = 'entity_revision'")
        for beside in glob.glob(self.device.real(DATABASE) + "*.identity"):
            os.unlink(beside)
        self.assertMends("revision")
        after = self.device.lines("revision", "--json")[-1]
        self.assertGreater(int(after["revision"]), highest)
        self.assertNotEqual(after["library_uid"], uid)
        self.well("rate", "Lid", "5")
        self.assertTrue(self.mirror(self.device, companion)["full"])
        self.assertEqual({t["title"]: t["rating"] for t in companion.lines("list", "--json")[:-1]}
                         ["Lid"], 100)
        self.assertEqual(self.sync()[-1]["sent"], 0)
        self.assertEqual(self.check(), [])


class Records(Check):
    def test_what_others_are_told_is_what_the_library_holds(self):
        self.sql("UPDATE entity_revision SET record = substr(record, 1, length(record) - 1) "
                 "WHERE pid = (SELECT item_pid FROM item_extra WHERE title = 'Lid')")
        found = self.assertMends("database")
        self.assertEqual(found[0]["subject"], "Lid")
        self.assertIn("other devices would be told", found[0]["problem"])

    def test_recommendation_data_that_are_damaged_or_nobodys_go_and_come_again(self):
        self.sql("UPDATE kenning_similarities SET data = x'4b4e' WHERE kenning_id = "
                 "(SELECT kenning_id FROM item_extra WHERE title = 'Boil')",
                 "INSERT INTO kenning_metadata VALUES (77, 1, x'00')")
        done = self.device.orlith("similar", "Boil")
        self.assertRefused(done, 1, "damaged", "check --repair")
        self.assertMends("kenning", 2)
        self.sync()
        self.assertEqual(self.device.orlith("similar", "Boil", "--count", "3").returncode, DONE)

    def test_a_damaged_table_of_chapters_goes_and_comes_again(self):
        def chapters():
            return sum(t["chapters"] for t in self.tracks())
        known = chapters()
        self.assertGreater(known, 0)
        self.sql("UPDATE item_extra SET chapter_data = x'00' WHERE chapter_data IS NOT NULL")
        self.assertMends("chapters", also=("artwork",))
        self.assertEqual(chapters(), 0)
        self.sync("--reset")
        self.assertEqual(chapters(), known)
        self.assertEqual(self.check(), [])
        pictures = "SELECT count(*) FROM artwork WHERE artwork_type = 3"
        with sqlite3.connect(self.device.real(DATABASE)) as connection:
            self.assertEqual(connection.execute(pictures).fetchone()[0], 3)

    def test_a_device_that_is_busy_is_not_checked(self):
        self.make(150, size=200_000)
        with self.held_sync():
            self.assertRefused(self.device.orlith("check"), BUSY, "busy")
        self.assertEqual(self.check(), [])

    def test_staging_leftovers_are_removed_but_not_what_is_awaited(self):
        partial = self.device.real("/var/mobile/Media/Stagehold/Partial")
        os.makedirs(partial, exist_ok=True)
        with open(os.path.join(partial, "123456-1"), "wb") as file:
            file.write(b"half")
        self.assertMends("staging")
        self.assertEqual(os.listdir(partial), [])


if __name__ == "__main__":
    main()
