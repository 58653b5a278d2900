// How assets arrive, are checked, filed and answered.
#include <cerrno>

#include "tests/device/orlith/session_test.h"

namespace orlith::testing {
namespace {

constexpr char Media[] = "/var/mobile/Media/";

class SessionTransfers : public SessionTest {
protected:
    std::string pathOf(std::int64_t syncID) {
        return device.tracks.get(syncID).path.value_or("none");
    }
    std::vector<std::string> music() {
        return device.filesBelow(std::string(Media) + "Tessel_Control/Music");
    }
};

TEST_F(SessionTransfers, AFileLiesInTheFolderOfItsIdsRemainder) {
    addTrack(105);
    addTrack(-7);
    addTrack(INT64_MIN);
    addTrack(9);
    device.tracks.all[3].assetType = "Podcast";
    Host host(*stub);
    ASSERT_EQ(host.beginTransfers().size(), 4u);
    const std::string bytes(700000, 'm');
    EXPECT_TRUE(host.transferFile("105", bytes).asset_result().success());
    EXPECT_TRUE(host.transferFile("-7", "b").asset_result().success());
    EXPECT_TRUE(host.transferFile("-9223372036854775808", "c").asset_result().success());
    EXPECT_TRUE(host.transferFile("9", "").asset_result().success());
    EXPECT_TRUE(pathOf(105).starts_with("/var/mobile/Media/Tessel_Control/Music/F05/"));
    EXPECT_TRUE(pathOf(-7).starts_with("/var/mobile/Media/Tessel_Control/Music/F07/"));
    EXPECT_TRUE(pathOf(INT64_MIN).starts_with("/var/mobile/Media/Tessel_Control/Music/F08/"));
    EXPECT_TRUE(pathOf(9).starts_with("/var/mobile/Media/Podcasts/"));
    EXPECT_EQ(device.read(pathOf(105)), bytes);
    EXPECT_TRUE(device.filesBelow("/var/mobile/Media/Stagehold").empty());
}

TEST_F(SessionTransfers, ManyFilesMayBeUnderWayAndAreAnsweredInOrder) {
    for (int i = 1; i <= 200; ++i)
        addTrack(i);
    Host host(*stub);
    ASSERT_EQ(host.beginTransfers().size(), 200u);
    std::thread sender([&] {
        for (int i = 1; i <= 200; ++i) {
            const std::string bytes(100000, static_cast<char>(i));
            host.send(Host::announce(std::to_string(i), link::Transfer::FILE, bytes));
            host.sendChunks(bytes);
        }
    });
    for (int i = 1; i <= 200; ++i) {
        const link::FromDevice answer = host.receive();
        EXPECT_EQ(answer.asset_result().identifier(), std::to_string(i));
        EXPECT_TRUE(answer.asset_result().success());
    }
    sender.join();
    EXPECT_EQ(music().size(), 200u);
}

TEST_F(SessionTransfers, AWrongHashFailsThatAssetAlone) {
    addTrack(5);
    addTrack(6);
    Host host(*stub);
    host.beginTransfers();
    link::FromHost announcement = Host::announce("5", link::Transfer::FILE, "right");
    announcement.mutable_transfer()->set_content_hash(std::string(16, 'x'));
    const link::FromDevice answer = host.transfer(announcement, "right");
    EXPECT_FALSE(answer.asset_result().success());
    EXPECT_EQ(answer.asset_result().failure().code(), EBADMSG);
    EXPECT_EQ(device.client.calls().back(), "transfer 5 failed 74");
    EXPECT_TRUE(host.transferFile("6", "fine").asset_result().success());
    EXPECT_EQ(music().size(), 1u);
    EXPECT_TRUE(device.filesBelow("/var/mobile/Media/Stagehold").empty());
}

TEST_F(SessionTransfers, MoreOrFewerBytesThanAnnouncedFailTheAsset) {
    addTrack(5);
    addTrack(6);
    Host host(*stub);
    host.beginTransfers();
    link::FromHost announcement = Host::announce("5", link::Transfer::FILE, "12345");
    announcement.mutable_transfer()->set_size(4);
    EXPECT_EQ(host.transfer(announcement, "12345").asset_result().failure().code(), EFBIG);
    announcement = Host::announce("6", link::Transfer::FILE, "12345");
    announcement.mutable_transfer()->set_size(6);
    EXPECT_EQ(host.transfer(announcement, "12345").asset_result().failure().code(), EMSGSIZE);
    EXPECT_TRUE(music().empty());
}

TEST_F(SessionTransfers, AnAssetThatWasNotAskedForIsRefusedAndTheSessionGoesOn) {
    addTrack(5);
    Host host(*stub);
    host.beginTransfers();
    EXPECT_FALSE(host.transferFile("99", "x").asset_result().success());
    EXPECT_TRUE(host.transferFile("5", "x").asset_result().success());
    EXPECT_FALSE(host.transferFile("5", "again").asset_result().success());
    EXPECT_EQ(device.read(pathOf(5)), "x");
    EXPECT_EQ(music().size(), 1u);
}

TEST_F(SessionTransfers, HostileNamesNeverBecomePaths) {
    addTrack(5);
    for (const std::string& identifier :
         {std::string("../5"), std::string("5/../../x"), std::string(), std::string("5\0", 2),
          std::string("05")}) {
        Host host(*stub);
        host.beginTransfers();
        EXPECT_TRUE(host.transferFile(identifier, "x").has_failed()) << identifier;
        host.leave();
        waitUntilFree();
    }
    for (const char* extension : {"", "../../x", "a/b", "MP3", "abcdefghi", "m\n3"}) {
        Host host(*stub);
        host.beginTransfers();
        link::FromHost announcement = Host::announce("5", link::Transfer::FILE, "x");
        announcement.mutable_transfer()->set_file_extension(extension);
        EXPECT_FALSE(host.transfer(announcement, "x").asset_result().success()) << extension;
        host.leave();
        waitUntilFree();
    }
    EXPECT_TRUE(device.filesBelow("/").empty() || music().empty());
}

TEST_F(SessionTransfers, AChunkThatIsTooLargeEndsTheSession) {
    addTrack(5);
    Host host(*stub);
    host.beginTransfers();
    const std::string bytes((256 << 10) + 1, 'x');
    host.send(Host::announce("5", link::Transfer::FILE, bytes));
    host.sendChunks(bytes, bytes.size());
    EXPECT_TRUE(host.receive().has_failed());
}

TEST_F(SessionTransfers, ACutOffFileGoesOnWhereItStopped) {
    addTrack(5);
    const std::string bytes = std::string(600000, 'a') + std::string(400000, 'b');
    {
        Host host(*stub);
        host.beginTransfers();
        host.send(Host::announce("5", link::Transfer::FILE, bytes));
        for (int i = 0; i < 2; ++i) {
            link::FromHost chunk;
            chunk.mutable_chunk()->set_data(bytes.substr(i * 256000u, 256000));
            host.send(chunk);
        }
        // The reader takes messages in order: once this is refused, the chunks are there.
        link::FromHost message;
        message.mutable_open();
        host.send(message);
        EXPECT_TRUE(host.receive().has_failed());
        host.leave();
    }
    waitUntilFree();
    EXPECT_EQ(device.client.calls().back(), "ended 0");
    Host host(*stub);
    host.beginTransfers();
    link::FromHost question;
    question.mutable_partial()->add_identifiers("5");
    question.mutable_partial()->add_identifiers("6");
    question.mutable_partial()->add_identifiers("../5");
    host.send(question);
    const link::FromDevice answer = host.receive();
    ASSERT_EQ(answer.partial().bytes_size(), 3);
    EXPECT_EQ(answer.partial().bytes(0), 512000u);
    EXPECT_EQ(answer.partial().prefix_hash(0), hashOf(bytes.substr(0, 512000)));
    EXPECT_EQ(answer.partial().bytes(1), 0u);
    EXPECT_EQ(answer.partial().bytes(2), 0u);
    link::FromHost announcement = Host::announce("5", link::Transfer::FILE, bytes);
    announcement.mutable_transfer()->set_offset(512000);
    EXPECT_TRUE(host.transfer(announcement, bytes.substr(512000)).asset_result().success());
    EXPECT_EQ(device.read(pathOf(5)), bytes);
    EXPECT_TRUE(host.end().has_ended());
    EXPECT_TRUE(device.filesBelow("/var/mobile/Media/Stagehold").empty());
}

TEST_F(SessionTransfers, AnOffsetBeyondWhatIsThereFailsTheAsset) {
    addTrack(5);
    Host host(*stub);
    host.beginTransfers();
    link::FromHost announcement = Host::announce("5", link::Transfer::FILE, "12345");
    announcement.mutable_transfer()->set_offset(3);
    EXPECT_FALSE(host.transfer(announcement, "45").asset_result().success());
    EXPECT_TRUE(music().empty());
}

TEST_F(SessionTransfers, ACoverAndAFileAreFiledTogether) {
    addTrack(5);
    device.tracks.all[0].artworkToken = "token";
    device.tracks.all[0].pendingKenningChecksum = 77;
    Host host(*stub);
    ASSERT_EQ(host.beginTransfers().at(0).parts(), PartFile | PartArtwork | PartKenning);
    host.send(Host::announce("5", link::Transfer::ARTWORK, "picture"));
    host.sendChunks("picture");
    link::FromHost kenning = Host::announce("5", link::Transfer::KENNING, "plist");
    kenning.mutable_transfer()->set_kenning_id("88");
    host.send(kenning);
    host.sendChunks("plist");
    link::FromHost chapter = Host::announce("5", link::Transfer::CHAPTER_ARTWORK, "chapter");
    chapter.mutable_transfer()->set_chapter_ms(12346);
    host.send(chapter);
    host.sendChunks("chapter");
    std::vector<std::string> staged;
    device.client.onCall = [&](const std::string& call) {
        if (call.starts_with("transfer"))
            staged = device.filesBelow("/var/mobile/Media/Stagehold");
    };
    link::FromHost file = Host::announce("5", link::Transfer::FILE, "music");
    file.mutable_transfer()->set_parts(PartFile | PartArtwork | PartKenning);
    const link::FromDevice answer = host.transfer(file, "music");
    EXPECT_TRUE(answer.asset_result().success());
    EXPECT_FALSE(answer.asset_result().has_failure());
    EXPECT_EQ(staged, (std::vector<std::string>{"Media/Artwork/5", "Media/Artwork/5-12346",
                                                "Media/Kenning/88"}));
    EXPECT_TRUE(device.filesBelow("/var/mobile/Media/Stagehold").empty());
    test::takeOver();
    EXPECT_EQ(device.access.discardedChapterPictures,
              (std::map<std::int64_t, std::vector<std::uint64_t>>{{5, {12346}}}));
}

TEST_F(SessionTransfers, ARefusedCoverDoesNotKeepTheFileOut) {
    addTrack(5);
    device.tracks.all[0].artworkToken = "token";
    Host host(*stub);
    host.beginTransfers();
    link::FromHost cover = Host::announce("5", link::Transfer::ARTWORK, "picture");
    cover.mutable_transfer()->set_content_hash(std::string(16, 'x'));
    host.send(cover);
    host.sendChunks("picture");
    link::FromHost file = Host::announce("5", link::Transfer::FILE, "music");
    file.mutable_transfer()->set_parts(PartFile | PartArtwork);
    const link::FromDevice answer = host.transfer(file, "music");
    EXPECT_TRUE(answer.asset_result().success());
    EXPECT_TRUE(answer.asset_result().has_failure());
    EXPECT_EQ(device.read(pathOf(5)), "music");
}

TEST_F(SessionTransfers, ThePartsOfTwoAssetsMustNotMix) {
    addTrack(5);
    addTrack(6);
    device.tracks.all[0].artworkToken = "token";
    Host host(*stub);
    host.beginTransfers();
    host.send(Host::announce("5", link::Transfer::ARTWORK, "picture"));
    host.sendChunks("picture");
    EXPECT_TRUE(host.transferFile("6", "x").has_failed());
}

TEST_F(SessionTransfers, ALocationThatTheLibraryDidNotTakeIsAFailureAndLeavesNoFile) {
    addTrack(5);
    device.tracks.refusesLocations = true;
    Host host(*stub);
    host.beginTransfers();
    EXPECT_FALSE(host.transferFile("5", "x").asset_result().success());
    EXPECT_EQ(device.client.calls().back(), "install 5 failed 5");
    EXPECT_TRUE(music().empty());
}

TEST_F(SessionTransfers, WhatTheHostCannotSendIsReportedByItsKind) {
    addTrack(5);
    addTrack(6);
    Host host(*stub);
    host.beginTransfers();
    link::FromHost message;
    message.mutable_transfer_failed()->set_identifier("5");
    message.mutable_transfer_failed()->set_parts(PartFile);
    message.mutable_transfer_failed()->set_recoverable(true);
    message.mutable_transfer_failed()->set_reason("cannot read it");
    host.send(message);
    EXPECT_EQ(host.receive().asset_result().failure().text(), "cannot read it");
    EXPECT_EQ(device.client.calls().back(), "transfer 5 failed 5");
    message.mutable_transfer_failed()->set_identifier("6");
    message.mutable_transfer_failed()->set_recoverable(false);
    host.send(message);
    EXPECT_FALSE(host.receive().asset_result().success());
    EXPECT_EQ(device.client.calls().back(), "transfer 6 failed -1100");
}

TEST_F(SessionTransfers, ARestoredFileIsInstalledByTheStagingArea) {
    FakeTrack track;
    track.persistentID = 42;
    track.needsRestore = true;
    device.tracks.all.push_back(track);
    Host host(*stub);
    ASSERT_TRUE(host.beginTransfers().at(0).is_restore());
    EXPECT_TRUE(host.transferFile("42", "bought").asset_result().success());
    EXPECT_EQ(device.tracks.all[0].path, "/var/mobile/Media/Purchases/42.mp3");
    EXPECT_FALSE(device.tracks.all[0].needsRestore);
    EXPECT_EQ(device.read("/var/mobile/Media/Purchases/42.mp3"), "bought");
}

TEST_F(SessionTransfers, AnUploadIsSentWithItsHashAndThenDeleted) {
    addTrack(5);
    const std::string bytes(600000, 'u');
    device.tracks.all[0].path = "/var/mobile/Media/Tessel_Control/Music/F05/ABCD.mp3";
    device.tracks.all[0].deleteAfterUpload = true;
    device.write(*device.tracks.all[0].path, bytes);
    Host host(*stub);
    const auto assets = host.beginTransfers();
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_FALSE(assets[0].is_download());
    EXPECT_EQ(assets[0].size(), bytes.size());
    EXPECT_EQ(assets[0].file_name(), "ABCD.mp3");
    EXPECT_TRUE(assets[0].delete_after_upload());
    link::FromHost message;
    message.mutable_upload()->set_identifier("5");
    host.send(message);
    std::string received;
    for (;;) {
        const link::FromDevice answer = host.receive();
        ASSERT_TRUE(answer.has_upload_chunk());
        received += answer.upload_chunk().data();
        if (!answer.upload_chunk().last())
            continue;
        EXPECT_EQ(answer.upload_chunk().content_hash(), hashOf(bytes));
        break;
    }
    EXPECT_EQ(received, bytes);
    message.mutable_upload_done()->set_identifier("5");
    message.mutable_upload_done()->set_success(true);
    host.send(message);
    EXPECT_TRUE(host.receive().upload_closed().deleted());
    message.mutable_upload()->set_identifier("5");
    host.send(message);
    EXPECT_TRUE(host.receive().upload_chunk().has_failure());
}

TEST_F(SessionTransfers, WhatIsFullyReceivedWhenTheHostDisappearsIsFiled) {
    addTrack(5);
    {
        Host host(*stub);
        host.beginTransfers();
        EXPECT_TRUE(host.transferFile("5", "x").asset_result().success());
        host.breakOff();
    }
    waitUntilFree();
    EXPECT_EQ(device.read(pathOf(5)), "x");
    EXPECT_EQ(device.client.calls().back(), "ended 0");
}

}  // namespace
}  // namespace orlith::testing
