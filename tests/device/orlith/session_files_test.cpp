// What preparation saved, and the files that a host leaves for its import.
#include "tests/device/orlith/session_test.h"

namespace orlith::testing {
namespace {

constexpr char SyncMedia[] = "/var/mobile/Media/Tessel_Control/Sync/Media/";

using SessionFiles = SessionTest;

TEST_F(SessionFiles, WhatPreparationSavedIsStreamed) {
    const std::string metadata(600000, 'm');
    device.write("/var/saved/metadata", metadata);
    device.write("/var/saved/playlists", "p");
    device.access.saved = {{false, "/var/saved/metadata"}, {true, "/var/saved/playlists"}};
    Host host(*stub);
    ASSERT_TRUE(host.open().has_opened());
    link::FromHost message;
    message.mutable_prepare();
    host.send(message);
    EXPECT_EQ(host.receive().prepared().covered_revision(), 5);
    std::map<link::SavedChunk::Kind, std::string> received;
    for (;;) {
        const link::FromDevice answer = host.receive();
        ASSERT_TRUE(answer.has_saved());
        received[answer.saved().kind()] += answer.saved().data();
        if (answer.saved().last())
            break;
    }
    EXPECT_EQ(received[link::SavedChunk::METADATA], metadata);
    EXPECT_EQ(received[link::SavedChunk::PLAYLISTS], "p");
}

TEST_F(SessionFiles, HostDataIsRegisteredForOneSession) {
    std::string seen;
    device.client.onCall = [&](const std::string& call) {
        if (call.starts_with("reconcile"))
            seen = device.read(device.access.registered);
    };
    Host host(*stub);
    host.prepare();
    const std::string data(300000, 'd');
    EXPECT_TRUE(host.sendFile(link::SessionFile::HOST_DATA, "", data).has_file_received());
    EXPECT_TRUE(device.exists(std::string(SyncMedia) + "HostData.qorx"));
    ASSERT_TRUE(host.reconcile().reconciled().success());
    EXPECT_EQ(seen, data);
    EXPECT_TRUE(host.end().has_ended());
    EXPECT_EQ(device.access.registered, "");
    EXPECT_FALSE(device.exists(std::string(SyncMedia) + "HostData.qorx"));
}

TEST_F(SessionFiles, HostDataOfAnAbandonedSessionIsGone) {
    {
        Host host(*stub);
        host.prepare();
        EXPECT_TRUE(host.sendFile(link::SessionFile::HOST_DATA, "", "d").has_file_received());
        host.breakOff();
    }
    waitUntilFree();
    EXPECT_EQ(device.access.registered, "");
    EXPECT_FALSE(device.exists(std::string(SyncMedia) + "HostData.qorx"));
}

TEST_F(SessionFiles, SettingsFilesArriveUnderTheirNames) {
    Host host(*stub);
    host.prepare();
    const auto answer = host.sendFile(link::SessionFile::SETTINGS, "Sync_1.plist", "<plist/>");
    EXPECT_EQ(answer.file_received().name(), "Sync_1.plist");
    EXPECT_TRUE(host.sendFile(link::SessionFile::SETTINGS, "Sync_2.plist", "").has_file_received());
    EXPECT_EQ(device.read(std::string(SyncMedia) + "Sync_1.plist"), "<plist/>");
    EXPECT_EQ(device.filesBelow(SyncMedia),
              (std::vector<std::string>{"Sync_1.plist", "Sync_2.plist"}));
}

TEST_F(SessionFiles, ANameThatIsNoneOfASettingsFileEndsTheSession) {
    for (const std::string& name :
         {std::string("../../evil.plist"), std::string("Sync_/../../x.plist"), std::string("/abs"),
          std::string("Sync_x\0.plist", 13), std::string("Sync_.txt"), std::string()}) {
        Host host(*stub);
        host.prepare();
        EXPECT_TRUE(host.sendFile(link::SessionFile::SETTINGS, name, "x").has_failed()) << name;
        host.leave();
        waitUntilFree();
    }
    EXPECT_EQ(device.filesBelow(SyncMedia), std::vector<std::string>());
}

TEST_F(SessionFiles, AnAnnouncedSizeIsALimit) {
    for (const std::uint64_t size : {std::uint64_t{1}, std::uint64_t{100}, UINT64_MAX}) {
        Host host(*stub);
        host.prepare();
        link::FromHost message;
        message.mutable_file()->set_kind(link::SessionFile::SETTINGS);
        message.mutable_file()->set_name("Sync_1.plist");
        message.mutable_file()->set_size(size);
        host.send(message);
        host.sendChunks("ten bytes.");
        EXPECT_TRUE(host.receive().has_failed()) << size;
        host.leave();
        waitUntilFree();
    }
    EXPECT_EQ(device.filesBelow(SyncMedia), std::vector<std::string>());
}

TEST_F(SessionFiles, RecommendationSettingsReachThePlugin) {
    Host host(*stub);
    host.beginTransfers();
    link::FromHost message;
    message.mutable_kenning_configuration()->set_plist(
        "<plist version=\"1.0\"><dict><key>version</key><integer>3</integer></dict></plist>");
    host.send(message);
    EXPECT_TRUE(host.receive().has_kenning_configuration_stored());
    EXPECT_EQ(device.client.calls().back(), "kenning config 3");
    message.mutable_kenning_configuration()->set_plist("no property list");
    host.send(message);
    EXPECT_TRUE(host.receive().has_failed());
}

TEST_F(SessionFiles, AResetMovesMediaAsideAndAFailedOneBringsItBack) {
    addTrack(5);
    addTrack(6);
    const std::string music = "/var/mobile/Media/Tessel_Control/Music/F05/ABCD.mp3";
    const std::string elsewhere = "/var/mobile/Media/Purchases/EFGH.mp3";
    device.tracks.all[0].path = music;
    device.tracks.all[1].path = elsewhere;
    device.write(music, "music");
    device.write(elsewhere, "bought");
    device.client.reconcileFails = true;
    bool wasAside = false;
    bool elsewhereStayed = false;
    device.client.onCall = [&](const std::string& call) {
        if (!call.starts_with("reconcile"))
            return;
        wasAside =
            !device.exists(music) && device.exists(
                                         "/var/mobile/Media/Stagehold/tmp/Tessel_Control/Music/F05/"
                                         "ABCD.mp3");
        elsewhereStayed = device.exists(elsewhere);
    };
    Host host(*stub);
    host.prepare();
    EXPECT_FALSE(host.reconcile(ORSyncReset).reconciled().success());
    EXPECT_TRUE(wasAside);
    EXPECT_TRUE(elsewhereStayed);
    EXPECT_EQ(device.read(music), "music");
    EXPECT_TRUE(device.exists("/var/mobile/Media/Stagehold/tmp"));
    EXPECT_TRUE(device.filesBelow("/var/mobile/Media/Stagehold/tmp").empty());
}

TEST_F(SessionFiles, MediaOfAnAbandonedResetIsBackBeforeTheNextSession) {
    device.write("/var/mobile/Media/Stagehold/tmp/Podcasts/ABCD.mp3", "podcast");
    device.write("/var/mobile/Media/Stagehold/tmp/Tessel_Control/Music/F01/KEEP.mp3", "old");
    device.write("/var/mobile/Media/Tessel_Control/Music/F01/KEEP.mp3", "new");
    device.write("/var/mobile/Media/Stagehold/Media/Artwork/5", "left over");
    device.write(std::string(SyncMedia) + "HostData.qorx", "left over");
    Host host(*stub);
    const link::FromDevice answer = host.open();
    EXPECT_EQ(answer.opened().notices_size(), 2);
    EXPECT_EQ(device.read("/var/mobile/Media/Podcasts/ABCD.mp3"), "podcast");
    EXPECT_EQ(device.read("/var/mobile/Media/Tessel_Control/Music/F01/KEEP.mp3"), "new");
    EXPECT_TRUE(device.filesBelow("/var/mobile/Media/Stagehold").empty());
    EXPECT_TRUE(device.exists("/var/mobile/Media/Stagehold/tmp"));
    EXPECT_FALSE(device.exists(std::string(SyncMedia) + "HostData.qorx"));
}

}  // namespace
}  // namespace orlith::testing
