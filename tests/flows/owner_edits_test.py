"""What a device's owner changes: fields, playlists, deletions; all of it or nothing."""

from flow import DONE, FAILURE, NOT_FOUND, USAGE, Flow, main


class OwnerEdits(Flow):
    def setUp(self):
        super().setUp()
        for name in ("First", "Second", "Third"):
            self.song(f"{name}.mp3", title=name, TPE1="Artist")
        self.song("Twin 1.mp3", title="Twin")
        self.song("Twin 2.mp3", title="Twin", TPE1="Artist")
        self.sync()

    def run_well(self, *words):
        done = self.device.orlith(*words)
        self.assertEqual(done.returncode, DONE, done.stderr.decode())
        return done.stdout.decode()

    def refused(self, code, *words, saying=()):
        before = self.device.lines("revision", "--json")[-1]["revision"]
        self.assertRefused(self.device.orlith(*words), code, *saying)
        self.assertEqual(self.device.lines("revision", "--json")[-1]["revision"], before)

    def order(self, name):
        return [t["title"] for t in self.device.lines("list", "--playlist", name, "--json")[:-1]]


class Fields(OwnerEdits):
    def test_several_fields_are_set_at_once(self):
        self.assertEqual(self.run_well("edit", "First", "title=Anew", "Album_Artist=Somebody",
                                       "artist=", "track=7"), "First: changed\n")
        track = next(t for t in self.tracks() if t["title"] == "Anew")
        self.assertEqual((track["artist"], track["track_number"]), (None, 7))

    def test_a_track_is_named_by_its_id_where_titles_are_not_enough(self):
        self.refused(NOT_FOUND, "edit", "Twin", "title=x", saying=["several tracks", "id"])
        twin = next(t for t in self.tracks() if t["title"] == "Twin" and t["artist"])
        self.run_well("edit", twin["persistent_id"], "title=Elder twin")
        self.assertIn("Elder twin", self.titles())

    def test_nothing_is_set_when_one_of_several_is_wrong(self):
        self.refused(FAILURE, "edit", "First", "title=Anew", "artsit=x", saying=["artsit"])
        self.refused(FAILURE, "edit", "First", "title=Anew", "year=long ago", saying=["year"])
        self.assertIn("First", self.titles())

    def test_what_is_not_there_is_not_found(self):
        self.refused(NOT_FOUND, "edit", "Nobody", "title=x", saying=["Nobody"])
        self.refused(NOT_FOUND, "edit", "-5", "title=x")
        self.refused(NOT_FOUND, "delete", "Nobody")

    def test_what_is_no_assignment_is_a_usage_error(self):
        self.refused(USAGE, "edit", "First")
        self.refused(USAGE, "edit", "First", "title")

    def test_edits_survive_the_next_sync(self):
        self.run_well("edit", "First", "title=Anew")
        self.sync()
        self.sync()
        self.assertIn("Anew", self.titles())

    def test_a_track_that_the_owner_deleted_is_not_sent_again(self):
        self.run_well("delete", "First")
        self.assertNotIn("First", self.titles())
        self.assertEqual(self.sync()[-1]["sent"], 0)
        self.assertNotIn("First", self.titles())
        self.sync("--send-removed")
        self.assertIn("First", self.titles())
        self.assertSound()


class Playlists(OwnerEdits):
    def test_a_playlist_is_made_and_changed_by_position_and_by_name(self):
        self.run_well("playlist", "create", "Road", "First", "Second")
        self.run_well("playlist", "add", "Road", "Third", "First", "--at", "2")
        self.assertEqual(self.order("Road"), ["First", "Third", "First", "Second"])
        self.run_well("playlist", "move", "Road", "4", "1")
        self.assertEqual(self.order("Road"), ["Second", "First", "Third", "First"])
        self.run_well("playlist", "remove", "Road", "First")
        self.assertEqual(self.order("Road"), ["Second", "Third"])
        self.run_well("playlist", "remove", "Road", "--at", "1")
        self.run_well("playlist", "add", "Road", "Second")
        self.assertEqual(self.order("Road"), ["Third", "Second"])
        self.run_well("playlist", "rename", "Road", "Home")
        self.assertEqual(list(self.playlists()), ["Home"])
        self.run_well("playlist", "delete", "Home")
        self.assertEqual(self.playlists(), {})
        self.assertEqual(len(self.tracks()), 5)

    def test_nothing_is_done_when_one_of_several_tracks_is_not_there(self):
        self.refused(NOT_FOUND, "playlist", "create", "Road", "First", "Nobody")
        self.assertEqual(self.playlists(), {})
        self.run_well("playlist", "create", "Road", "First")
        self.refused(NOT_FOUND, "playlist", "add", "Road", "Second", "Twin")
        self.refused(NOT_FOUND, "playlist", "remove", "Road", "First", "Second")
        self.assertEqual(self.order("Road"), ["First"])

    def test_places_that_there_are_not_are_refused(self):
        self.run_well("playlist", "create", "Road", "First")
        self.refused(FAILURE, "playlist", "add", "Road", "Second", "--at", "3", saying=["3"])
        self.refused(FAILURE, "playlist", "remove", "Road", "--at", "2", saying=["2"])
        self.refused(FAILURE, "playlist", "move", "Road", "1", "2", saying=["2"])
        self.refused(USAGE, "playlist", "move", "Road", "0", "1")
        self.refused(USAGE, "playlist", "remove", "Road")

    def test_playlists_of_one_name_are_told_apart_by_their_ids(self):
        for _ in range(2):
            self.run_well("playlist", "create", "Road")
        self.refused(NOT_FOUND, "playlist", "delete", "Road", saying=["several playlists"])
        rows = self.device.lines("list", "--playlists", "--json")[:-1]
        self.run_well("playlist", "delete", rows[0]["persistent_id"])
        self.run_well("playlist", "delete", "Road")

    def test_what_is_not_there_is_not_found(self):
        for words in (("add", "Road", "First"), ("remove", "Road", "--at", "1"),
                      ("move", "Road", "1", "2"), ("rename", "Road", "x"), ("delete", "Road")):
            self.refused(NOT_FOUND, "playlist", *words, saying=["Road"])
        self.refused(NOT_FOUND, "list", "--playlist", "Road", saying=["Road"])

    def test_a_playlist_keeps_a_name(self):
        self.refused(FAILURE, "playlist", "create", "", saying=["name"])
        self.run_well("playlist", "create", "Road")
        self.refused(FAILURE, "playlist", "rename", "Road", "", saying=["name"])


class SmartPlaylists(OwnerEdits):
    def create(self, name, *words):
        self.run_well("playlist", "create", name, "--smart", *words)

    def test_the_device_keeps_one_filled_at_once_and_over_syncs(self):
        self.create("Best", "rating >= 4 and artist is Artist")
        self.assertEqual(self.order("Best"), [])
        self.run_well("rate", "First", "4")
        self.run_well("rate", "Second", "5")
        self.assertEqual(sorted(self.order("Best")), ["First", "Second"])
        self.run_well("edit", "First", "artist=Someone")
        self.assertEqual(self.order("Best"), ["Second"])
        self.song("Fourth.mp3", title="Fourth", TPE1="New")
        self.create("News", "artist is New", "--limit", "2", "by", "title")
        self.assertEqual(self.sync()[-1]["failed"], 0)
        self.assertEqual(self.order("News"), ["Fourth"])
        self.assertEqual(self.order("Best"), ["Second"])

    def test_one_travels_by_its_rules_and_is_listed_with_them(self):
        self.create("Twins", "title is Twin", "--limit", "1", "by", "highest", "artist")
        companion = self.another("companion")
        self.mirror(self.device, companion)
        for device in (self.device, companion):
            listed = [p for p in device.lines("list", "--playlists", "--json")
                      if p.get("name") == "Twins"]
            self.assertEqual([(p["smart"], p["rules"], p["limit"], len(p["tracks"]))
                              for p in listed],
                             [(True, 'title is "Twin"', "1 by highest artist", 1)])
        self.assertMovesNothing(self.device, companion)

    def test_rules_that_are_not_understood_make_none_and_say_where(self):
        self.refused(FAILURE, "playlist", "create", "P", "--smart", "genre is a and raiting = 3",
                     saying=("there is no field \"raiting\"",
                             "  genre is a and raiting = 3\n                 ^"))
        self.refused(USAGE, "playlist", "create", "P", "--limit", "3")


class NoDevice(Flow):
    def test_commands_on_a_device_that_is_not_there_make_none(self):
        for words in (["list"], ["status"], ["rate", "A", "1"], ["played", "A"],
                      ["edit", "A", "title=B"], ["delete", "A"], ["playlist", "create", "P"],
                      ["assets"], ["revision"], ["reset-changes"], ["downloads"], ["watch"],
                      ["download", "http://localhost/a.mp3"], ["cloud", "sign-in"],
                      ["export", "--after", "0", "--output", self.scratch + "/x"]):
            self.assertRefused(self.device.orlith(*words), NOT_FOUND, "no device")
        self.assertFalse(self.exists())

    def exists(self):
        import os
        return os.path.exists(self.device.root)

    def test_what_is_no_command_is_named(self):
        self.assertRefused(self.device.orlith("snyc"), USAGE, "snyc")
        self.assertRefused(self.device.orlith("playlist", "burn", "P"), USAGE, "burn")


if __name__ == "__main__":
    main()
