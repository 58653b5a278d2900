// The daemon as a process, with the real plug-in and library: whole syncs, and killed at any point
// of one.
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>

#include "common/qorx/writer.h"
#include "tests/device/orlith/daemon_process.h"

namespace orlith::testing {
namespace {

class WholeSyncs : public DaemonProcess {
protected:
    static std::string bytesOf(int track) {
        std::string bytes(300000 + static_cast<std::size_t>(track), '\0');
        std::mt19937 random(static_cast<unsigned>(track));
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        return bytes;
    }
    static std::string hostData(int tracks) {
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
        for (int i = 1; i <= tracks; ++i) {
            qorx::Track track;
            track.set_sync_id(1000 + i);
            track.set_global_id(2000 + i);
            track.set_media_type(8);
            track.set_title("Title " + std::to_string(i));
            track.set_artist("Artist");
            track.set_total_size(bytesOf(i).size());
            track.set_file_extension("mp3");
            track.set_content_hash(hashOf(bytesOf(i)));
            EXPECT_FALSE(writer.write(track));
        }
        EXPECT_FALSE(writer.end());
        return bytes;
    }

    // A session up to a step of it; `stop` is asked after each and true ends it there, the host
    // silent. The identifiers acknowledged.
    std::vector<std::string> runSession(int tracks, const std::function<bool(int step)>& stop,
                                        std::uint32_t type = 1) {
        std::vector<std::string> acknowledged;
        int step = 0;
        const auto stopsHere = [&] { return stop(step++); };
        Host host(*stub);
        if (stopsHere())
            return acknowledged;
        host.prepare();
        if (stopsHere())
            return acknowledged;
        EXPECT_TRUE(
            host.sendFile(link::SessionFile::HOST_DATA, "", hostData(tracks)).has_file_received());
        if (stopsHere())
            return acknowledged;
        const link::FromDevice reconciled = host.reconcile(type);
        EXPECT_TRUE(reconciled.reconciled().success()) << reconciled.ShortDebugString();
        if (stopsHere())
            return acknowledged;
        const std::vector<link::Asset> assets = host.outstanding();
        if (stopsHere())
            return acknowledged;
        for (const link::Asset& asset : assets) {
            EXPECT_EQ(asset.parts(), PartFile);
            const std::string bytes = bytesOf(std::stoi(asset.identifier()) - 1000);
            host.send(Host::announce(asset.identifier(), link::Transfer::FILE, bytes));
            if (stopsHere())
                return acknowledged;
            host.sendChunks(bytes, 100000);
            const link::FromDevice answer = host.receive();
            EXPECT_TRUE(answer.asset_result().success()) << answer.ShortDebugString();
            acknowledged.push_back(asset.identifier());
            if (stopsHere())
                return acknowledged;
        }
        EXPECT_TRUE(host.end().has_ended());
        stopsHere();
        return acknowledged;
    }
    static bool never(int) { return false; }

    // Every track has its own file, whole, and nothing else lies about.
    void expectComplete(int count) {
        const auto rows = tracks();
        EXPECT_EQ(rows.size(), static_cast<std::size_t>(count));
        for (const auto& [syncID, row] : rows)
            EXPECT_TRUE(read(row.path()) == bytesOf(static_cast<int>(syncID - 1000)))
                << syncID << " " << row.path();
        EXPECT_EQ(filesBelow("/var/mobile/Media/Stagehold"), 0u);
    }
};

TEST_F(WholeSyncs, AWholeSyncIsThereAfterARestart) {
    start();
    EXPECT_EQ(runSession(3, never).size(), 3u);
    expectComplete(3);
    EXPECT_EQ(end(SIGTERM), 0);
    start();
    expectComplete(3);
    EXPECT_EQ(runSession(3, never).size(), 0u);
    EXPECT_EQ(filesBelow("/var/mobile/Media/Tessel_Control/Music"), 3u);
}

TEST_F(WholeSyncs, KilledAfterAnyStepTheNextSyncCompletesAndSendsNothingTwice) {
    constexpr int Steps = 5 + 2 * 3 + 1;
    for (int killAt = 0; killAt < Steps; ++killAt) {
        SCOPED_TRACE(killAt);
        start();
        const auto acknowledged = runSession(3, [&](int step) {
            if (step == killAt)
                end(SIGKILL);
            return step == killAt;
        });
        ASSERT_EQ(pid, -1);
        start();
        EXPECT_EQ(runSession(3, never).size(), 3u - acknowledged.size());
        expectComplete(3);
        EXPECT_EQ(filesBelow("/var/mobile/Media/Tessel_Control/Music"), 3u);
        EXPECT_EQ(end(SIGTERM), 0);
        fs::remove_all(root);
        fs::create_directory(root);
    }
}

TEST_F(WholeSyncs, KilledAtAnyMomentNothingAcknowledgedIsLost) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 5; ++round) {
        start();
        // The kill comes with a chunk of a file; with the last one it meets the filing.
        constexpr std::size_t ChunkSize = 100'000, Chunks = 4;
        const int killFile = static_cast<int>(random() % 10);
        const std::size_t killChunk = random() % (Chunks + 1);
        std::vector<std::string> acknowledged;
        {
            Host host(*stub);
            host.prepare();
            host.sendFile(link::SessionFile::HOST_DATA, "", hostData(10));
            host.reconcile();
            const auto assets = host.outstanding();
            int number = 0;
            for (const link::Asset& asset : assets) {
                const std::string bytes = bytesOf(std::stoi(asset.identifier()) - 1000);
                const bool kills = number++ == killFile;
                host.send(Host::announce(asset.identifier(), link::Transfer::FILE, bytes));
                host.sendChunks(bytes, ChunkSize, kills ? killChunk : Chunks);
                if (kills)
                    ::kill(pid, SIGKILL);
                if (!host.receive().asset_result().success())
                    break;
                acknowledged.push_back(asset.identifier());
            }
        }
        end(SIGKILL);
        start();
        const auto rows = tracks();
        for (const std::string& identifier : acknowledged) {
            const auto row = rows.find(std::stoll(identifier));
            ASSERT_NE(row, rows.end());
            EXPECT_TRUE(read(row->second.path()) == bytesOf(std::stoi(identifier) - 1000));
        }
        runSession(10, never);
        expectComplete(10);
        EXPECT_EQ(end(SIGTERM), 0);
        fs::remove_all(root);
        fs::create_directory(root);
    }
}

TEST_F(WholeSyncs, AResetSyncSendsEverythingAgainAndAFailedOneNothing) {
    start();
    runSession(3, never);
    const auto before = tracks();
    {
        Host host(*stub);
        host.prepare();
        EXPECT_TRUE(host.sendFile(link::SessionFile::HOST_DATA, "", "damaged").has_file_received());
        const link::FromDevice answer = host.reconcile(2);
        EXPECT_FALSE(answer.reconciled().success());
        EXPECT_TRUE(host.end(false).has_ended());
    }
    const auto after = tracks();
    ASSERT_EQ(after.size(), before.size());
    for (const auto& [syncID, row] : before)
        EXPECT_EQ(after.at(syncID).path(), row.path());
    expectComplete(3);
    EXPECT_EQ(runSession(3, never, 2).size(), 3u);
    expectComplete(3);
    EXPECT_EQ(filesBelow("/var/mobile/Media/Tessel_Control/Music"), 3u);
}

TEST_F(WholeSyncs, ADamagedLibraryIsSetAsideAndFilledAgain) {
    start();
    runSession(3, never);
    end(SIGKILL);
    const std::string database =
        root + "/var/mobile/Media/Tessel_Control/Tessel/MediaLibrary.sqlitedb";
    fs::remove(database + "-wal");
    fs::remove(database + "-shm");
    std::ofstream(database, std::ios::binary) << std::string(40000, 'x');
    start();
    {
        Host host(*stub);
        const link::FromDevice opened = host.open();
        ASSERT_EQ(opened.opened().notices_size(), 1);
        EXPECT_NE(opened.opened().notices(0).find("set aside"), std::string::npos);
        EXPECT_EQ(opened.opened().anchor(), "0");
    }
    EXPECT_EQ(filesBelow("/var/mobile/Media/Tessel_Control/Music"), 3u);
    runSession(3, never);
    expectComplete(3);
}

TEST_F(WholeSyncs, TheOwnersEditsAreSavedForTheHost) {
    start();
    runSession(2, never);
    link::RateRequest rate;
    rate.set_track("Title 2");
    rate.set_stars(4);
    link::EditReply reply;
    {
        grpc::ClientContext context;
        ASSERT_TRUE(stub->Rate(&context, rate, &reply).ok());
        EXPECT_TRUE(reply.success()) << reply.ShortDebugString();
        EXPECT_EQ(reply.title(), "Title 2");
    }
    Host host(*stub);
    ASSERT_TRUE(host.open().has_opened());
    link::FromHost message;
    message.mutable_prepare();
    host.send(message);
    EXPECT_EQ(host.receive().prepared().covered_revision(), reply.revision());
    std::string saved;
    for (link::FromDevice answer = host.receive(); answer.has_saved() && !answer.saved().last();
         answer = host.receive())
        if (answer.saved().kind() == link::SavedChunk::METADATA)
            saved += answer.saved().data();
    EXPECT_NE(saved.find("Title 2"), std::string::npos);
}

TEST_F(WholeSyncs, AFullDeviceTellsSoKeepsItsTracksAndGoesOn) {
    if (::geteuid() != 0 || ::mount("none", root.c_str(), "tmpfs", 0, "size=6m") != 0)
        GTEST_SKIP() << "a small file system can only be mounted by root";
    struct Unmount {
        std::string path;
        ~Unmount() { ::umount2(path.c_str(), MNT_DETACH); }
    } unmount{root};
    start();
    {
        Host host(*stub);
        host.prepare();
        ASSERT_TRUE(
            host.sendFile(link::SessionFile::HOST_DATA, "", hostData(40)).has_file_received());
        ASSERT_TRUE(host.reconcile().reconciled().success());
        const auto assets = host.outstanding();
        ASSERT_EQ(assets.size(), 40u);
        int full = 0;
        for (const link::Asset& asset : assets) {
            const link::FromDevice answer = host.transferFile(
                asset.identifier(), bytesOf(std::stoi(asset.identifier()) - 1000));
            ASSERT_TRUE(answer.has_asset_result()) << answer.ShortDebugString();
            if (answer.asset_result().success())
                continue;
            EXPECT_EQ(answer.asset_result().failure().code(), ENOSPC);
            ++full;
        }
        EXPECT_GT(full, 0);
        EXPECT_LT(full, 40);
        EXPECT_TRUE(host.end().has_ended());
    }
    for (const auto& [syncID, row] : tracks())
        EXPECT_TRUE(!row.has_path() ||
                    read(row.path()) == bytesOf(static_cast<int>(syncID - 1000)));
    ASSERT_EQ(::mount("none", root.c_str(), "tmpfs", MS_REMOUNT, "size=64m"), 0);
    runSession(40, never);
    expectComplete(40);
    end(SIGTERM);
}

}  // namespace
}  // namespace orlith::testing
