// What changed after a revision, as the library tells it.
#include <gmock/gmock.h>

#include <limits>

#include "device/korvane/container.h"
#include "device/korvane/export/change_list.h"
#include "tests/device/korvane_export/export_fixture.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

class ChangeList : public ExportTest {
protected:
    std::vector<std::int64_t> pids(std::int64_t afterRevision,
                                   const platform::Value& mediaTypes = {}) {
        std::vector<std::int64_t> found;
        for (const Change& change :
             changes(afterRevision, KV3RevisionTrackingCodeTrack, mediaTypes))
            found.push_back(change.pid);
        return found;
    }
};

TEST_F(ChangeList, AnEmptyLibraryHasNone) {
    EXPECT_EQ(count(0), 0u);
    EXPECT_THAT(changes(0), IsEmpty());
    EXPECT_EQ(count(0, KV3RevisionTrackingCodeContainer), 0u);
    EXPECT_EQ(count(0, 5), 0u);
}

TEST_F(ChangeList, EntriesComeOnceEachInTheOrderOfTheirLatestChange) {
    for (const std::int64_t pid : {30, 10, 20})
        add({.pid = pid});
    const auto first = changes(0);
    ASSERT_EQ(first.size(), 3u);
    EXPECT_LT(first[0].revision, first[1].revision);
    EXPECT_LT(first[1].revision, first[2].revision);
    EXPECT_THAT(pids(0), ElementsAre(30, 10, 20));
    execute("UPDATE item_extra SET title = 'x' WHERE item_pid = 30");
    execute("UPDATE item_extra SET title = 'y' WHERE item_pid = 30");
    EXPECT_THAT(pids(0), ElementsAre(10, 20, 30));
    EXPECT_EQ(count(0), 3u);
    EXPECT_EQ(changes(0).back().revision, library->currentRevision());
}

TEST_F(ChangeList, OnlyWhatIsAfterTheRevisionIsTold) {
    add({.pid = 1});
    const auto between = library->currentRevision();
    add({.pid = 2});
    EXPECT_THAT(pids(between), ElementsAre(2));
    EXPECT_EQ(count(between), 1u);
    EXPECT_THAT(pids(library->currentRevision()), IsEmpty());
    EXPECT_THAT(pids(std::numeric_limits<std::int64_t>::max()), IsEmpty());
    EXPECT_THAT(pids(std::numeric_limits<std::int64_t>::min()), ElementsAre(1, 2));
}

TEST_F(ChangeList, IdsMayBeAnyNumber) {
    constexpr auto Smallest = std::numeric_limits<std::int64_t>::min();
    constexpr auto Largest = std::numeric_limits<std::int64_t>::max();
    for (const std::int64_t pid : {Smallest, std::int64_t{-1}, Largest})
        add({.pid = pid});
    EXPECT_THAT(pids(0), ElementsAre(Smallest, -1, Largest));
}

TEST_F(ChangeList, DeletionsThatTravelAreToldAndOthersAreForgotten) {
    addTracks(3);
    deleteTrack(1000);
    execute("DELETE FROM item WHERE item_pid = 2000");
    const auto found = changes(0);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].pid, 3000);
    EXPECT_FALSE(found[0].isDeletion);
    EXPECT_EQ(found[1], (Change{1000, library->currentRevision(), true}));
    EXPECT_EQ(count(0), 2u);
}

TEST_F(ChangeList, ALowerRevisionTypeLeavesDeletionsOut) {
    addTracks(2);
    deleteTrack(1000);
    EXPECT_EQ(library->countOfChangedPersistentIdsAfterRevision(0, 0, 0), 1u);
    EXPECT_EQ(library->countOfChangedPersistentIdsAfterRevision(0, 0, -1), 0u);
}

TEST_F(ChangeList, PlaylistsAreListedApartFromTracks) {
    addTracks(2);
    addPlaylist(7, "One");
    addPlaylist(8, "Two");
    deletePlaylist(7);
    const auto found = changes(0, KV3RevisionTrackingCodeContainer);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].pid, 8);
    EXPECT_EQ(found[1].pid, 7);
    EXPECT_TRUE(found[1].isDeletion);
    EXPECT_EQ(count(0, KV3RevisionTrackingCodeContainer), 2u);
    EXPECT_EQ(count(0), 2u);
}

TEST_F(ChangeList, MediaTypesAreANumberOrAnArrayOfNumbers) {
    add({.pid = 1, .mediaType = KV3MediaTypeMusic});
    add({.pid = 2, .mediaType = KV3MediaTypePodcast});
    add({.pid = 3, .mediaType = KV3MediaTypeMovie});
    EXPECT_THAT(pids(0, {}), ElementsAre(1, 2, 3));
    EXPECT_THAT(pids(0, KV3MediaTypeMusic), ElementsAre(1));
    EXPECT_THAT(pids(0, KV3MediaTypeMusic | KV3MediaTypeMovie), ElementsAre(1, 3));
    EXPECT_THAT(pids(0, platform::Array{KV3MediaTypePodcast, KV3MediaTypeMovie}),
                ElementsAre(2, 3));
    EXPECT_THAT(pids(0, platform::Array{"music", KV3MediaTypePodcast, platform::Value()}),
                ElementsAre(2));
    EXPECT_THAT(pids(0, 0), IsEmpty());
    EXPECT_THAT(pids(0, platform::Array{}), IsEmpty());
    EXPECT_THAT(pids(0, -1), ElementsAre(1, 2, 3));
    EXPECT_THAT(pids(0, "music"), ElementsAre(1, 2, 3));
}

TEST_F(ChangeList, ADeletionIsFilteredByTheMediaTypeThatItsTrackHad) {
    add({.pid = 1, .mediaType = KV3MediaTypeMusic});
    add({.pid = 2, .mediaType = KV3MediaTypePodcast});
    deleteTrack(1);
    deleteTrack(2);
    EXPECT_THAT(pids(0, KV3MediaTypePodcast), ElementsAre(2));
    EXPECT_THAT(pids(0, KV3MediaTypeMovie), IsEmpty());
}

TEST_F(ChangeList, TheBlockMayStopTheEnumeration) {
    addTracks(5);
    int calls = 0;
    library->enumeratePersistentIDsAfterRevision(
        0, KV3RevisionTrackingCodeTrack, KV3RevisionTypeAll,
        [&](std::int64_t, std::int64_t, std::int64_t, std::int64_t, bool& stop) {
            stop = ++calls == 2;
        });
    EXPECT_EQ(calls, 2);
}

TEST_F(ChangeList, TheBlockMayChangeTheLibraryAndSeesWhatItChanged) {
    addTracks(5);
    std::vector<std::int64_t> found;
    library->enumeratePersistentIDsAfterRevision(
        0, KV3RevisionTrackingCodeTrack, KV3RevisionTypeAll,
        [&](std::int64_t pid, std::int64_t, std::int64_t, std::int64_t, bool&) {
            found.push_back(pid);
            deleteTrack(5000 - pid);
            add({.pid = 100'000 + pid});
            EXPECT_EQ(number("SELECT count(*) FROM item WHERE item_pid > 100000"),
                      static_cast<std::int64_t>(found.size()));
        });
    EXPECT_THAT(found, ElementsAre(1000, 2000, 3000, 4000, 5000));
}

TEST_F(ChangeList, ABuiltInPlaylistIsKnownAlsoWhenItHasBeenDeleted) {
    const auto isBuiltIn = [&](std::int64_t pid) {
        return korvane::Container(pid, library).isBuiltInSmartPlaylist();
    };
    addPlaylist(7, "Top Rated", 3);
    addPlaylist(8, "Mine");
    EXPECT_TRUE(isBuiltIn(7));
    EXPECT_FALSE(isBuiltIn(8));
    EXPECT_FALSE(isBuiltIn(9));
    EXPECT_FALSE(isBuiltIn(0));
    deletePlaylist(7);
    deletePlaylist(8);
    EXPECT_TRUE(isBuiltIn(7));
    EXPECT_FALSE(isBuiltIn(8));
}

TEST(ListedChange, KeepsIdRevisionAndDeletion) {
    constexpr auto Smallest = std::numeric_limits<std::int64_t>::min();
    const korvane::ListedChange change(Smallest, 9, true);
    EXPECT_EQ(change.pid(), Smallest);
    EXPECT_EQ(change.revision(), 9);
    EXPECT_TRUE(change.isDeletion());
    EXPECT_FALSE(korvane::ListedChange(1, 9, false).isDeletion());
    EXPECT_EQ(sizeof change, 16u);
}

}  // namespace
