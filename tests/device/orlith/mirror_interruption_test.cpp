// What goes wrong on the way of a mirror between real daemons: kills, cuts, files that are gone,
// and disks that are full.
#include <sys/mount.h>

#include <random>

#include "tests/device/orlith/link_proxy.h"
#include "tests/device/orlith/mirror_fixture.h"

namespace orlith::testing {
namespace {

constexpr char Originals[] = "/var/mobile/Media/Tessel_Control/Artwork/Originals";
constexpr char Partial[] = "/var/mobile/Media/Stagehold/Partial";

// One daemon is killed at a moment that chance gives: at an event that the owner hears of, or when
// a number of bytes has gone over the link.
void mirrorAndKill(std::mt19937& random, DeviceProcess& from, DeviceProcess& to,
                   bool killsCompanion) {
    DeviceProcess& victim = killsCompanion ? to : from;
    const pid_t pid = victim.pid;
    LinkProxy proxy(from.root);
    int left = -1;
    if (random() % 2 == 0) {
        left = static_cast<int>(random() % 24);
    } else {
        const bool toFirst = random() % 3 == 0;
        proxy.at(toFirst ? LinkProxy::Way::ToFirst : LinkProxy::Way::ToCompanion,
                 toFirst ? random() % 1500 : random() % 400'000, [pid] {
                     ::kill(pid, SIGKILL);
                     return true;
                 });
    }
    run(requestFrom(proxy.root()), to, [&](const link::MirrorEvent&) {
        if (left >= 0 && left-- == 0)
            ::kill(pid, SIGKILL);
        return true;
    });
    // It may have come too late.
    victim.end(SIGKILL);
    victim.start();
}

TEST_F(Mirrors, EitherDaemonKilledAtAnyMomentTheEndIsThatOfAnUndisturbedRun) {
    const unsigned seed = 20261121;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    first.start();
    HostLibrary library{5, 60'000, {2, 4}, {{1, {3, 1, 2, 3}}, {2, {5}}, {3, {1}}}};
    hostSync(first, library);
    companion.start();
    for (int kill = 0; kill < 30; ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        // Something to do, every time.
        if (kill % 5 == 2) {
            library.tracks += 1;
            library.playlists[0].tracks.insert(library.playlists[0].tracks.begin(), library.tracks);
            hostSync(first, library);
        }
        if (kill == 14) {
            library.playlists.pop_back();
            library.playlists.pop_back();
            library.removedPlaylists = {2, 3};
            hostSync(first, library);
            library.removedPlaylists.clear();
        }
        if (kill % 3 == 0)
            rate(first, "Title " + std::to_string(1 + random() % 5), 1 + random() % 5);
        const bool goesBack = kill % 4 == 3;
        mirrorAndKill(random, goesBack ? companion : first, goesBack ? first : companion,
                      random() % 2 == 0);
        tracksByTitle(companion);
    }
    mirror(first, companion);
    expectComplete(companion, library);
    DeviceProcess undisturbed;
    undisturbed.start();
    mirror(first, undisturbed);
    EXPECT_EQ(contentOf(companion), contentOf(undisturbed));
    EXPECT_EQ(contentOf(companion), contentOf(first));
    expectQuiet(first, companion);
}

TEST_F(Mirrors, ACompanionThatIsKilledWhileChangesComeLeavesNothingBehind) {
    first.start();
    companion.start();
    const HostLibrary library{4000, 0, {}, {}};
    hostSyncWithoutFiles(first, library);
    LinkProxy proxy(first.root);
    proxy.at(LinkProxy::Way::ToCompanion, 150'000, [pid = companion.pid] {
        ::kill(pid, SIGKILL);
        return true;
    });
    EXPECT_FALSE(run(requestFrom(proxy.root()), companion).status.ok());
    EXPECT_EQ(companion.end(SIGKILL), -SIGKILL);
    companion.start();
    EXPECT_EQ(companion.filesBelow("/var/mobile/Media/Stagehold"), 0u);
    EXPECT_EQ(tracksOf(companion).size(), 0u);
}

TEST_F(Mirrors, AFileThatWasCutGoesOnWhereItStopped) {
    first.start();
    companion.start();
    const HostLibrary library{1, 4'000'000, {}, {}};
    hostSync(first, library);
    LinkProxy proxy(first.root);
    proxy.at(LinkProxy::Way::ToCompanion, 3'000'000, [] { return false; });
    EXPECT_FALSE(run(requestFrom(proxy.root()), companion).status.ok());
    std::uint64_t kept = 0;
    for (const auto& entry : fs::directory_iterator(companion.root + Partial))
        kept = entry.file_size();
    EXPECT_GT(kept, 2'000'000u);
    const MirrorRun rest = mirror(first, companion);
    EXPECT_EQ(rest.summary().bytes(), 4'000'001 - kept);
    expectComplete(companion, library);
}

TEST_F(Mirrors, WhatWasKeptOfAFileThatIsAnotherNowIsThrownAway) {
    first.start();
    companion.start();
    const HostLibrary library{1, 4'000'000, {}, {}};
    hostSync(first, library);
    LinkProxy proxy(first.root);
    proxy.at(LinkProxy::Way::ToCompanion, 3'000'000, [] { return false; });
    EXPECT_FALSE(run(requestFrom(proxy.root()), companion).status.ok());
    for (const auto& entry : fs::directory_iterator(companion.root + Partial)) {
        std::fstream file(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(1000);
        file.put('x').put('y');
    }
    EXPECT_GE(mirror(first, companion).summary().bytes(), 4'000'001u);
    expectComplete(companion, library);
}

TEST_F(Mirrors, AFileThatIsGoneIsListedAndTheNextRunAsksAgain) {
    first.start();
    companion.start();
    const HostLibrary library{3, 1000, {}, {}};
    hostSync(first, library);
    const std::string path = tracksByTitle(first)["Title 2"].path();
    fs::rename(first.root + path, first.root + "/hidden");
    const MirrorRun gone = run(requestFrom(first.root), companion);
    EXPECT_TRUE(gone.status.ok());
    ASSERT_EQ(gone.failures.size(), 1u);
    EXPECT_EQ(gone.failures[0].title(), "Title 2");
    EXPECT_EQ(gone.failures[0].failure().text(), "the other device does not have the file");
    EXPECT_TRUE(gone.failures[0].recoverable());
    EXPECT_EQ(gone.summary().assets(), 2u);
    fs::rename(first.root + "/hidden", first.root + path);
    EXPECT_EQ(mirror(first, companion).summary().assets(), 1u);
    expectComplete(companion, library);
}

TEST_F(Mirrors, AFileThatGoesBetweenTheListAndTheQuestionIsListedAsNotCome) {
    first.start();
    companion.start();
    const HostLibrary library{20, 1000, {}, {}};
    hostSync(first, library);
    const std::string path = tracksByTitle(first)["Title 20"].path();
    const MirrorRun gone =
        run(requestFrom(first.root), companion, [&](const link::MirrorEvent& event) {
            std::error_code ignored;
            if (event.has_progress() &&
                event.progress().phase() == link::MirrorProgress::LISTING_ASSETS)
                fs::rename(first.root + path, first.root + "/hidden", ignored);
            return true;
        });
    EXPECT_TRUE(gone.status.ok());
    ASSERT_EQ(gone.failures.size(), 1u);
    EXPECT_EQ(gone.failures[0].title(), "Title 20");
    fs::rename(first.root + "/hidden", first.root + path);
    EXPECT_EQ(mirror(first, companion).summary().assets(), 1u);
    expectComplete(companion, library);
}

// A companion on a small disk.
class FullCompanions : public Mirrors {
protected:
    ~FullCompanions() override {
        if (_isMounted)
            ::umount2(companion.root.c_str(), MNT_DETACH);
    }
    bool mount(const char* size) {
        _isMounted =
            ::geteuid() == 0 && ::mount("none", companion.root.c_str(), "tmpfs", 0, size) == 0;
        return _isMounted;
    }
    // Fills the disk but for so many bytes.
    void fill(std::uintmax_t left) {
        std::ofstream file(companion.root + "/filler", std::ios::binary);
        const std::string piece(1 << 14, 'f');
        while (fs::space(companion.root).available > left + piece.size())
            if (!file.write(piece.data(), static_cast<std::streamsize>(piece.size())).flush())
                break;
    }
    void makeRoom() { fs::remove(companion.root + "/filler"); }

private:
    bool _isMounted = false;
};

TEST_F(FullCompanions, ADiskThatIsFullDuringTheChangesEndsTheRunAndLosesNothing) {
    if (!mount("size=64m"))
        GTEST_SKIP() << "a small file system can only be mounted by root";
    first.start();
    companion.start();
    HostLibrary library{2, 1000, {}, {{1, {1, 2}}}};
    hostSync(first, library);
    mirror(first, companion);
    const HostLibrary before = library;
    // Many entries, which need more room for the library than is left.
    library.tracks = 3000;
    hostSyncWithoutFiles(first, library);
    int failures = 0;
    for (const std::uintmax_t left : {0, 60'000, 200'000, 500'000, 900'000}) {
        SCOPED_TRACE(std::to_string(left) + " bytes free");
        makeRoom();
        fill(left);
        const MirrorRun full = run(requestFrom(first.root), companion);
        if (full.status.ok())
            continue;
        ++failures;
        EXPECT_NE(full.status.error_message().find("full"), std::string::npos)
            << full.status.error_message();
        expectComplete(companion, before);
        EXPECT_EQ(playlists(companion)["List 1"].size(), 2u);
    }
    EXPECT_GT(failures, 2);
    makeRoom();
    EXPECT_TRUE(run(requestFrom(first.root), companion).status.ok());
    EXPECT_EQ(tracksOf(companion).size(), 3000u);
    companion.end(SIGTERM);
}

TEST_F(FullCompanions, ADiskThatIsFullDuringAFileOrAPictureListsWhatIsMissing) {
    if (!mount("size=32m"))
        GTEST_SKIP() << "a small file system can only be mounted by root";
    first.start();
    companion.start();
    const HostLibrary library{30, 200'000, {1, 2, 3, 28, 29, 30}, {{1, {30, 1}}}};
    hostSync(first, library);
    fill(6'000'000);
    const MirrorRun full = run(requestFrom(first.root), companion);
    EXPECT_TRUE(full.status.ok()) << full.status.error_message();
    EXPECT_GT(full.failures.size(), 0u);
    EXPECT_EQ(full.summary().failed(), full.failures.size());
    for (const link::MirrorAsset& failure : full.failures) {
        EXPECT_EQ(failure.failure().code(), ENOSPC) << failure.ShortDebugString();
        EXPECT_TRUE(failure.recoverable());
    }
    const auto rows = tracksByTitle(companion);
    EXPECT_EQ(rows.size(), 30u);
    for (const auto& [title, row] : rows)
        EXPECT_TRUE(!row.has_path() ||
                    companion.read(row.path()) == bytesOf(library, std::stoi(title.substr(6))))
            << title;
    makeRoom();
    mirror(first, companion);
    expectComplete(companion, library);
    EXPECT_EQ(contentOf(companion), contentOf(first));
    companion.end(SIGTERM);
}

TEST_F(FullCompanions, ADiskThatIsFullBeforeThePicturesListsThem) {
    if (!mount("size=32m"))
        GTEST_SKIP() << "a small file system can only be mounted by root";
    first.start();
    companion.start();
    const HostLibrary library{4, 1000, {1, 2, 3, 4}, {}};
    hostSync(first, library);
    // At first the pictures are not to be had.
    fs::rename(first.root + Originals, first.root + "/hidden");
    EXPECT_EQ(run(requestFrom(first.root), companion).failures.size(), 4u);
    fs::rename(first.root + "/hidden", first.root + Originals);
    fill(0);
    const MirrorRun full = run(requestFrom(first.root), companion);
    EXPECT_TRUE(full.status.ok()) << full.status.error_message();
    EXPECT_EQ(full.failures.size(), 4u);
    for (const link::MirrorAsset& failure : full.failures)
        EXPECT_EQ(failure.failure().code(), ENOSPC) << failure.ShortDebugString();
    makeRoom();
    mirror(first, companion);
    expectComplete(companion, library);
    EXPECT_EQ(contentOf(companion), contentOf(first));
    companion.end(SIGTERM);
}

}  // namespace
}  // namespace orlith::testing
