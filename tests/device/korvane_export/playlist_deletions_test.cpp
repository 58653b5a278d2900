// Deletions of playlists, lined up so that each exchange carries one.
#include "device/korvane/export/playlist_deletions.h"

#include <gmock/gmock.h>

#include "common/sqlite/database.h"
#include "tests/device/korvane_export/export_fixture.h"

namespace {

using namespace test;
using common::Database;
using korvane::lineUpPlaylistDeletions;
using testing::ElementsAre;
using testing::IsEmpty;

class PlaylistDeletions : public ExportTest {
protected:
    void SetUp() override {
        ExportTest::SetUp();
        for (const std::int64_t pid : {1, 2, 3, 4})
            addPlaylist(pid, "Playlist");
    }
    std::vector<std::int64_t> lineUp(std::int64_t afterRevision) {
        deletions = *lineUpPlaylistDeletions(*library, afterRevision);
        std::vector<std::int64_t> pids;
        for (const korvane::PlaylistDeletion& deletion : deletions)
            pids.push_back(deletion.persistentID);
        return pids;
    }
    std::vector<Change> playlists(std::int64_t afterRevision) {
        return changes(afterRevision, KV3RevisionTrackingCodeContainer);
    }

    std::vector<korvane::PlaylistDeletion> deletions;
};

TEST_F(PlaylistDeletions, WithoutAnyNothingHappens) {
    const auto before = revision();
    EXPECT_THAT(lineUp(0), IsEmpty());
    EXPECT_EQ(revision(), before);
}

TEST_F(PlaylistDeletions, ASingleOneStaysWhereItIs) {
    deletePlaylist(2);
    addPlaylist(9, "Later");
    const auto before = revision();
    EXPECT_THAT(lineUp(0), ElementsAre(2));
    EXPECT_EQ(deletions.front().revision, before - 1);
    EXPECT_EQ(revision(), before);
}

TEST_F(PlaylistDeletions, SeveralComeAboveEveryOtherChangeInTheirOrder) {
    deletePlaylist(3);
    deletePlaylist(1);
    addTracks(2);
    addPlaylist(9, "Later");
    const auto before = revision();
    EXPECT_THAT(lineUp(0), ElementsAre(3, 1));
    EXPECT_EQ(deletions[0].revision, before + 1);
    EXPECT_EQ(deletions[1].revision, before + 2);
    EXPECT_EQ(revision(), before + 2);
    for (const korvane::PlaylistDeletion& deletion : deletions) {
        const auto told = playlists(deletion.revision - 1);
        ASSERT_FALSE(told.empty());
        EXPECT_EQ(told.front(), (Change{deletion.persistentID, deletion.revision, true}));
        EXPECT_TRUE(changes(deletion.revision - 1).empty());
    }
}

TEST_F(PlaylistDeletions, OnceLinedUpTheyStayThereWhoeverAsks) {
    deletePlaylist(3);
    deletePlaylist(1);
    addPlaylist(9, "Later");
    lineUp(0);
    const auto first = deletions;
    const auto after = revision();
    EXPECT_THAT(lineUp(0), ElementsAre(3, 1));
    EXPECT_EQ(deletions, first);
    EXPECT_THAT(lineUp(first[0].revision), ElementsAre(1));
    EXPECT_THAT(lineUp(first[1].revision), IsEmpty());
    EXPECT_EQ(revision(), after);
}

TEST_F(PlaylistDeletions, ThoseThatAreLastAlreadyStayWhereTheyAre) {
    addPlaylist(9, "Earlier");
    deletePlaylist(3);
    deletePlaylist(1);
    const auto before = revision();
    EXPECT_THAT(lineUp(0), ElementsAre(3, 1));
    EXPECT_EQ(revision(), before);
}

TEST_F(PlaylistDeletions, OnesThatThePeerHasAreLeftAlone) {
    deletePlaylist(3);
    const auto acknowledged = revision();
    deletePlaylist(1);
    deletePlaylist(2);
    addPlaylist(9, "Later");
    EXPECT_THAT(lineUp(acknowledged), ElementsAre(1, 2));
    EXPECT_EQ(playlists(0).front().pid, 4);
    EXPECT_EQ(playlists(acknowledged - 1).front().pid, 3);
}

TEST_F(PlaylistDeletions, BuiltInOnesAreNotExportedAndNotLinedUp) {
    addPlaylist(20, "Top Rated", 3);
    deletePlaylist(20);
    deletePlaylist(1);
    deletePlaylist(2);
    EXPECT_THAT(lineUp(0), ElementsAre(1, 2));
}

TEST_F(PlaylistDeletions, KeepWhatTheyTellOfTheirPlaylist) {
    deletePlaylist(3);
    deletePlaylist(1);
    addPlaylist(9, "Later");
    const Exported before = exportAll();
    lineUp(0);
    const Exported after = exportAll();
    ASSERT_EQ(after.deletions.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i)
        EXPECT_EQ(after.deletions[i].SerializeAsString(), before.deletions[i].SerializeAsString());
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE deleted <> 0 AND origin = ''"), 2);
}

TEST_F(PlaylistDeletions, ADatabaseThatFailsIsTold) {
    Database(files.realPath(korvane::DefaultDatabasePath), {.create = false})
        .execute("DROP TABLE entity_revision");
    EXPECT_FALSE(lineUpPlaylistDeletions(*library, 0));
}

}  // namespace
