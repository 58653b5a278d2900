// A server over a fake device, and a host that talks to it through a real socket.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "device/orlith/device_service.h"
#include "device/orlith/server.h"
#include "link/address.h"
#include "tests/device/orlith/fake_device.h"
#include "tests/device/orlith/test_host.h"
#include "tests/support/hand_off.h"

namespace orlith::testing {

class SessionTest : public ::testing::Test {
protected:
    SessionTest() : service(device.services(), [this] { server->stop(); }) {
        device.files.createDirectory("/var/run");
        platform::OptionalError error;
        server = std::make_unique<Server>(
            std::vector<grpc::Service*>{&service}, service.calls(), device.log,
            link::listenOnSocket(link::socketPathOfDevice(device.root.path), &error));
        serving = std::thread([this] { server->serve(-1, std::nullopt); });
        stub = connectTo(device.root.path);
    }
    ~SessionTest() override {
        server->stop();
        serving.join();
        server->shutDown(std::chrono::milliseconds(100));
    }

    void addTrack(std::int64_t syncID) {
        FakeTrack track;
        track.syncID = syncID;
        track.persistentID = 1000 + syncID;
        device.tracks.all.push_back(track);
        test::handOver();
    }
    // Waits until no session runs; a session's end follows the stream's.
    void waitUntilFree() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (device.slot.isTaken() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        test::takeOver();
        ASSERT_FALSE(device.slot.isTaken());
    }

    FakeDevice device;
    DeviceService service;
    std::unique_ptr<Server> server;
    std::thread serving;
    std::unique_ptr<link::Device::Stub> stub;
};

}  // namespace orlith::testing
