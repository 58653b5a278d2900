// A companion brings itself up to date, both ways and at once.
#include <atomic>
#include <thread>

#include "tests/device/orlith/mirror_fixture.h"

namespace orlith::testing {
namespace {

constexpr char Originals[] = "/var/mobile/Media/Tessel_Control/Artwork/Originals";

// Whether a device that follows another one has nothing to fetch from it.
bool knowsAllOf(DeviceProcess& other, DeviceProcess& device) {
    const link::RevisionReply there = revisions(other);
    const link::RevisionReply here = revisions(device);
    std::int64_t known = 0;
    for (const link::PeerRevisions& peer : here.peers())
        if (peer.library_uid() == there.library_uid())
            known = peer.received_revision();
    for (const link::PeerRevisions& peer : there.peers())
        if (peer.library_uid() == here.library_uid())
            known = std::max<std::int64_t>(known, peer.acknowledged_revision());
    return known >= there.revision();
}
TEST_F(Mirrors, ACompanionGetsEverythingAndASecondRunMovesNothing) {
    first.start();
    companion.start();
    const HostLibrary library{5, 300'000, {2, 3}, {{1, {1, 2, 3}}, {2, {5, 5}}}};
    hostSync(first, library);

    const MirrorRun run = mirror(first, companion);
    EXPECT_TRUE(run.summary().full());
    EXPECT_EQ(run.summary().tracks_changed(), 5u);
    EXPECT_EQ(run.summary().playlists_changed(), 2u);
    EXPECT_EQ(run.summary().assets(), 7u);
    EXPECT_EQ(run.summary().to_revision(), revision(first));
    ASSERT_EQ(run.starts.size(), 1u);
    EXPECT_TRUE(run.starts[0].full());
    EXPECT_EQ(run.starts[0].from_revision(), 0);
    EXPECT_EQ(run.starts[0].to_revision(), revision(first));
    expectComplete(companion, library);
    EXPECT_EQ(playlists(companion), playlists(first));
    EXPECT_TRUE(tracksByTitle(companion)["Title 2"].artwork());
    // The two covers, a chapter's picture of each and one that both share.
    EXPECT_EQ(companion.filesBelow(Originals), 5u);

    const std::int64_t before = revision(companion);
    const MirrorRun again = mirror(first, companion);
    EXPECT_FALSE(again.summary().full());
    ASSERT_EQ(again.starts.size(), 1u);
    EXPECT_EQ(again.starts[0].from_revision(), revision(first));
    EXPECT_EQ(again.starts[0].to_revision(), revision(first));
    EXPECT_EQ(again.summary().bytes(), 0u);
    EXPECT_EQ(again.summary().assets(), 0u);
    EXPECT_EQ(revision(companion), before);
}

TEST_F(Mirrors, AnEditTravelsBothWaysAndThenBothDevicesAreQuiet) {
    first.start();
    companion.start();
    const HostLibrary library{3, 1000, {}, {{1, {1, 2, 3}}}};
    hostSync(first, library);
    mirror(first, companion);
    const MirrorRun back = mirror(companion, first);
    EXPECT_EQ(back.summary().assets(), 0u);
    // All records come back once, and none says anything new.
    EXPECT_TRUE(back.summary().full());
    EXPECT_EQ(back.summary().tracks_changed() + back.summary().playlists_changed(), 0u);
    expectComplete(first, library);

    rate(companion, "Title 2", 4);
    EXPECT_EQ(mirror(companion, first).summary().tracks_changed(), 1u);
    EXPECT_EQ(tracksByTitle(first)["Title 2"].rating(), 80u);
    rate(first, "Title 3", 5);
    EXPECT_EQ(mirror(first, companion).summary().tracks_changed(), 1u);
    EXPECT_EQ(tracksByTitle(companion)["Title 3"].rating(), 100u);
    EXPECT_EQ(tracksByTitle(companion)["Title 2"].rating(), 80u);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(mirror(companion, first).summary().tracks_changed(), 0u);
        EXPECT_EQ(mirror(first, companion).summary().tracks_changed(), 0u);
    }
}

TEST_F(Mirrors, SeveralDeletedPlaylistsAndTracksGoInOneRun) {
    first.start();
    companion.start();
    HostLibrary library{4, 1000, {}, {{1, {1}}, {2, {2}}, {3, {3}}, {4, {4}}}};
    hostSync(first, library);
    mirror(first, companion);
    library.playlists = {{4, {3}}};
    library.tracks = 3;
    library.removedPlaylists = {1, 2, 3};
    library.removedTracks = {4};
    hostSync(first, library);
    const MirrorRun run = mirror(first, companion);
    EXPECT_EQ(run.summary().playlists_deleted(), 3u);
    EXPECT_EQ(run.summary().tracks_deleted(), 1u);
    const std::map<std::string, std::vector<std::string>> expected{{"List 4", {"Title 3"}}};
    EXPECT_EQ(playlists(companion), expected);
    EXPECT_EQ(tracksByTitle(companion).size(), 3u);
    EXPECT_EQ(mirror(first, companion).summary().bytes(), 0u);
}

TEST_F(Mirrors, TwoDevicesThatMirrorEachOtherAtOnceBothEnd) {
    first.start();
    companion.start();
    hostSync(first, {4, 100'000, {}, {}});
    for (int round = 0; round < 3; ++round) {
        MirrorRun there;
        std::thread other([&] { there = run(requestFrom(companion.root), first); });
        const MirrorRun here = run(requestFrom(first.root), companion);
        other.join();
        EXPECT_TRUE(here.status.ok()) << here.status.error_message();
        EXPECT_TRUE(there.status.ok()) << there.status.error_message();
    }
    expectComplete(companion, {4, 100'000, {}, {}});
}

TEST_F(Mirrors, DevicesThatFollowEachOtherPassEditsOnAndComeToRest) {
    first.start();
    companion.start();
    hostSync(first, {3, 1000, {}, {}});
    std::atomic<bool> over{false};
    std::atomic<int> sessions{0};
    const auto follow = [&](DeviceProcess& from, DeviceProcess& to) {
        link::MirrorRequest request = requestFrom(from.root);
        request.set_follow(true);
        grpc::ClientContext context;
        const auto stub = mirrorOf(to);
        const auto reader = stub->Run(&context, request);
        std::thread leaving([&] {
            eventually([&] { return over.load(); });
            context.TryCancel();
        });
        link::MirrorEvent event;
        while (reader->Read(&event)) {
            sessions += event.has_summary();
            EXPECT_FALSE(event.has_failure()) << event.ShortDebugString();
        }
        leaving.join();
        reader->Finish();
    };
    std::thread one([&] { follow(first, companion); });
    std::thread two([&] { follow(companion, first); });
    EXPECT_TRUE(eventually([&] { return tracksByTitle(companion).size() == 3; }));
    rate(first, "Title 1", 3);
    EXPECT_TRUE(eventually([&] { return tracksByTitle(companion)["Title 1"].rating() == 60; }));
    rate(companion, "Title 1", 5);
    EXPECT_TRUE(eventually([&] { return tracksByTitle(first)["Title 1"].rating() == 100; }));
    // At rest: each knows of the other that there is nothing to fetch.
    EXPECT_TRUE(
        eventually([&] { return knowsAllOf(first, companion) && knowsAllOf(companion, first); }));
    const int before = sessions;
    EXPECT_TRUE(knowsAllOf(first, companion) && knowsAllOf(companion, first));
    EXPECT_LT(before, 60);
    over = true;
    one.join();
    two.join();
}

TEST_F(Mirrors, ADeviceThatIsWatchedTellsOfItsChangesAndHowUrgentTheyAre) {
    first.start();
    hostSync(first, {2, 1000, {}, {}});
    platform::OptionalError error;
    common::UniqueFd connection =
        link::connectToSocket(link::socketPathOfDevice(first.root), &error);
    ASSERT_TRUE(connection);
    const auto stub =
        link::Peer::NewStub(grpc::CreateInsecureChannelFromFd("device", connection.release()));
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(30));
    link::WatchRequest request;
    request.set_library_uid("somebody");
    const auto reader = stub->Watch(&context, request);
    link::LibraryChanged change;
    ASSERT_TRUE(reader->Read(&change));
    EXPECT_FALSE(change.has_priority());
    EXPECT_EQ(change.revision(), revision(first));
    EXPECT_EQ(change.library_uid(), revisions(first).library_uid());
    rate(first, "Title 1", 3);
    // Until both the change and its urgency are told, which may be in one.
    std::int64_t priority = -1;
    while ((priority < 0 || change.revision() < revision(first)) && reader->Read(&change))
        priority = change.has_priority() ? change.priority() : priority;
    EXPECT_GE(priority, 1);
    EXPECT_LE(priority, 2);
    EXPECT_EQ(change.revision(), revision(first));
    context.TryCancel();
    reader->Finish();
}

TEST_F(Mirrors, AMirrorWaitsForAHostThatHasEitherDevice) {
    first.start();
    companion.start();
    const HostLibrary library{2, 1000, {}, {}};
    hostSync(first, library);
    for (DeviceProcess* busy : {&first, &companion}) {
        Host host(*busy->stub);
        ASSERT_TRUE(host.open("kitchen-pc").has_opened());
        bool hasWaited = false;
        const MirrorRun waited =
            run(requestFrom(first.root), companion, [&](const link::MirrorEvent& event) {
                if (event.has_waiting() && !hasWaited) {
                    hasWaited = true;
                    EXPECT_NE(event.waiting().reason().find("kitchen-pc"), std::string::npos);
                    host.leave();
                }
                return true;
            });
        EXPECT_TRUE(waited.status.ok()) << waited.status.error_message();
        EXPECT_TRUE(hasWaited);
    }
    expectComplete(companion, library);
}

TEST_F(Mirrors, WhatNeedsTheDeviceIsRefusedWhileAHostHasItWithTheHostsName) {
    first.start();
    Host host(*first.stub);
    ASSERT_TRUE(host.open("kitchen-pc").has_opened());
    const auto stub = mirrorOf(first);
    const auto expectRefused = [](const grpc::Status& status) {
        EXPECT_EQ(status.error_code(), grpc::StatusCode::ABORTED);
        EXPECT_NE(status.error_message().find("kitchen-pc"), std::string::npos)
            << status.error_message();
    };
    {
        grpc::ClientContext context;
        link::WantedAssets batch;
        const auto reader = stub->ListAssets(&context, link::ListAssetsRequest());
        EXPECT_FALSE(reader->Read(&batch));
        expectRefused(reader->Finish());
    }
    {
        grpc::ClientContext context;
        link::ChangeStream piece;
        const auto reader = stub->Export(&context, link::ExportRequest());
        EXPECT_FALSE(reader->Read(&piece));
        expectRefused(reader->Finish());
    }
    {
        grpc::ClientContext context;
        link::ResetChangesReply reply;
        expectRefused(stub->ResetChanges(&context, {}, &reply));
    }
}

TEST_F(Mirrors, AskingForOtherMediaTypesLaterAddsThemAndTakesNothingAway) {
    first.start();
    companion.start();
    HostLibrary library{4, 1000, {}, {}};
    library.mediaTypes = {{2, 4}, {3, 2}};  // a podcast and an audiobook
    hostSync(first, library);
    const auto mirrorOnly = [&](std::uint32_t mediaTypes) {
        link::MirrorRequest request = requestFrom(first.root);
        request.set_media_types(mediaTypes);
        const MirrorRun result = run(request, companion);
        EXPECT_TRUE(result.status.ok()) << result.status.error_message();
        EXPECT_TRUE(result.failures.empty());
        std::string titles;
        for (const auto& [title, row] : tracksByTitle(companion))
            if (companion.read(row.path()) == bytesOf(library, std::stoi(title.substr(6))))
                titles += title.substr(6);
        return titles;
    };
    EXPECT_EQ(mirrorOnly(8), "14");
    EXPECT_EQ(mirrorOnly(4), "124");
    EXPECT_EQ(mirrorOnly(8), "124");
    // What has changed meanwhile comes for every kind that is here.
    rate(first, "Title 2", 5);
    EXPECT_EQ(mirrorOnly(8), "124");
    EXPECT_EQ(tracksByTitle(companion)["Title 2"].rating(), 100u);
    EXPECT_EQ(mirrorOnly(0), "1234");
    EXPECT_EQ(mirrorOnly(8), "1234");
    mirror(companion, first);
    EXPECT_EQ(tracksByTitle(first).size(), 4u);
    expectQuiet(first, companion);
}

TEST_F(Mirrors, AResetOfACompanionTakesNothingFromTheFirstDevice) {
    first.start();
    companion.start();
    const HostLibrary library{3, 1000, {}, {{1, {1}}}};
    hostSync(first, library);
    mirror(first, companion);
    mirror(companion, first);
    {
        grpc::ClientContext context;
        link::ResetChangesReply reply;
        ASSERT_TRUE(mirrorOf(companion)->ResetChanges(&context, {}, &reply).ok());
        ASSERT_TRUE(reply.success()) << reply.ShortDebugString();
    }
    EXPECT_TRUE(tracksByTitle(companion).empty());
    mirror(companion, first);
    expectComplete(first, library);
    mirror(first, companion);
    expectComplete(companion, library);
}

}  // namespace
}  // namespace orlith::testing
