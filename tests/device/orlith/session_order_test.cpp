// Who may have a session, in which order its messages come, and how it ends.
#include <unistd.h>

#include <condition_variable>

#include "tests/device/orlith/session_test.h"

namespace orlith::testing {
namespace {

using SessionOrder = SessionTest;

TEST_F(SessionOrder, AWholeSessionCallsThePluginInOrder) {
    addTrack(5);
    Host host(*stub);
    const auto assets = host.beginTransfers();
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_EQ(assets[0].identifier(), "5");
    EXPECT_TRUE(assets[0].bypass_store());
    EXPECT_TRUE(host.transferFile("5", "music").asset_result().success());
    const link::FromDevice ended = host.end();
    EXPECT_EQ(ended.ended().anchor(), "anchor");
    EXPECT_TRUE(host.leave().ok());
    EXPECT_EQ(device.client.calls(),
              (std::vector<std::string>{"prepare", "reconcile 1 a1", "outstanding",
                                        "transfer 5 succeeded", "ended 1"}));
}

TEST_F(SessionOrder, OpeningTellsWhatTheDeviceIs) {
    device.notices.add("something was put right");
    Host host(*stub);
    const link::FromDevice answer = host.open();
    EXPECT_EQ(answer.opened().library_uid(), "uid");
    EXPECT_EQ(answer.opened().revision(), 7);
    EXPECT_GT(answer.opened().free_bytes(), 0u);
    EXPECT_NE(answer.opened().torvel_id(), 0u);
    ASSERT_EQ(answer.opened().notices_size(), 1);
    EXPECT_EQ(answer.opened().notices(0), "something was put right");
}

TEST_F(SessionOrder, ASecondHostIsToldWhoHasTheDevice) {
    Host first(*stub);
    ASSERT_TRUE(first.open("kitchen\n-pc").has_opened());
    Host second(*stub);
    const link::FromDevice answer = second.open();
    const std::string owner = "kitchen?-pc (process " + std::to_string(::getpid()) + ")";
    EXPECT_NE(answer.failed().owner().find(owner), std::string::npos);
    EXPECT_EQ(second.leave().error_code(), grpc::StatusCode::ABORTED);
    first.leave();
    waitUntilFree();
    Host third(*stub);
    EXPECT_TRUE(third.open().has_opened());
}

TEST_F(SessionOrder, AMessageOutOfOrderEndsTheSession) {
    const auto refused = [&](const std::function<void(Host&)>& begin, link::FromHost message) {
        Host host(*stub);
        begin(host);
        host.send(message);
        const link::FromDevice answer = host.receive();
        EXPECT_TRUE(answer.has_failed()) << message.ShortDebugString();
        EXPECT_NE(answer.failed().failure().text().find("protocol"), std::string::npos);
        EXPECT_EQ(host.leave().error_code(), grpc::StatusCode::INVALID_ARGUMENT);
        waitUntilFree();
    };
    const auto nothing = [](Host&) {};
    const auto opened = [](Host& host) { EXPECT_TRUE(host.open().has_opened()); };
    const auto prepared = [](Host& host) { host.prepare(); };
    const auto listed = [](Host& host) { host.beginTransfers(); };
    link::FromHost message;
    message.mutable_prepare();
    refused(nothing, message);
    refused(prepared, message);
    message.mutable_open();
    refused(opened, message);
    message.mutable_reconcile();
    refused(opened, message);
    refused(listed, message);
    message.mutable_outstanding();
    refused(prepared, message);
    message.mutable_chunk();
    refused(listed, message);
    message.mutable_file();
    refused(listed, message);
    refused(prepared, Host::announce("5", link::Transfer::FILE, "x"));
    message.mutable_partial();
    refused(prepared, message);
    message.mutable_end();
    refused(nothing, message);
    message.mutable_upload_done()->set_identifier("77");
    refused(listed, message);
    message.clear_message();
    refused(opened, message);
}

TEST_F(SessionOrder, AnExceptionInThePluginEndsOneSessionOnly) {
    device.client.onCall = [](const std::string& call) {
        if (call == "outstanding")
            throw std::out_of_range("beyond bounds");
    };
    {
        Host host(*stub);
        host.prepare();
        ASSERT_TRUE(host.reconcile().reconciled().success());
        link::FromHost message;
        message.mutable_outstanding();
        host.send(message);
        const link::FromDevice answer = host.receive();
        EXPECT_NE(answer.failed().failure().text().find("beyond bounds"), std::string::npos);
        EXPECT_EQ(host.leave().error_code(), grpc::StatusCode::INTERNAL);
    }
    waitUntilFree();
    device.client.onCall = nullptr;
    Host host(*stub);
    host.beginTransfers();
    EXPECT_TRUE(host.end().has_ended());
}

TEST_F(SessionOrder, AFailedImportIsToldAndDoesNotEndTransfers) {
    device.client.reconcileFails = true;
    Host host(*stub);
    host.prepare();
    const link::FromDevice answer = host.reconcile();
    EXPECT_FALSE(answer.reconciled().success());
    EXPECT_EQ(answer.reconciled().failure().code(), KVMediaLibraryServiceErrorDamagedData);
    EXPECT_TRUE(host.end(false).has_ended());
    EXPECT_EQ(device.client.calls().back(), "reconcile 1 a1");
    EXPECT_EQ(device.system.posted,
              (std::vector<std::string>{
                  std::string(KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification)}));
}

TEST_F(SessionOrder, TheListIsAskedForInEverySessionThatWasReconciled) {
    Host host(*stub);
    host.prepare();
    ASSERT_TRUE(host.reconcile(0).reconciled().success());
    EXPECT_TRUE(host.end().has_ended());
    EXPECT_EQ(device.client.calls(),
              (std::vector<std::string>{"prepare", "reconcile 0 a1", "outstanding", "ended 1"}));
}

// A gate at which the plug-in's import waits, as a long one does.
class Gate {
public:
    void wait() {
        std::unique_lock lock(_mutex);
        _reached = true;
        _changed.notify_all();
        _changed.wait_for(lock, std::chrono::seconds(20), [this] { return _open; });
    }
    void open() {
        const std::scoped_lock lock(_mutex);
        _open = true;
        _changed.notify_all();
    }
    bool waitUntilReached() {
        std::unique_lock lock(_mutex);
        return _changed.wait_for(lock, std::chrono::seconds(20), [this] { return _reached; });
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _reached = false;
    bool _open = false;
};

TEST_F(SessionOrder, ACancelReachesThePluginWhileItImports) {
    Gate gate;
    device.client.onCall = [&](const std::string& call) {
        if (call.starts_with("reconcile"))
            gate.wait();
        if (call == "cancel")
            gate.open();
    };
    Host host(*stub);
    host.prepare();
    link::FromHost message;
    message.mutable_reconcile()->set_sync_type(1);
    host.send(message);
    ASSERT_TRUE(gate.waitUntilReached());
    message.mutable_cancel();
    host.send(message);
    EXPECT_TRUE(host.receive().has_reconciled());
    const std::vector<std::string> calls = device.client.calls();
    EXPECT_EQ(calls.back(), "cancel");
    host.leave();
}

TEST_F(SessionOrder, AHostThatDisappearsDuringTheImportCancelsIt) {
    Gate gate;
    device.client.onCall = [&](const std::string& call) {
        if (call.starts_with("reconcile"))
            gate.wait();
        if (call == "cancel")
            gate.open();
    };
    Host host(*stub);
    host.prepare();
    link::FromHost message;
    message.mutable_reconcile()->set_sync_type(1);
    host.send(message);
    ASSERT_TRUE(gate.waitUntilReached());
    host.breakOff();
    waitUntilFree();
    EXPECT_EQ(device.client.calls().back(), "cancel");
}

TEST_F(SessionOrder, TheDaemonsEndEndsTheSession) {
    Host host(*stub);
    ASSERT_TRUE(host.open().has_opened());
    device.slot.stop("the daemon is stopping");
    EXPECT_EQ(host.receive().failed().failure().text(), "the daemon is stopping");
    EXPECT_EQ(host.leave().error_message(), "the daemon is stopping");
    waitUntilFree();
    Host late(*stub);
    EXPECT_EQ(late.open().failed().owner(), "the daemon is stopping");
}

}  // namespace
}  // namespace orlith::testing
