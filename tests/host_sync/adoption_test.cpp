#include "host/plan/adoption.h"

#include <gtest/gtest.h>

#include "tests/host_sync/folder_maker.h"

namespace host {
namespace {

using test::knownFile;

DeviceTrack deviceTrack(std::int64_t syncId, const std::string& path) {
    DeviceTrack track;
    track.persistentId = syncId * 10;
    track.syncId = syncId;
    track.globalId = syncId + 500;
    track.title = path;
    track.mediaType = 8;
    track.size = 1000;
    track.contentHash = ContentHash{7, static_cast<std::uint8_t>(syncId)};
    track.hostPath = path;
    track.hasFile = true;
    track.fromHost = true;
    return track;
}

class Adoption : public testing::Test {
protected:
    DeviceState& adopt(const std::vector<DeviceTrack>& tracks) {
        return adoptTracks(
            "device", {tracks, [this](const FileStamp& s) { return contents[s.path]; }}, state);
    }

    FolderState state;
    std::map<std::string, std::optional<ContentHash>> contents;
};

TEST_F(Adoption, AFileTakesTheIdentityUnderWhichTheDeviceHasIt) {
    state.add(knownFile(1, "a.mp3")).contentHash.reset();
    const DeviceState& device = adopt({deviceTrack(70, "a.mp3")});
    EXPECT_EQ(state.files[0].syncId, 70);
    EXPECT_EQ(state.files[0].globalId, 570);
    EXPECT_EQ(state.fileWithSyncId(1), nullptr);
    ASSERT_TRUE(device.tracks.contains(70));
    EXPECT_TRUE(device.tracks.at(70).delivered);
    EXPECT_TRUE(device.tracks.at(70).assumedCurrent);
}

TEST_F(Adoption, AMovedFileIsFoundByItsContents) {
    state.add(knownFile(1, "elsewhere/b.mp3")).contentHash.reset();
    contents["elsewhere/b.mp3"] = ContentHash{7, 70};
    adopt({deviceTrack(70, "a.mp3")});
    EXPECT_EQ(state.files[0].syncId, 70);
}

TEST_F(Adoption, ATrackThatNoFileMatchesIsRememberedAsTheDevicesOnly) {
    state.add(knownFile(1, "a.mp3"));
    adopt({deviceTrack(70, "other.mp3")});
    ASSERT_EQ(state.files.size(), 2u);
    EXPECT_TRUE(state.files[1].knownFromDeviceOnly);
    EXPECT_EQ(state.files[1].presence, Presence::Missing);
}

TEST_F(Adoption, AFileThatAnotherDeviceHasKeepsItsIdentity) {
    state.add(knownFile(1, "a.mp3"));
    state.devices["another"].tracks[1] = {};
    adopt({deviceTrack(70, "a.mp3")});
    EXPECT_EQ(state.files[0].syncId, 1);
}

TEST_F(Adoption, WhatTheDeviceLostIsForgotten) {
    state.add(knownFile(1, "a.mp3"));
    state.devices["device"].tracks[1].delivered = true;
    EXPECT_TRUE(adopt({}).tracks.empty());
}

TEST_F(Adoption, APlaylistIsRecognisedByName) {
    KnownPlaylist playlist;
    playlist.syncId = 5;
    playlist.name = "Road";
    playlist.path = "Road.m3u8";
    playlist.present = true;
    state.playlists.push_back(playlist);
    DeviceState& device = adopt({});
    adoptPlaylists({{80, 580, "Road", true}, {81, 581, "Mine", false}}, state, device);
    EXPECT_EQ(state.playlists[0].syncId, 80);
    EXPECT_EQ(device.playlists.size(), 1u);
}

}  // namespace
}  // namespace host
