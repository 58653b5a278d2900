// Two daemons as processes, each with the real plug-in and library over a directory of its own: one
// brings itself up to date from the other.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/chapters/chapters.h"
#include "common/qorx/writer.h"
#include "link/peer.grpc.pb.h"
#include "tests/device/orlith/daemon_process.h"
#include "tests/support/media_maker.h"

namespace orlith::testing {
namespace {

constexpr char Originals[] = "/var/mobile/Media/Tessel_Control/Artwork/Originals";

struct HostPlaylist {
    int id = 0;
    std::vector<int> tracks;
};

// What a host puts on a device.
struct HostLibrary {
    int tracks = 0;
    std::size_t size = 300'000;  // of a media file, and its number
    std::set<int> withCovers;    // these have a cover, and two chapters with pictures
    std::vector<HostPlaylist> playlists;
    std::vector<int> removedPlaylists{};  // which the device had
    std::vector<int> removedTracks{};
};

std::string bytesOf(const HostLibrary& library, int track) {
    std::string bytes(library.size + static_cast<std::size_t>(track), '\0');
    std::mt19937 random(static_cast<unsigned>(track));
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

std::string hostData(const HostLibrary& library) {
    std::string bytes;
    common::QorxWriter writer([&](std::span<const std::uint8_t> piece) {
        bytes.append(piece.begin(), piece.end());
        return platform::OptionalError();
    });
    qorx::Header header;
    header.set_purpose(qorx::Header::HOST_DATA);
    header.set_exporter_uid("host");
    header.set_complete(true);
    EXPECT_FALSE(writer.begin(header));
    for (int i = 1; i <= library.tracks; ++i) {
        qorx::Track track;
        track.set_sync_id(1000 + i);
        track.set_global_id(2000 + i);
        track.set_media_type(8);
        track.set_title("Title " + std::to_string(i));
        track.set_total_size(library.size + static_cast<std::size_t>(i));
        track.set_file_extension("mp3");
        if (library.withCovers.contains(i)) {
            track.set_artwork_token("cover-" + std::to_string(i));
            const auto chapters = common::encodeChapters(
                {{0, "First", "abcdef" + std::to_string(i)}, {5000, "Second", "second"}});
            track.set_chapter_data(std::string(chapters->begin(), chapters->end()));
        }
        EXPECT_FALSE(writer.write(track));
    }
    for (const HostPlaylist& list : library.playlists) {
        qorx::Playlist playlist;
        playlist.set_sync_id(3000 + list.id);
        playlist.set_global_id(4000 + list.id);
        playlist.set_name("List " + std::to_string(list.id));
        for (const int track : list.tracks) {
            qorx::Playlist::Item& item = *playlist.add_items();
            item.set_sync_id(1000 + track);
            item.set_global_id(2000 + track);
        }
        EXPECT_FALSE(writer.write(playlist));
    }
    const auto remove = [&](qorx::Deletion::Entity entity, int syncID, int globalID) {
        qorx::Deletion deletion;
        deletion.set_entity(entity);
        deletion.set_sync_id(syncID);
        deletion.set_global_id(globalID);
        EXPECT_FALSE(writer.write(deletion));
    };
    for (const int track : library.removedTracks)
        remove(qorx::Deletion::TRACK, 1000 + track, 2000 + track);
    for (const int list : library.removedPlaylists)
        remove(qorx::Deletion::PLAYLIST, 3000 + list, 4000 + list);
    EXPECT_FALSE(writer.end());
    return bytes;
}

void sendPicture(Host& host, const link::Asset& asset, link::Transfer::Part part,
                 const std::string& bytes, std::optional<std::uint64_t> chapterMs = {}) {
    link::FromHost message;
    link::Transfer& transfer = *message.mutable_transfer();
    transfer.set_identifier(asset.identifier());
    transfer.set_part(part);
    transfer.set_size(bytes.size());
    transfer.set_content_hash(hashOf(bytes));
    if (chapterMs)
        transfer.set_chapter_ms(*chapterMs);
    host.send(message);
    host.sendChunks(bytes);
}

// A whole sync from a host.
void hostSync(DeviceProcess& device, const HostLibrary& library) {
    Host host(*device.stub);
    host.prepare();
    ASSERT_TRUE(
        host.sendFile(link::SessionFile::HOST_DATA, "", hostData(library)).has_file_received());
    const link::FromDevice reconciled = host.reconcile();
    ASSERT_TRUE(reconciled.reconciled().success()) << reconciled.ShortDebugString();
    for (const link::Asset& asset : host.outstanding()) {
        const int track = std::stoi(asset.identifier()) - 1000;
        if ((asset.parts() & PartArtwork) != 0) {
            sendPicture(host, asset, link::Transfer::ARTWORK, test::plainJpeg(60 + track, 60));
            sendPicture(host, asset, link::Transfer::CHAPTER_ARTWORK,
                        test::plainJpeg(30 + track, 30), 0);
            sendPicture(host, asset, link::Transfer::CHAPTER_ARTWORK, test::plainJpeg(20, 20),
                        5000);
        }
        link::FromHost file;
        if ((asset.parts() & PartFile) != 0) {
            file =
                Host::announce(asset.identifier(), link::Transfer::FILE, bytesOf(library, track));
        } else {
            file.mutable_transfer()->set_identifier(asset.identifier());
            file.mutable_transfer()->set_asset_complete(true);
        }
        file.mutable_transfer()->set_parts(asset.parts());
        host.send(file);
        if ((asset.parts() & PartFile) != 0)
            host.sendChunks(bytesOf(library, track));
        const link::FromDevice answer = host.receive();
        ASSERT_TRUE(answer.asset_result().success() && !answer.asset_result().has_failure())
            << answer.ShortDebugString();
    }
    ASSERT_TRUE(host.end().has_ended());
}

// What a run told.
struct MirrorRun {
    grpc::Status status;
    std::vector<link::MirrorStarted> starts;
    std::vector<link::MirrorSummary> summaries;
    std::vector<link::MirrorAsset> failures;

    const link::MirrorSummary& summary() const { return summaries.back(); }
};

class Mirrors : public ::testing::Test {
protected:
    static std::unique_ptr<link::Mirror::Stub> mirrorOf(DeviceProcess& device) {
        platform::OptionalError error;
        common::UniqueFd connection =
            link::connectToSocket(link::socketPathOfDevice(device.root), &error);
        EXPECT_TRUE(connection);
        return link::Mirror::NewStub(
            grpc::CreateInsecureChannelFromFd("device", connection.release()));
    }
    static link::MirrorRequest requestFrom(DeviceProcess& from) {
        link::MirrorRequest request;
        request.set_from_directory(from.root);
        return request;
    }
    using EventCheck = std::function<bool(const link::MirrorEvent&)>;
    // `goesOn` is asked after each event; false leaves.
    static MirrorRun run(
        const link::MirrorRequest& request, DeviceProcess& to,
        const EventCheck& goesOn = [](const link::MirrorEvent&) { return true; }) {
        MirrorRun result;
        const auto stub = mirrorOf(to);
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(120));
        const auto reader = stub->Run(&context, request);
        link::MirrorEvent event;
        while (reader->Read(&event)) {
            if (event.has_started())
                result.starts.push_back(event.started());
            if (event.has_summary())
                result.summaries.push_back(event.summary());
            if (event.has_asset() && !event.asset().success())
                result.failures.push_back(event.asset());
            if (!goesOn(event))
                context.TryCancel();
        }
        result.status = reader->Finish();
        return result;
    }
    static MirrorRun mirror(DeviceProcess& from, DeviceProcess& to) {
        MirrorRun result = run(requestFrom(from), to);
        EXPECT_TRUE(result.status.ok()) << result.status.error_message();
        if (result.summaries.size() != 1)
            result.summaries.resize(1);
        for (const link::MirrorAsset& failure : result.failures)
            ADD_FAILURE() << failure.ShortDebugString();
        return result;
    }
    static link::RevisionReply revisions(DeviceProcess& device) {
        grpc::ClientContext context;
        link::RevisionReply reply;
        EXPECT_TRUE(mirrorOf(device)->Revision(&context, {}, &reply).ok());
        return reply;
    }
    static std::int64_t revision(DeviceProcess& device) { return revisions(device).revision(); }
    // Whether a device that follows another one has nothing to fetch from it.
    static bool knowsAllOf(DeviceProcess& other, DeviceProcess& device) {
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
    static void rate(DeviceProcess& device, const std::string& track, unsigned stars) {
        grpc::ClientContext context;
        link::RateRequest request;
        request.set_track(track);
        request.set_stars(stars);
        link::EditReply reply;
        ASSERT_TRUE(device.stub->Rate(&context, request, &reply).ok());
        ASSERT_TRUE(reply.success()) << reply.ShortDebugString();
    }
    static std::map<std::string, link::TrackRow> tracksByTitle(DeviceProcess& device) {
        std::map<std::string, link::TrackRow> rows;
        for (const auto& [syncID, row] : device.tracks())
            rows[row.title()] = row;
        return rows;
    }
    static std::map<std::string, std::size_t> playlists(DeviceProcess& device) {
        grpc::ClientContext context;
        const auto reader = device.stub->ListPlaylists(&context, link::ListRequest());
        std::map<std::string, std::size_t> lists;
        link::PlaylistBatch batch;
        while (reader->Read(&batch))
            for (const link::PlaylistRow& row : batch.playlists())
                if (!row.built_in())
                    lists[row.name()] = static_cast<std::size_t>(row.tracks_size());
        EXPECT_TRUE(reader->Finish().ok());
        return lists;
    }
    // Every track has its own file, whole, and nothing else lies about.
    static void expectComplete(DeviceProcess& device, const HostLibrary& library) {
        const auto rows = tracksByTitle(device);
        EXPECT_EQ(rows.size(), static_cast<std::size_t>(library.tracks));
        for (int i = 1; i <= library.tracks; ++i) {
            const auto row = rows.find("Title " + std::to_string(i));
            ASSERT_NE(row, rows.end()) << i;
            EXPECT_TRUE(row->second.has_path() &&
                        device.read(row->second.path()) == bytesOf(library, i))
                << i << " " << row->second.path();
        }
        EXPECT_EQ(device.filesBelow("/var/mobile/Media/Stagehold"), 0u);
        EXPECT_EQ(device.filesBelow("/var/mobile/Media/Tessel_Control/Music"),
                  static_cast<std::size_t>(library.tracks));
    }
    // Waits for what another process does.
    static bool eventually(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition())
            if (std::chrono::steady_clock::now() > deadline)
                return false;
        return true;
    }

    DeviceProcess first;
    DeviceProcess companion;
};

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
    const std::map<std::string, std::size_t> expected{{"List 4", 1}};
    EXPECT_EQ(playlists(companion), expected);
    EXPECT_EQ(tracksByTitle(companion).size(), 3u);
    EXPECT_EQ(mirror(first, companion).summary().bytes(), 0u);
}

TEST_F(Mirrors, TwoDevicesOfOneHostAreNotDoubledAndFetchByTheOthersNumbers) {
    first.start();
    companion.start();
    const HostLibrary library{3, 1000, {}, {}};
    hostSync(first, library);
    // The companion's host brought the entries and was cut off before the files.
    {
        Host host(*companion.stub);
        host.prepare();
        ASSERT_TRUE(
            host.sendFile(link::SessionFile::HOST_DATA, "", hostData(library)).has_file_received());
        ASSERT_TRUE(host.reconcile().reconciled().success());
    }
    EXPECT_EQ(mirror(first, companion).summary().assets(), 3u);
    expectComplete(companion, library);
}

TEST_F(Mirrors, EitherDaemonKilledAtAnyMomentTheNextRunGoesOn) {
    const unsigned seed = 20261121;
    std::mt19937 random(seed);
    first.start();
    const HostLibrary library{6, 600'000, {2}, {{1, {1, 2}}}};
    hostSync(first, library);
    companion.start();
    for (int round = 0; round < 8; ++round) {
        SCOPED_TRACE(round);
        const bool killsCompanion = random() % 2 == 0;
        int left = static_cast<int>(random() % 12);
        run(requestFrom(first), companion, [&](const link::MirrorEvent&) {
            if (left-- == 0)
                ::kill(killsCompanion ? companion.pid : first.pid, SIGKILL);
            return true;
        });
        if (left < 0) {
            DeviceProcess& killed = killsCompanion ? companion : first;
            killed.end(SIGKILL);
            killed.start();
        }
    }
    mirror(first, companion);
    expectComplete(companion, library);
    EXPECT_EQ(mirror(first, companion).summary().bytes(), 0u);
}

TEST_F(Mirrors, AFileThatWasCutGoesOnWhereItStopped) {
    first.start();
    companion.start();
    const HostLibrary library{1, 60'000'000, {}, {}};
    hostSync(first, library);
    const MirrorRun cut = run(requestFrom(first), companion, [](const link::MirrorEvent& event) {
        return !event.has_progress() || event.progress().bytes() < 1'000'000;
    });
    EXPECT_EQ(cut.status.error_code(), grpc::StatusCode::CANCELLED);
    std::uint64_t kept = 0;
    ASSERT_TRUE(eventually([&] {
        link::StatusReply status;
        grpc::ClientContext context;
        return companion.stub->Status(&context, {}, &status).ok() && status.session_owner().empty();
    }));
    for (const auto& entry :
         fs::directory_iterator(companion.root + "/var/mobile/Media/Stagehold/Partial"))
        kept = entry.file_size();
    EXPECT_GT(kept, 0u);
    const MirrorRun rest = mirror(first, companion);
    EXPECT_EQ(rest.summary().bytes(), 60'000'001 - kept);
    expectComplete(companion, library);
}

TEST_F(Mirrors, AFileThatIsGoneIsListedAndTheNextRunAsksAgain) {
    first.start();
    companion.start();
    const HostLibrary library{3, 1000, {}, {}};
    hostSync(first, library);
    const std::string path = tracksByTitle(first)["Title 2"].path();
    fs::rename(first.root + path, first.root + "/hidden");
    const MirrorRun gone = run(requestFrom(first), companion);
    EXPECT_TRUE(gone.status.ok());
    ASSERT_EQ(gone.failures.size(), 1u);
    EXPECT_EQ(gone.failures[0].title(), "Title 2");
    EXPECT_TRUE(gone.failures[0].recoverable());
    EXPECT_EQ(gone.summary().assets(), 2u);
    fs::rename(first.root + "/hidden", first.root + path);
    EXPECT_EQ(mirror(first, companion).summary().assets(), 1u);
    expectComplete(companion, library);
}

TEST_F(Mirrors, TwoDevicesThatMirrorEachOtherAtOnceBothEnd) {
    first.start();
    companion.start();
    hostSync(first, {4, 100'000, {}, {}});
    for (int round = 0; round < 3; ++round) {
        MirrorRun there;
        std::thread other([&] { there = run(requestFrom(companion), first); });
        const MirrorRun here = run(requestFrom(first), companion);
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
        link::MirrorRequest request = requestFrom(from);
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

TEST_F(Mirrors, ChangesCanBeExportedAndImportedAsAStream) {
    first.start();
    companion.start();
    hostSync(first, {2, 1000, {}, {{1, {1, 2}}}});
    std::vector<link::ChangeStream> messages;
    {
        grpc::ClientContext context;
        const auto stub = mirrorOf(first);
        const auto reader = stub->Export(&context, link::ExportRequest());
        link::ChangeStream message;
        while (reader->Read(&message))
            messages.push_back(message);
        ASSERT_TRUE(reader->Finish().ok());
    }
    ASSERT_GE(messages.size(), 3u);
    EXPECT_TRUE(messages.front().has_params());
    EXPECT_EQ(messages.back().end().revision(), revision(first));
    const auto import = [&](link::ImportReply& reply) {
        grpc::ClientContext context;
        const auto stub = mirrorOf(companion);
        const auto writer = stub->Import(&context, &reply);
        for (const link::ChangeStream& message : messages)
            writer->Write(message);
        writer->WritesDone();
        return writer->Finish();
    };
    link::ImportReply reply;
    EXPECT_TRUE(import(reply).ok());
    EXPECT_TRUE(reply.success()) << reply.ShortDebugString();
    EXPECT_EQ(tracksByTitle(companion).size(), 2u);
    EXPECT_EQ(playlists(companion)["List 1"], 2u);

    // A byte that changed on the way is noticed, and nothing is imported.
    (*messages[1].mutable_data())[20] ^= 1;
    EXPECT_FALSE(import(reply).ok());
}

}  // namespace
}  // namespace orlith::testing
