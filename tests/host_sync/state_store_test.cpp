#include "host/state/state_store.h"

#include <gtest/gtest.h>

#include <fstream>

#include "common/sqlite/database.h"
#include "host/state/failed_items.h"
#include "host/state/schema.h"
#include "tests/host_sync/folder_maker.h"
#include "tests/support/temporary_directory.h"

namespace host {
namespace {

using test::knownFile;
using ::test::TemporaryDirectory;

class State : public testing::Test {
protected:
    platform::OptionalError open(StateStore& store, FolderState& state) {
        IdentitySource ids(7);
        return store.open(directory.path(), "/music", state, ids);
    }

    std::string file() const {
        for (const auto& entry : std::filesystem::directory_iterator(directory.path()))
            if (entry.path().extension() == ".sqlite")
                return entry.path();
        return {};
    }

    TemporaryDirectory directory;
};

TEST_F(State, AllOfItComesBack) {
    std::string uid;
    {
        StateStore store;
        FolderState state;
        ASSERT_FALSE(open(store, state));
        uid = state.hostUid;
        EXPECT_EQ(uid.size(), 32u);
        KnownFile file = knownFile(11, "x\xff.mp3");
        file.changed = true;
        file.owner.rating = OwnerRating{80, 123};
        file.owner.plays["device"] = {3, 1, 5, 6};
        file.failure = "why not";
        file.removedByOwner = true;
        state.add(file);
        KnownPlaylist playlist;
        playlist.syncId = 90;
        playlist.globalId = 91;
        playlist.path = "p.m3u8";
        playlist.name = "P";
        playlist.items = {11, -4};
        playlist.changed = true;
        state.playlists.push_back(playlist);
        DeviceState& device = state.devices["device"];
        device.libraryUid = "device";
        device.anchor = "a-9";
        device.digest = {1, 2};
        device.tracks[11] = {{3, 4}, {5, 6}, {7, 8}, ContentHash{9, 10}, true, false};
        device.playlists[90] = {11, 12};
        device.failed = {{"x\xff.mp3", "why not", "do this"}, {"b.m3u", "", ""}};
        state.anchorCounter = 9;
        ASSERT_FALSE(store.save(state));
        ASSERT_FALSE(store.saveDevice(state, device));
        EXPECT_FALSE(state.files[0].changed);
    }
    StateStore store;
    FolderState state;
    ASSERT_FALSE(open(store, state));
    EXPECT_EQ(state.hostUid, uid);
    EXPECT_EQ(state.anchorCounter, 9u);
    ASSERT_EQ(state.files.size(), 1u);
    const KnownFile& file = state.files[0];
    EXPECT_EQ(file.media.stamp.path, "x\xff.mp3");
    EXPECT_EQ(file.owner.rating, (OwnerRating{80, 123}));
    EXPECT_EQ(file.owner.plays.at("device").plays, 3u);
    EXPECT_EQ(file.failure, "why not");
    EXPECT_TRUE(file.removedByOwner);
    EXPECT_EQ(state.playlists.at(0).items, (std::vector<std::int64_t>{11, -4}));
    const DeviceState& device = state.devices.at("device");
    EXPECT_EQ(device.anchor, "a-9");
    EXPECT_EQ(device.digest, (ContentHash{1, 2}));
    EXPECT_EQ(device.tracks.at(11),
              (SentTrack{{3, 4}, {5, 6}, {7, 8}, ContentHash{9, 10}, true, false}));
    EXPECT_EQ(device.playlists.at(90), (ContentHash{11, 12}));
    EXPECT_EQ(device.failed,
              (std::vector<FailedItem>{{"x\xff.mp3", "why not", "do this"}, {"b.m3u", "", ""}}));
}

TEST_F(State, TellsOfADevicesFailuresThoseThatAreStillInTheFolder) {
    const std::string folder = std::filesystem::canonical(directory.path()) / "music";
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/there.mp3") << "x";
    {
        StateStore store;
        FolderState state;
        IdentitySource ids(7);
        ASSERT_FALSE(store.open(directory.path(), folder, state, ids));
        DeviceState& device = state.devices["device"];
        device.libraryUid = "device";
        device.failed = {{"there.mp3", "why", "step"}, {"gone.mp3", "why", "step"}};
        ASSERT_FALSE(store.saveDevice(state, device));
    }
    std::ofstream(directory.path() + "/other.sqlite") << "no database";
    const std::vector<FolderFailures> failures = failuresOfDevice(directory.path(), "device");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].folder, folder);
    EXPECT_EQ(failures[0].items, (std::vector<FailedItem>{{"there.mp3", "why", "step"}}));
    EXPECT_TRUE(failuresOfDevice(directory.path(), "another").empty());
    EXPECT_TRUE(failuresOfDevice("/nowhere", "device").empty());
}

TEST_F(State, WhatADeviceNoLongerHasIsForgottenOnDiskToo) {
    {
        StateStore store;
        FolderState state;
        ASSERT_FALSE(open(store, state));
        DeviceState& device = state.devices["device"];
        device.libraryUid = "device";
        device.tracks[1].delivered = true;
        ASSERT_FALSE(store.saveDevice(state, device));
        device.tracks.clear();
        ASSERT_FALSE(store.saveDevice(state, device));
    }
    StateStore store;
    FolderState state;
    ASSERT_FALSE(open(store, state));
    EXPECT_TRUE(state.devices.at("device").tracks.empty());
}

TEST_F(State, ASecondRunOfTheSameFolderIsLockedOut) {
    StateStore first;
    FolderState state;
    ASSERT_FALSE(open(first, state));
    StateStore second;
    const auto error = open(second, state);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, StateErrorLocked);
    EXPECT_NE(error->text().find(std::to_string(::getpid())), std::string::npos);
}

TEST_F(State, ADamagedStateIsSetAsideAndAnEmptyOneTakesItsPlace) {
    {
        StateStore store;
        FolderState state;
        ASSERT_FALSE(open(store, state));
    }
    std::ofstream(file(), std::ios::binary) << std::string(20'000, 'x');
    StateStore store;
    FolderState state;
    ASSERT_FALSE(open(store, state));
    EXPECT_TRUE(state.files.empty());
    EXPECT_TRUE(std::filesystem::exists(store.setAside()));
}

TEST_F(State, AStateOfANewerVersionIsRefusedAndLeftAlone) {
    {
        StateStore store;
        FolderState state;
        ASSERT_FALSE(open(store, state));
    }
    {
        common::Database database(file(), {});
        database.executeScript("PRAGMA user_version = 999");
    }
    StateStore store;
    FolderState state;
    const auto error = open(store, state);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, StateErrorNewer);
}

TEST_F(State, TablesAreMadeFromNothingAndMigratingTwiceIsHarmless) {
    common::Database database(directory.path() + "/fresh.sqlite", {});
    EXPECT_TRUE(migrateState(database));
    EXPECT_TRUE(migrateState(database));
    EXPECT_EQ(database.int64("SELECT count(*) FROM files"), 0);
}

TEST(Identities, ArePositiveAndNeverTwice) {
    IdentitySource ids(1);
    std::unordered_set<std::int64_t> seen;
    for (int i = 0; i < 10'000; ++i) {
        const std::int64_t id = ids.next();
        EXPECT_GT(id, 0);
        EXPECT_TRUE(seen.insert(id).second);
    }
}

}  // namespace
}  // namespace host
