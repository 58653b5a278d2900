#include "host/plan/planner.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/plan/folder_digest.h"
#include "platform/media_library_properties.h"
#include "tests/host_sync/folder_maker.h"

namespace host {
namespace {

using test::knownFile;
using Action = PlanStep::Action;

class Planner : public testing::Test {
protected:
    Planner() {
        device.libraryUid = "device";
        device.anchor = "a-1";
        device.freeBytes = std::uint64_t{10} << 30;
    }

    KnownFile& add(std::int64_t syncId, const std::string& path,
                   Presence presence = Presence::Present) {
        return state.add(knownFile(syncId, path, presence));
    }

    // The device has everything as it is.
    void deviceHasAll() {
        DeviceState& known = state.devices["device"];
        known.libraryUid = "device";
        known.anchor = "a-1";
        for (const KnownFile& file : state.files) {
            const TrackFingerprints now = trackFingerprints(file, {});
            known.tracks[file.syncId] = {
                now.metadata, now.recommendation, now.owner, file.contentHash, true, false};
        }
    }

    Plan plan() {
        const std::vector<TrackMaterial> materials(state.files.size());
        return makePlan({state, materials, device, options, savedChanges, false});
    }

    FolderState state;
    PlanDevice device;
    PlanOptions options;
    bool savedChanges = false;
};

TEST_F(Planner, ANewDeviceGetsEverything) {
    add(1, "a.mp3");
    add(2, "b.mp3");
    const Plan made = plan();
    EXPECT_EQ(made.syncType, 1u);
    EXPECT_TRUE(made.everything);
    EXPECT_FALSE(made.complete);
    EXPECT_EQ(made.count(Action::Add), 2u);
    EXPECT_EQ(made.bytesToSend, 2000u);
}

TEST_F(Planner, NothingChangedIsSyncTypeZero) {
    add(1, "a.mp3");
    deviceHasAll();
    const Plan made = plan();
    EXPECT_EQ(made.syncType, 0u);
    EXPECT_TRUE(made.steps.empty());
    EXPECT_TRUE(made.tracks.empty());
    EXPECT_EQ(made.unchanged, 1u);
}

TEST_F(Planner, OnlyWhatChangedIsNamedWhileAnchorsAgree) {
    add(1, "a.mp3");
    add(2, "b.mp3");
    deviceHasAll();
    state.files[1].media.tags.album = "New";
    const Plan made = plan();
    ASSERT_EQ(made.tracks.size(), 1u);
    EXPECT_EQ(made.tracks[0].file, 1u);
    EXPECT_EQ(made.count(Action::Update), 1u);
    EXPECT_EQ(made.bytesToSend, 0u) << "the contents are the same";
}

TEST_F(Planner, AnotherAnchorSendsAllRecordsButNoFileTwice) {
    add(1, "a.mp3");
    add(2, "b.mp3");
    deviceHasAll();
    device.anchor = "of another host";
    const Plan made = plan();
    EXPECT_TRUE(made.everything);
    EXPECT_EQ(made.tracks.size(), 2u);
    EXPECT_EQ(made.bytesToSend, 0u);
}

TEST_F(Planner, NewContentsTravelAgain) {
    add(1, "a.mp3");
    deviceHasAll();
    state.files[0].contentHash = ContentHash{9, 9};
    const Plan made = plan();
    EXPECT_EQ(made.count(Action::Update), 1u);
    EXPECT_EQ(made.bytesToSend, 1000u);
}

TEST_F(Planner, KindsThatTheDeviceHasDisabledAreLeftAsTheyAre) {
    add(1, "there.mp3");
    add(2, "changed.mp3");
    add(3, "undelivered.mp3");
    deviceHasAll();
    state.files[1].media.tags.album = "New";
    state.devices["device"].tracks[3].delivered = false;
    add(4, "new.mp3");
    add(5, "film.mp4");
    for (KnownFile& file : state.files)
        file.media.mediaType = KV3MediaTypeMusic;
    state.files[4].media.mediaType = KV3MediaTypeMovie;
    device.disabledKinds = {"Music", "MusicVideo"};
    const Plan made = plan();
    ASSERT_EQ(made.steps.size(), 1u);
    EXPECT_EQ(made.steps[0].path, "film.mp4");
    EXPECT_EQ(made.tracks.size(), 1u);
    EXPECT_EQ(made.disabled, 2u);
    EXPECT_EQ(disabledFiles(state, device), 2u);
    EXPECT_EQ(made.unchanged, 2u);
    EXPECT_TRUE(made.removedTracks.empty());
    device.disabledKinds.clear();
    EXPECT_EQ(plan().disabled, 0u);
    EXPECT_EQ(plan().count(Action::Add), 3u);
}

TEST_F(Planner, AResetNamesWhatIsThereWhateverTheDeviceHasDisabled) {
    add(1, "there.mp3");
    state.files[0].media.mediaType = KV3MediaTypeMusic;
    deviceHasAll();
    options.reset = true;
    device.disabledKinds = {"Music"};
    EXPECT_EQ(plan().tracks.size(), 1u);
}

TEST_F(Planner, AnUndeliveredFileIsNamedAgain) {
    add(1, "a.mp3");
    deviceHasAll();
    state.devices["device"].tracks[1].delivered = false;
    const Plan made = plan();
    EXPECT_EQ(made.tracks.size(), 1u);
    EXPECT_EQ(made.bytesToSend, 1000u);
}

TEST_F(Planner, WithoutDeleteAMissingFileStays) {
    add(1, "a.mp3");
    add(2, "b.mp3", Presence::Missing);
    deviceHasAll();
    const Plan made = plan();
    EXPECT_TRUE(made.removedTracks.empty());
    EXPECT_EQ(made.keptThoughMissing, 1u);
    EXPECT_EQ(made.syncType, 0u);
}

TEST_F(Planner, WithDeleteAMissingFileGoesAndItsBytesAreFreed) {
    add(1, "a.mp3");
    add(2, "b.mp3", Presence::Missing);
    deviceHasAll();
    options.remove = true;
    const Plan made = plan();
    ASSERT_EQ(made.removedTracks.size(), 1u);
    EXPECT_EQ(state.files[made.removedTracks[0]].syncId, 2);
    EXPECT_EQ(made.bytesFreed, 1000u);
    EXPECT_FALSE(made.refusal);
}

TEST_F(Planner, WhatCannotBeReadOrSeenIsNeverRemoved) {
    add(1, "a.mp3");
    add(2, "broken.mp3", Presence::Unreadable);
    add(3, "locked/c.mp3", Presence::Hidden);
    deviceHasAll();
    options.remove = true;
    EXPECT_TRUE(plan().removedTracks.empty());
}

TEST_F(Planner, MoreThanTheUsersLimitIsRefused) {
    add(1, "a.mp3");
    add(2, "b.mp3", Presence::Missing);
    add(3, "c.mp3", Presence::Missing);
    deviceHasAll();
    options.remove = true;
    options.maximumRemovals = 1;
    ASSERT_TRUE(plan().refusal);
    EXPECT_EQ(plan().refusal->reason, PlanRefusal::Reason::DeleteGuard);
    options.maximumRemovals = 2;
    EXPECT_FALSE(plan().refusal);
}

TEST_F(Planner, MoreThanHalfOfALargeLibraryIsRefusedWithoutALimit) {
    for (int i = 1; i <= 12; ++i)
        add(i, std::to_string(i), i <= 6 ? Presence::Missing : Presence::Present);
    deviceHasAll();
    options.remove = true;
    EXPECT_FALSE(plan().refusal);
    state.files[6].presence = Presence::Missing;
    EXPECT_TRUE(plan().refusal);
}

TEST_F(Planner, AnEmptyFolderRemovesNothingWhateverTheLimit) {
    add(1, "a.mp3", Presence::Missing);
    deviceHasAll();
    options.remove = true;
    options.maximumRemovals = 100;
    ASSERT_TRUE(plan().refusal);
    EXPECT_EQ(plan().refusal->reason, PlanRefusal::Reason::DeleteGuard);
}

TEST_F(Planner, WhatAnOwnerRemovedIsWithheldUnlessAskedFor) {
    add(1, "a.mp3").removedByOwner = true;
    EXPECT_EQ(plan().withheld.size(), 1u);
    EXPECT_EQ(plan().count(Action::Add), 0u);
    options.sendRemoved = true;
    EXPECT_EQ(plan().count(Action::Add), 1u);
}

TEST_F(Planner, TooLittleSpaceIsRefusedBeforeAnythingBegins) {
    add(1, "a.mp3").media.stamp.size = 5'000'000;
    device.freeBytes = 5'100'000;
    ASSERT_TRUE(plan().refusal);
    EXPECT_EQ(plan().refusal->reason, PlanRefusal::Reason::NoSpace);
    device.freeBytes = 6'000'000;
    EXPECT_FALSE(plan().refusal);
}

TEST_F(Planner, AResetListsAllThatStays) {
    add(1, "a.mp3");
    add(2, "gone.mp3", Presence::Missing);
    deviceHasAll();
    options.reset = true;
    const Plan made = plan();
    EXPECT_EQ(made.syncType, 2u);
    EXPECT_TRUE(made.complete);
    EXPECT_EQ(made.tracks.size(), 2u);
    EXPECT_FALSE(made.refusal);
}

TEST_F(Planner, AResetThatWouldLoseTracksOnlyTheDeviceKnowsIsRefused) {
    add(1, "a.mp3");
    add(2, "other.mp3", Presence::Missing).knownFromDeviceOnly = true;
    deviceHasAll();
    options.reset = true;
    EXPECT_TRUE(plan().refusal);
    options.remove = true;
    EXPECT_FALSE(plan().refusal);
}

TEST_F(Planner, OwnersChangesAreAcknowledgedByASync) {
    add(1, "a.mp3");
    deviceHasAll();
    savedChanges = true;
    EXPECT_EQ(plan().syncType, 1u);
}

TEST_F(Planner, APlaylistTravelsWhenItDiffersAndGoesOnlyWithDelete) {
    add(1, "a.mp3");
    deviceHasAll();
    KnownPlaylist playlist;
    playlist.syncId = 50;
    playlist.path = "p.m3u8";
    playlist.items = {1};
    playlist.present = true;
    state.playlists.push_back(playlist);
    Plan made = plan();
    EXPECT_EQ(made.count(Action::Playlist), 1u);
    applyImportedPlan(made, state, state.devices["device"]);
    EXPECT_EQ(plan().syncType, 0u);
    state.playlists[0].present = false;
    EXPECT_EQ(plan().syncType, 0u);
    options.remove = true;
    EXPECT_EQ(plan().removedPlaylists.size(), 1u);
}

TEST_F(Planner, AnImportedPlanLeavesNothingToDo) {
    add(1, "a.mp3");
    add(2, "b.mp3");
    applyImportedPlan(plan(), state, state.devices["device"]);
    state.devices["device"].anchor = "a-1";
    for (auto& [id, sent] : state.devices["device"].tracks)
        sent.delivered = true;
    EXPECT_EQ(plan().syncType, 0u);
}

TEST(FolderDigest, DoesNotDependOnTheOrderOfFilesOrPlaylists) {
    FolderState one;
    one.add(knownFile(1, "a"));
    one.add(knownFile(2, "b"));
    one.playlists.resize(2);
    one.playlists[0].syncId = 8;
    one.playlists[1].syncId = 9;
    FolderState other;
    other.add(knownFile(2, "b"));
    other.add(knownFile(1, "a"));
    other.playlists = one.playlists;
    std::ranges::reverse(other.playlists);
    EXPECT_EQ(folderDigest(one, {}, {}, true), folderDigest(other, {}, {}, true));
}

TEST(FolderDigest, ChangesWithEverythingThatTravels) {
    FolderState state;
    KnownFile& file = state.add(knownFile(1, "a"));
    const auto digest = [&] { return folderDigest(state, {}, {}, true); };
    ContentHash before = digest();
    const auto expectChange = [&](const char* what) {
        EXPECT_NE(digest(), before) << what;
        before = digest();
    };
    file.media.tags.genre = "Jazz";
    expectChange("a tag");
    file.presence = Presence::Missing;
    expectChange("presence");
    file.owner.rating = OwnerRating{20, 1};
    expectChange("a rating");
    file.removedByOwner = true;
    expectChange("a removal");
    EXPECT_NE(folderDigest(state, {}, {}, false), before) << "recommendations";
    EXPECT_NE(folderDigest(state, {{"p.m3u", 1, 2, 3, 4}}, {}, true), before) << "a playlist";
    EXPECT_NE(folderDigest(state, {}, {{"c.jpg", 1, 2, 3, 4}}, true), before) << "an image";
}

}  // namespace
}  // namespace host
