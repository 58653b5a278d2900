// Questions, edits and the server around them.
#include <sys/socket.h>

#include "device/orlith/device_lock.h"
#include "tests/device/orlith/session_test.h"

namespace orlith::testing {
namespace {

class DeviceQuestions : public SessionTest {
protected:
    DeviceQuestions() {
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(30));
    }
    grpc::ClientContext context;
};

TEST_F(DeviceQuestions, StatusTellsTheLibraryAndTheSession) {
    Host host(*stub);
    host.open("kitchen-pc");
    link::StatusReply reply;
    ASSERT_TRUE(stub->Status(&context, link::StatusRequest(), &reply).ok());
    EXPECT_EQ(reply.kept_size(), 0);
    EXPECT_EQ(reply.tracks(), 3u);
    EXPECT_EQ(reply.playlists(), 2u);
    EXPECT_EQ(reply.missing_files(), 1u);
    EXPECT_EQ(reply.revision(), 7);
    EXPECT_EQ(reply.process_id(), ::getpid());
    EXPECT_NE(reply.session_owner().find("kitchen-pc"), std::string::npos);
}

TEST_F(DeviceQuestions, StatusTellsWhatIsKeptWhenThatIsAsked) {
    link::StatusRequest request;
    request.set_with_kept(true);
    link::StatusReply reply;
    ASSERT_TRUE(stub->Status(&context, request, &reply).ok());
    ASSERT_EQ(reply.kept_size(), 1);
    EXPECT_EQ(reply.kept(0).bytes(), 4096u);
}

TEST_F(DeviceQuestions, HostsAreToldWhichKindsTheDeviceHasDisabled) {
    device.client.disabled = {"MusicVideo", "Music"};
    Host host(*stub);
    const link::FromDevice opened = host.open();
    ASSERT_EQ(opened.opened().disabled_kinds_size(), 2);
    EXPECT_EQ(opened.opened().disabled_kinds(0), "Music");
    link::StatusReply reply;
    ASSERT_TRUE(stub->Status(&context, link::StatusRequest(), &reply).ok());
    ASSERT_EQ(reply.disabled_kinds_size(), 2);
    EXPECT_EQ(reply.disabled_kinds(0), "Music");
    EXPECT_EQ(reply.disabled_kinds(1), "MusicVideo");
}

TEST_F(DeviceQuestions, HostsAreToldOfNoKindsWhenNoneIsDisabled) {
    Host host(*stub);
    EXPECT_EQ(host.open().opened().disabled_kinds_size(), 0);
    link::StatusReply reply;
    ASSERT_TRUE(stub->Status(&context, link::StatusRequest(), &reply).ok());
    EXPECT_EQ(reply.disabled_kinds_size(), 0);
}

TEST_F(DeviceQuestions, TracksComeInBatchesAndAlwaysAsValidText) {
    for (int i = 1; i <= 5000; ++i)
        addTrack(i);
    const auto reader = stub->ListTracks(&context, link::ListRequest());
    link::TrackBatch batch;
    int rows = 0;
    int batches = 0;
    while (reader->Read(&batch)) {
        rows += batch.tracks_size();
        ++batches;
        EXPECT_EQ(batch.tracks(0).title(), "t?itle");
        EXPECT_EQ(batch.tracks(0).asset_type(), "TVEpisode");
    }
    EXPECT_TRUE(reader->Finish().ok());
    EXPECT_EQ(rows, 5000);
    EXPECT_GT(batches, 1);
    EXPECT_LT(batches, 50);
}

TEST_F(DeviceQuestions, ALongPlaylistComesInPieces) {
    const auto reader = stub->ListPlaylists(&context, link::ListRequest());
    link::PlaylistBatch batch;
    int tracks = 0;
    while (reader->Read(&batch))
        for (const link::PlaylistRow& row : batch.playlists()) {
            EXPECT_EQ(row.persistent_id(), 1);
            tracks += row.tracks_size();
        }
    EXPECT_TRUE(reader->Finish().ok());
    EXPECT_EQ(tracks, 250000);
}

TEST_F(DeviceQuestions, ARatingNamesTheTrackOrTheReason) {
    link::RateRequest request;
    link::EditReply reply;
    request.set_track("5");
    request.set_stars(4);
    ASSERT_TRUE(stub->Rate(&context, request, &reply).ok());
    EXPECT_TRUE(reply.success());
    EXPECT_EQ(reply.title(), "****");
    request.set_track("6");
    grpc::ClientContext second;
    ASSERT_TRUE(stub->Rate(&second, request, &reply).ok());
    EXPECT_EQ(reply.failure().text(), "no such track");
    request.set_stars(6);
    grpc::ClientContext third;
    EXPECT_EQ(stub->Rate(&third, request, &reply).error_code(), grpc::StatusCode::INVALID_ARGUMENT);
}

TEST_F(DeviceQuestions, StoppingIsRefusedWhileASessionRuns) {
    Host host(*stub);
    host.open();
    link::StopReply reply;
    EXPECT_EQ(stub->Stop(&context, link::StopRequest(), &reply).error_code(),
              grpc::StatusCode::FAILED_PRECONDITION);
    host.leave();
    waitUntilFree();
    grpc::ClientContext second;
    EXPECT_TRUE(stub->Stop(&second, link::StopRequest(), &reply).ok());
    EXPECT_TRUE(reply.stopping());
}

TEST(ServerOfAnIdleDevice, LeavesWhenNobodyCalls) {
    FakeDevice device;
    device.files.createDirectory("/var/run");
    platform::OptionalError error;
    DeviceService service(device.services(), [] {});
    Server server({&service}, service.calls(), device.log,
                  link::listenOnSocket(link::socketPathOfDevice(device.root.path), &error));
    EXPECT_EQ(server.serve(-1, std::chrono::seconds(0)), Server::Ending::Idle);
}

TEST(DeviceLocks, ASecondDaemonIsToldWhoServesTheDevice) {
    TemporaryRoot root;
    DeviceLock first;
    DeviceLock second;
    ASSERT_EQ(first.acquire(root.path + "/lock"), std::nullopt);
    const auto error = second.acquire(root.path + "/lock");
    ASSERT_TRUE(error);
    EXPECT_NE(error->text().find("process " + std::to_string(::getpid())), std::string::npos);
}

TEST_F(DeviceQuestions, BytesThatAreNoCallDoNotDisturbTheOthers) {
    for (int i = 0; i < 20; ++i) {
        platform::OptionalError error;
        const common::UniqueFd connection =
            link::connectToSocket(link::socketPathOfDevice(device.root.path), &error);
        ASSERT_TRUE(connection);
        const std::string garbage(1000 * static_cast<std::size_t>(i), static_cast<char>(i * 37));
        ::send(connection.get(), garbage.data(), garbage.size(), MSG_NOSIGNAL);
    }
    link::StatusReply reply;
    EXPECT_TRUE(stub->Status(&context, link::StatusRequest(), &reply).ok());
}

}  // namespace
}  // namespace orlith::testing
