// A daemon as a process, with the real plug-in and library, over a device directory of its own.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>

#include "link/start_daemon.h"
#include "tests/device/orlith/test_host.h"

namespace orlith::testing {

namespace fs = std::filesystem;

class DeviceProcess {
public:
    DeviceProcess() {
        std::string name = fs::temp_directory_path() / "orlith-daemon-XXXXXX";
        root = ::mkdtemp(name.data());
    }
    ~DeviceProcess() {
        if (pid > 0)
            end(SIGKILL);
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
    DeviceProcess(const DeviceProcess&) = delete;
    DeviceProcess& operator=(const DeviceProcess&) = delete;

    void start() {
        link::DaemonStart settings;
        settings.root = root;
        settings.program = ORLITHD_PROGRAM;
        settings.idleExit = std::chrono::seconds(0);
        settings.timeout = std::chrono::seconds(60);
        const platform::OptionalError error = link::startDaemon(settings);
        ASSERT_FALSE(error) << error->description();
        std::ifstream(root + "/var/run/orlithd.lock") >> pid;
        ASSERT_GT(pid, 0);
        stub = connectTo(root);
    }
    // The exit code, or minus the signal.
    int end(int signal) {
        stub.reset();
        ::kill(pid, signal);
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    std::map<std::int64_t, link::TrackRow> tracks() {
        grpc::ClientContext context;
        const auto reader = stub->ListTracks(&context, link::ListRequest());
        std::map<std::int64_t, link::TrackRow> rows;
        link::TrackBatch batch;
        while (reader->Read(&batch))
            for (const link::TrackRow& row : batch.tracks())
                rows[row.sync_id()] = row;
        EXPECT_TRUE(reader->Finish().ok());
        return rows;
    }
    std::string read(const std::string& devicePath) {
        std::ifstream file(root + devicePath, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
    std::size_t filesBelow(const std::string& devicePath) {
        std::size_t count = 0;
        if (fs::exists(root + devicePath))
            for (const auto& entry : fs::recursive_directory_iterator(root + devicePath))
                count += entry.is_regular_file();
        return count;
    }

    std::string root;
    pid_t pid = -1;
    std::unique_ptr<link::Device::Stub> stub;
};

class DaemonProcess : public ::testing::Test, protected DeviceProcess {};

}  // namespace orlith::testing
