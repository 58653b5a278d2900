// What becomes of another device's records: rule by rule.
#include "device/korvane/peers.h"

#include <gtest/gtest.h>

#include "device/korvane/owner_edits.h"
#include "tests/device/korvane_import/exchange_fixture.h"

namespace {

using namespace test;

using Edits = std::vector<korvane::FieldEdit>;

class ChangeImport : public ExchangeTest {
protected:
    // One host's collection on a device: sync ids 1 to `count`, global ids 100'001 and so on.
    void fill(TestDevice& device, int count = 2) {
        HostData data;
        for (int id = 1; id <= count; ++id) {
            data.add(id, "Title").set_album("Album");
        }
        device.syncWith(data);
        tick();
    }
    static void set(TestDevice& device, std::int64_t globalID, const std::string& field,
                    const std::string& value) {
        const auto error = korvane::setTrackFields(device.library(), device.pidOf(globalID),
                                                   Edits{{field, value}});
        EXPECT_FALSE(error) << error->description();
    }
    static std::string title(TestDevice& device, std::int64_t globalID = 100'001) {
        return device.text("SELECT title FROM item_extra WHERE global_id = " +
                           std::to_string(globalID));
    }
    static std::int64_t tracks(TestDevice& device) {
        return device.number("SELECT count(*) FROM item");
    }
    void exchange() {
        b.pullFrom(a);
        a.pullFrom(b);
    }
    // A's and B's state are one, and nothing is left to say.
    void expectRest() {
        EXPECT_EQ(a.state(), b.state());
        EXPECT_EQ(a.pullFrom(b) + b.pullFrom(a), 0u);
    }
};

TEST_F(ChangeImport, AForeignTrackGoesByItsDevicesIdAndComesFromSourceTwo) {
    fill(a);
    EXPECT_EQ(b.pullFrom(a), 2u);
    const std::int64_t own = b.pidOf(100'001);
    EXPECT_EQ(b.number("SELECT sources FROM item WHERE item_pid = " + std::to_string(own)), 4);
    EXPECT_EQ(b.number("SELECT sync_id FROM item_store WHERE item_pid = " + std::to_string(own)),
              a.pidOf(100'001));
    EXPECT_NE(own, a.pidOf(100'001));
    EXPECT_EQ(korvane::peersTrackID(b.library(), a.uid(), a.pidOf(100'001)), a.pidOf(100'001));
    exchange();
    expectRest();
}

TEST_F(ChangeImport, TheCoverOfAForeignTrackIsToBePulled) {
    HostData data;
    data.add(1, "One").set_artwork_token("token");
    a.syncWith(data);
    b.pullFrom(a);
    EXPECT_EQ(b.text("SELECT cloud_artwork_token FROM item_artwork"), "token");
    EXPECT_EQ(b.text("SELECT best_artwork_token FROM item_artwork"), "token");
}

TEST_F(ChangeImport, TracksOfOneHostAreNotDoubledAndStayOnesOwn) {
    fill(a);
    fill(b);
    b.pullFrom(a);
    a.pullFrom(b);
    EXPECT_EQ(tracks(a), 2);
    EXPECT_EQ(tracks(b), 2);
    EXPECT_EQ(b.number("SELECT count(*) FROM item WHERE sources & 4 <> 0"), 0);
    EXPECT_EQ(b.number("SELECT count(*) FROM item_store WHERE sync_id IN (1, 2)"), 2);
    EXPECT_EQ(korvane::peersTrackID(b.library(), a.uid(), 1), a.pidOf(100'001));
    expectRest();
}

TEST_F(ChangeImport, FieldsThatChangedOnBothSidesAreBothKept) {
    fill(a);
    b.pullFrom(a);
    set(a, 100'001, "title", "From A");
    tick();
    set(b, 100'001, "genre", "From B");
    set(b, 100'001, "album-artist", "Somebody");
    b.pullFrom(a);
    a.pullFrom(b);
    EXPECT_EQ(title(b), "From A");
    EXPECT_EQ(a.text("SELECT genre FROM item_extra WHERE global_id = 100001"), "From B");
    EXPECT_EQ(a.text("SELECT name FROM album_artist"), "Somebody");
    EXPECT_EQ(a.text("SELECT name FROM album WHERE album_artist_pid <> 0"), "Album");
    expectRest();
}

TEST_F(ChangeImport, TheLaterChangeOfAFieldWinsAndOfEqualMomentsTheLargerValue) {
    fill(a);
    b.pullFrom(a);
    set(a, 100'001, "title", "Z earlier");
    set(a, 100'002, "title", "Larger");
    set(b, 100'002, "title", "Bigger");
    tick();
    set(b, 100'001, "title", "A later");
    a.pullFrom(b);
    b.pullFrom(a);
    EXPECT_EQ(title(a), "A later");
    EXPECT_EQ(title(b, 100'002), "Larger");
    expectRest();
}

TEST_F(ChangeImport, AClockThatIsBehindDoesNotLoseAnEdit) {
    fill(a);
    set(a, 100'001, "title", "First");
    b.pullFrom(a);
    b.system().now -= 100'000;
    set(b, 100'001, "title", "Second");
    a.pullFrom(b);
    EXPECT_EQ(title(a), "Second");
    expectRest();
}

TEST_F(ChangeImport, WhatTheHostChangesLaterWinsOverAnOlderEdit) {
    fill(a);
    fill(b);
    set(a, 100'001, "title", "Owner");
    b.pullFrom(a);
    tick();
    HostData data;
    data.add(1, "Host").set_album("Album");
    b.syncWith(data);
    a.pullFrom(b);
    EXPECT_EQ(title(a), "Host");
    b.pullFrom(a);
    expectRest();
}

TEST_F(ChangeImport, RatingsTakeTheLaterAndPlaysTheLargerOfEachOrigin) {
    fill(a);
    b.pullFrom(a);
    const std::int64_t onA = a.pidOf(100'001), onB = b.pidOf(100'001);
    korvane::rateTrack(a.library(), onA, 5);
    korvane::recordPlay(a.library(), onA);
    korvane::recordPlay(a.library(), onA);
    tick();
    korvane::rateTrack(b.library(), onB, 1);
    korvane::recordPlay(b.library(), onB);
    korvane::setBookmark(b.library(), onB, 77);
    a.pullFrom(b);
    b.pullFrom(a);
    for (TestDevice* device : {&a, &b}) {
        EXPECT_EQ(device->number("SELECT user_rating FROM item_stats ORDER BY item_pid = " +
                                 std::to_string(device->pidOf(100'001)) + " DESC"),
                  20);
        EXPECT_EQ(device->number("SELECT max(play_count) FROM item_stats"), 3);
        EXPECT_EQ(device->number("SELECT max(bookmark_ms) FROM item_stats"), 77);
    }
    expectRest();
}

TEST_F(ChangeImport, AnotherFileIsToComeAgain) {
    HostData data;
    data.add(1, "One").set_content_hash(std::string(16, 'a'));
    a.syncWith(data);
    b.pullFrom(a);
    b.execute("UPDATE item SET base_location_id = 201");
    tick();
    data.tracks[0].set_content_hash(std::string(16, 'b'));
    a.syncWith(data);
    b.pullFrom(a);
    EXPECT_EQ(b.number("SELECT base_location_id FROM item"), 0);
}

TEST_F(ChangeImport, ADeletionIsObeyedEverywhereAndToldToTheHost) {
    fill(a);
    fill(b);
    exchange();
    b.pullFrom(a);
    c.pullFrom(b);
    const std::int64_t saved = b.revision();
    tick();
    korvane::deleteTrackAsOwner(a.library(), a.pidOf(100'001));
    b.pullFrom(a);
    c.pullFrom(b);
    EXPECT_EQ(tracks(b), 1);
    EXPECT_EQ(tracks(c), 1);
    b.library().saveTrackMetadataSinceRevision(saved, 9);
    // The host that lists it once more does not bring it back before it was told.
    EXPECT_EQ(b.number("SELECT count(*) FROM entity_revision WHERE deleted <> 0 AND sync_id = 1"),
              1);
    expectRest();
    settle();
    expectAgreement();
}

TEST_F(ChangeImport, AnIncarnationThatWasBornLaterLivesAndIsSentBack) {
    fill(a);
    b.pullFrom(a);
    const std::int64_t known = b.pidOf(100'001);
    korvane::deleteTrackAsOwner(a.library(), a.pidOf(100'001));
    tick();
    // B's host brings it again, later than A's owner deleted it.
    b.execute("DELETE FROM item WHERE item_pid = " + std::to_string(known));
    fill(b);
    b.pullFrom(a);
    EXPECT_EQ(tracks(b), 2);
    a.pullFrom(b);
    EXPECT_EQ(tracks(a), 2);
    b.pullFrom(a);
    expectRest();
}

TEST_F(ChangeImport, AnOldIncarnationThatArrivesLateStaysDeleted) {
    fill(a);
    b.pullFrom(a);
    c.pullFrom(a);
    tick();
    korvane::deleteTrackAsOwner(a.library(), a.pidOf(100'001));
    b.pullFrom(a);
    // C still has it and tells of it for the first time.
    b.pullFrom(c);
    EXPECT_EQ(tracks(b), 1);
    settle();
    EXPECT_EQ(tracks(c), 1);
    expectAgreement();
}

TEST_F(ChangeImport, ATrackThatReturnsGetsWhatEitherRemembers) {
    fill(a);
    exchange();
    korvane::rateTrack(b.library(), b.pidOf(100'001), 4);
    korvane::deleteTrackAsOwner(b.library(), b.pidOf(100'001));
    a.pullFrom(b);
    EXPECT_EQ(tracks(a), 1);
    tick();
    fill(a);
    EXPECT_EQ(tracks(a), 2);
    b.pullFrom(a);
    a.pullFrom(b);
    EXPECT_EQ(a.number("SELECT max(user_rating) FROM item_stats"), 80);
    b.pullFrom(a);
    expectRest();
}

TEST_F(ChangeImport, PlaylistsMergeNameAndItemsEachAsAWhole) {
    fill(a, 3);
    platform::OptionalError error;
    const std::int64_t onA = korvane::createPlaylist(a.library(), "List", error);
    korvane::addToPlaylist(a.library(), onA, {a.pidOf(100'001), a.pidOf(100'002)});
    b.pullFrom(a);
    const std::int64_t onB =
        b.number("SELECT container_pid FROM container WHERE built_in_kind = 0");
    tick();
    korvane::renamePlaylist(a.library(), onA, "Named on A");
    korvane::addToPlaylist(a.library(), onA, {a.pidOf(100'003)});
    tick();
    korvane::moveInPlaylist(b.library(), onB, 0, 1);
    b.pullFrom(a);
    a.pullFrom(b);
    EXPECT_EQ(b.text("SELECT name FROM container WHERE built_in_kind = 0"), "Named on A");
    EXPECT_EQ(a.number("SELECT group_concat(item_pid) IS NOT NULL AND count(*) = 2"
                       " FROM container_item"),
              1);
    EXPECT_EQ(a.number("SELECT item_pid FROM container_item ORDER BY position LIMIT 1"),
              a.pidOf(100'002));
    expectRest();
    tick();
    korvane::removePlaylist(a.library(), onA);
    b.pullFrom(a);
    EXPECT_EQ(b.number("SELECT count(*) FROM container WHERE built_in_kind = 0"), 0);
    expectRest();
}

TEST_F(ChangeImport, AnEntryWithoutItsTrackKeepsItsPlaceTravelsOnAndFindsItLater) {
    fill(a, 3);
    platform::OptionalError error;
    const std::int64_t list = korvane::createPlaylist(a.library(), "List", error);
    korvane::addToPlaylist(a.library(), list,
                           {a.pidOf(100'003), a.pidOf(100'001), a.pidOf(100'002)});
    ChangeStreams streams = a.changesFor(b);
    const platform::Data tracksLater = *std::exchange(streams.tracks, std::nullopt);
    ASSERT_TRUE(b.import(streams).success);
    EXPECT_EQ(b.number("SELECT count(*) FROM container_item WHERE item_pid = 0"), 3);
    c.pullFrom(b);
    EXPECT_EQ(c.number("SELECT foreign_pid FROM container_item ORDER BY position LIMIT 1"),
              a.pidOf(100'003));
    ASSERT_TRUE(b.importData(tracksLater, std::nullopt).success);
    EXPECT_EQ(b.number("SELECT item_pid FROM container_item ORDER BY position LIMIT 1"),
              b.pidOf(100'003));
    settle();
    expectAgreement();
    EXPECT_EQ(c.number("SELECT count(*) FROM container_item WHERE item_pid = 0"), 0);
}

TEST_F(ChangeImport, AFullExchangeDropsThePeersClaimWithoutTellingAnybody) {
    fill(a, 3);
    b.pullFrom(a);
    c.pullFrom(b);
    a.execute("DELETE FROM item WHERE item_pid = " + std::to_string(a.pidOf(100'003)));
    const ChangeStreams everything = a.exportFor(b, 0, true);
    // As after a restore or a reset here.
    korvane::recordReceivedRevision(b.library(), a.uid(), 0);
    ASSERT_TRUE(b.import(everything, a.uid()).success);
    EXPECT_EQ(tracks(b), 2);
    EXPECT_EQ(b.number("SELECT count(*) FROM entity_revision WHERE deleted <> 0"), 0);
    c.pullFrom(b);
    EXPECT_EQ(tracks(c), 3);
}

TEST_F(ChangeImport, EmptyingACompanionDeletesNothingElsewhere) {
    fill(a);
    b.pullFrom(a);
    ASSERT_TRUE(b.library().removeSource(KV3SourceSync));
    EXPECT_EQ(tracks(b), 0);
    a.pullFrom(b);
    EXPECT_EQ(tracks(a), 2);
    EXPECT_EQ(b.pullFrom(a), 2u);
    expectRest();
}

TEST_F(ChangeImport, ACompanionThatIsRestoredFromAnOlderCopyMissesNothing) {
    fill(a);
    b.pullFrom(a);
    b.backUp();
    tick();
    set(a, 100'001, "title", "After the copy");
    b.pullFrom(a);
    set(b, 100'002, "title", "Lost with the copy here");
    a.pullFrom(b);
    const std::string uid = b.uid();
    b.restoreBackup();
    EXPECT_NE(b.uid(), uid);
    b.pullFrom(a);
    a.pullFrom(b);
    EXPECT_EQ(title(b), "After the copy");
    EXPECT_EQ(title(b, 100'002), "Lost with the copy here");
    EXPECT_EQ(tracks(a), 2);
    EXPECT_EQ(tracks(b), 2);
    b.pullFrom(a);
    expectRest();
}

TEST_F(ChangeImport, AFirstDeviceThatIsRestoredFromAnOlderCopyGetsBackWhatItLost) {
    fill(a);
    b.pullFrom(a);
    a.backUp();
    tick();
    fill(a, 4);
    set(a, 100'001, "title", "After the copy");
    korvane::deleteTrackAsOwner(a.library(), a.pidOf(100'002));
    b.pullFrom(a);
    a.restoreBackup();
    EXPECT_EQ(tracks(a), 2);
    // A full exchange tells of no deletion; what should have gone is named once more and answered.
    exchange();
    exchange();
    EXPECT_EQ(tracks(a), 3);
    EXPECT_EQ(title(a), "After the copy");
    EXPECT_EQ(a.pidOf(100'002), 0);
    expectRest();
}

TEST_F(ChangeImport, WhatADeviceLostByARestoreThatNobodyNoticedIsNotDroppedElsewhere) {
    fill(a);
    a.backUp();
    tick();
    fill(a, 3);
    platform::OptionalError error;
    korvane::createPlaylist(a.library(), "Lost", error);
    b.pullFrom(a);
    const std::string uid = a.uid();
    a.restoreBackupUnnoticed();
    ASSERT_EQ(a.uid(), uid);
    ASSERT_EQ(tracks(a), 2);
    exchange();
    EXPECT_EQ(tracks(b), 3);
    EXPECT_EQ(tracks(a), 3);
    EXPECT_EQ(a.number("SELECT count(*) FROM container WHERE name = 'Lost'"), 1);
    expectRest();
}

TEST_F(ChangeImport, APlaylistOutlivesThatItsDeviceIsRestoredTwice) {
    fill(a);
    a.backUp();
    platform::OptionalError error;
    korvane::createPlaylist(a.library(), "Kept", error);
    b.pullFrom(a);
    a.restoreBackup();
    a.restoreBackup();
    exchange();
    EXPECT_EQ(a.number("SELECT count(*) FROM container WHERE name = 'Kept'"), 1);
    expectRest();
}

TEST_F(ChangeImport, AnImportTellsWhichRevisionsItGave) {
    fill(a);
    const std::int64_t before = b.revision();
    b.pullFrom(a);
    auto revisions = b.service().lastImportRevisions();
    ASSERT_TRUE(revisions);
    EXPECT_EQ(revisions->first, before + 1);
    EXPECT_EQ(revisions->last, b.revision());
    EXPECT_FALSE(revisions->hasNewsForPeer);
    set(b, 100'001, "genre", "B");
    set(a, 100'001, "title", "A");
    b.pullFrom(a);
    revisions = b.service().lastImportRevisions();
    ASSERT_TRUE(revisions);
    EXPECT_TRUE(revisions->hasNewsForPeer);
}

TEST_F(ChangeImport, AnImportTellsWhatItChangedAndNotWhatItOnlyCompared) {
    const auto effects = [](TestDevice& device) {
        const korvane::ImportEffects told = device.service().lastImportEffects();
        return std::vector<std::int64_t>{told.tracksChanged, told.playlistsChanged,
                                         told.tracksDeleted, told.playlistsDeleted};
    };
    const std::vector<std::int64_t> nothing{0, 0, 0, 0};
    fill(a, 3);
    b.pullFrom(a);
    EXPECT_EQ(effects(b), (std::vector<std::int64_t>{3, 0, 0, 0}));
    // All records travel back, and say nothing new.
    EXPECT_EQ(a.pullFrom(b), 3u);
    EXPECT_EQ(effects(a), nothing);
    // What is only to be told again has not changed here.
    set(b, 100'002, "genre", "B");
    tick();
    korvane::deleteTrackAsOwner(a.library(), a.pidOf(100'001));
    set(a, 100'003, "title", "A");
    set(a, 100'002, "title", "A");
    b.pullFrom(a);
    EXPECT_EQ(effects(b), (std::vector<std::int64_t>{2, 0, 1, 0}));
    exchange();
    exchange();
    expectRest();
}

TEST_F(ChangeImport, TheChangeLogForgetsWhatAllPeersHave) {
    fill(a);
    b.pullFrom(a);
    c.pullFrom(a);
    korvane::deleteTrackAsOwner(a.library(), a.pidOf(100'001));
    const auto deletions = [&] {
        return a.number("SELECT count(*) FROM entity_revision WHERE deleted <> 0");
    };
    a.execute("DELETE FROM database_property WHERE key = 'KVSyncClientLastSyncedRevision'");
    b.pullFrom(a);
    EXPECT_EQ(deletions(), 1);
    c.pullFrom(a);
    EXPECT_EQ(deletions(), 0);
}

TEST_F(ChangeImport, TheIdOfAPlaylistIsNoSyncIdOfATrackAlsoOfTheFirst) {
    platform::OptionalError error;
    qorx::Track track;
    track.set_persistent_id(korvane::createPlaylist(b.library(), "List", error));
    ASSERT_TRUE(b.importData(sealedTracks("peer", {track}), std::nullopt).success);
    EXPECT_EQ(b.number("SELECT count(*) FROM item_store WHERE sync_id = 0"), 1);
}

TEST_F(ChangeImport, ASyncIdThatIsUsedHereIsNotGivenAgain) {
    fill(a, 1);
    HostData data;
    data.add(a.pidOf(100'001), "Another track").set_global_id(555);
    b.syncWith(data);
    b.pullFrom(a);
    EXPECT_EQ(b.number("SELECT count(*) FROM item_store WHERE sync_id = " +
                       std::to_string(a.pidOf(100'001))),
              1);
    const std::int64_t own = b.pidOf(100'001);
    EXPECT_EQ(korvane::peersTrackID(b.library(), a.uid(), own), a.pidOf(100'001));
}

}  // namespace
