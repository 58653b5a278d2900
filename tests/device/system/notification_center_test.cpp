#include "device/system/notification_center.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

class NotificationCenterTest : public ::testing::Test {
protected:
    device::NotificationCenter center;
    const int first = 0, second = 0;  // observers; only their addresses count
    int calls = 0;
};

TEST_F(NotificationCenterTest, EveryRegistrationIsCalledOncePerNotification) {
    center.addObserver(&first, "name", [&] { ++calls; });
    center.addObserver(&first, "name", [&] { ++calls; });
    center.addObserver(&second, "name", [&] { ++calls; });
    center.addObserver(&second, "other", [&] { calls += 100; });
    center.post("name");
    EXPECT_EQ(calls, 3);
    center.post("unknown");
    EXPECT_EQ(calls, 3);
}

TEST_F(NotificationCenterTest, ARemovalTakesTheObserversRegistrationsForTheName) {
    center.addObserver(&first, "name", [&] { calls += 1; });
    center.addObserver(&first, "other", [&] { calls += 10; });
    center.addObserver(&second, "name", [&] { calls += 100; });
    center.removeObserver(&first, "name");
    center.removeObserver(&first, "unknown");
    center.post("name");
    center.post("other");
    EXPECT_EQ(calls, 110);
    center.removeObserver(&first);
    center.removeObserver(&second);
    center.post("name");
    center.post("other");
    EXPECT_EQ(calls, 110);
}

TEST_F(NotificationCenterTest, AnObserverMayLeaveDuringDelivery) {
    center.addObserver(&first, "name", [&] {
        ++calls;
        center.removeObserver(&first);
        center.removeObserver(&second, "name");
    });
    center.addObserver(&second, "name", [&] { calls += 100; });
    center.post("name");
    center.post("name");
    EXPECT_EQ(calls, 1);
}

TEST_F(NotificationCenterTest, AnObserverThatJoinsDuringDeliveryIsCalledFromTheNextOneOn) {
    center.addObserver(&first, "name", [&] {
        if (++calls == 1)
            center.addObserver(&second, "name", [&] { calls += 100; });
    });
    center.post("name");
    EXPECT_EQ(calls, 1);
    center.post("name");
    EXPECT_EQ(calls, 102);
}

TEST_F(NotificationCenterTest, AHandlerMayPost) {
    center.addObserver(&first, "name", [&] {
        ++calls;
        center.post("other");
    });
    center.addObserver(&first, "other", [&] { calls += 10; });
    center.post("name");
    EXPECT_EQ(calls, 11);
}

TEST_F(NotificationCenterTest, HandlersRunOnThePostingThread) {
    std::thread::id ran;
    center.addObserver(&first, "name", [&] { ran = std::this_thread::get_id(); });
    std::thread poster([&] { center.post("name"); });
    const std::thread::id expected = poster.get_id();
    poster.join();
    EXPECT_EQ(ran, expected);
}

TEST_F(NotificationCenterTest, ARemovedHandlerIsReleased) {
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = held;
    center.addObserver(&first, "name", [held = std::move(held)] {});
    center.removeObserver(&first);
    EXPECT_TRUE(watched.expired());
}

TEST_F(NotificationCenterTest, ReleasingAHandlerMayUseTheCenter) {
    struct Leaver {
        device::NotificationCenter& center;
        ~Leaver() { center.removeObserver(this); }
    };
    auto held = std::make_shared<Leaver>(center);
    center.addObserver(&first, "name", [held] {});
    center.addObserver(&second, "name", [held = std::move(held)] {});
    center.removeObserver(&first, "name");
    center.removeObserver(&second);
    center.post("name");
}

TEST_F(NotificationCenterTest, PostingAndLeavingOnManyThreadsIsSafe) {
    std::vector<std::thread> threads;
    std::atomic<int> delivered = 0;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            const int observer = 0;
            for (int i = 0; i < 500; ++i) {
                center.addObserver(&observer, "name", [&] { ++delivered; });
                center.post("name");
                center.removeObserver(&observer);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(delivered, 2000);
    const int before = delivered;
    center.post("name");
    EXPECT_EQ(delivered, before);
}

}  // namespace
