#include "link/start_daemon.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "link/address.h"

namespace orlith::link {
namespace {

namespace fs = std::filesystem;

// The daemon is played by shell scripts: the fifth word is the report's descriptor.
class StartDaemon : public ::testing::Test {
protected:
    StartDaemon() {
        std::string name = fs::temp_directory_path() / "orlith-start-XXXXXX";
        start.root = ::mkdtemp(name.data());
        start.program = start.root + "/daemon";
    }
    ~StartDaemon() override { fs::remove_all(start.root); }

    void daemonIs(const std::string& script) {
        std::ofstream(start.program) << "#!/bin/sh\n" << script << "\n";
        fs::permissions(start.program, fs::perms::owner_all);
    }

    DaemonStart start;
};

TEST_F(StartDaemon, ADaemonThatIsReadyIsNoFailure) {
    daemonIs("printf '\\006' >&$4");
    EXPECT_EQ(startDaemon(start), std::nullopt);
}

TEST_F(StartDaemon, TheDaemonsOwnWordsTellWhyItDoesNotServe) {
    daemonIs("printf 'the library is damaged' >&$4; exit 1");
    const auto failure = startDaemon(start);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->text(), "the library is damaged");
}

TEST_F(StartDaemon, ADaemonThatDiesSilentlyIsNoticed) {
    daemonIs("exit 3");
    const auto failure = startDaemon(start);
    ASSERT_TRUE(failure);
    EXPECT_NE(failure->text().find("ended before it was ready"), std::string::npos);
}

TEST_F(StartDaemon, WaitingHasAnEnd) {
    daemonIs("exec sleep 5");
    start.timeout = std::chrono::milliseconds(50);
    const auto failure = startDaemon(start);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, ETIMEDOUT);
}

TEST_F(StartDaemon, AMissingProgramIsNamed) {
    start.program = start.root + "/none";
    const auto failure = startDaemon(start);
    ASSERT_TRUE(failure);
    EXPECT_NE(failure->text().find("/none"), std::string::npos);
}

TEST_F(StartDaemon, ADaemonThatListensAlreadyIsNotStartedAgain) {
    fs::create_directories(start.root + "/var/run");
    platform::OptionalError error;
    const auto listener = listenOnSocket(socketPathOfDevice(start.root), &error);
    ASSERT_TRUE(listener);
    EXPECT_TRUE(connectOrStart(start, &error));
    EXPECT_FALSE(fs::exists(start.root + "/var/log"));
}

TEST_F(StartDaemon, TheDaemonsMessagesAreKept) {
    daemonIs("echo hello >&2; printf '\\006' >&$4");
    ASSERT_EQ(startDaemon(start), std::nullopt);
    std::ifstream log(start.root + "/var/log/orlithd.log");
    std::string line;
    std::getline(log, line);
    EXPECT_EQ(line, "hello");
}

}  // namespace
}  // namespace orlith::link
