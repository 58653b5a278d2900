// What every platform::NotificationCenter must do. Instantiate with a fixture type that is default
// constructible and has
//     platform::NotificationCenter& notificationCenter();
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "platform/operating_system.h"

namespace test {

template <typename Subject>
class NotificationCenterContract : public ::testing::Test {
protected:
    platform::NotificationCenter& center() { return subject.notificationCenter(); }

    Subject subject;
    const int first = 0, second = 0;  // observers; only their addresses count
    int calls = 0;
};

TYPED_TEST_SUITE_P(NotificationCenterContract);

TYPED_TEST_P(NotificationCenterContract, EveryRegistrationIsCalledOncePerNotification) {
    this->center().addObserver(&this->first, "name", [&] { ++this->calls; });
    this->center().addObserver(&this->first, "name", [&] { ++this->calls; });
    this->center().addObserver(&this->second, "name", [&] { ++this->calls; });
    this->center().addObserver(&this->second, "other", [&] { this->calls += 100; });
    this->center().post("name");
    EXPECT_EQ(this->calls, 3);
    this->center().post("unknown");
    EXPECT_EQ(this->calls, 3);
}

TYPED_TEST_P(NotificationCenterContract, ARemovalTakesTheObserversRegistrationsForTheName) {
    this->center().addObserver(&this->first, "name", [&] { this->calls += 1; });
    this->center().addObserver(&this->first, "other", [&] { this->calls += 10; });
    this->center().addObserver(&this->second, "name", [&] { this->calls += 100; });
    this->center().removeObserver(&this->first, "name");
    this->center().removeObserver(&this->first, "unknown");
    this->center().post("name");
    this->center().post("other");
    EXPECT_EQ(this->calls, 110);
    this->center().removeObserver(&this->first);
    this->center().removeObserver(&this->second);
    this->center().post("name");
    this->center().post("other");
    EXPECT_EQ(this->calls, 110);
}

TYPED_TEST_P(NotificationCenterContract, AnObserverMayLeaveDuringDelivery) {
    this->center().addObserver(&this->first, "name", [&] {
        ++this->calls;
        this->center().removeObserver(&this->first);
        this->center().removeObserver(&this->second, "name");
    });
    this->center().addObserver(&this->second, "name", [&] { this->calls += 100; });
    this->center().post("name");
    this->center().post("name");
    EXPECT_EQ(this->calls, 1);
}

TYPED_TEST_P(NotificationCenterContract,
             AnObserverThatJoinsDuringDeliveryIsCalledFromTheNextOneOn) {
    this->center().addObserver(&this->first, "name", [&] {
        if (++this->calls == 1)
            this->center().addObserver(&this->second, "name", [&] { this->calls += 100; });
    });
    this->center().post("name");
    EXPECT_EQ(this->calls, 1);
    this->center().post("name");
    EXPECT_EQ(this->calls, 102);
}

TYPED_TEST_P(NotificationCenterContract, AHandlerMayPost) {
    this->center().addObserver(&this->first, "name", [&] {
        ++this->calls;
        this->center().post("other");
    });
    this->center().addObserver(&this->first, "other", [&] { this->calls += 10; });
    this->center().post("name");
    EXPECT_EQ(this->calls, 11);
}

TYPED_TEST_P(NotificationCenterContract, HandlersRunOnThePostingThread) {
    std::thread::id ran;
    this->center().addObserver(&this->first, "name", [&] { ran = std::this_thread::get_id(); });
    std::thread poster([&] { this->center().post("name"); });
    const std::thread::id expected = poster.get_id();
    poster.join();
    EXPECT_EQ(ran, expected);
}

TYPED_TEST_P(NotificationCenterContract, ARemovedHandlerIsReleased) {
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = held;
    this->center().addObserver(&this->first, "name", [held = std::move(held)] {});
    this->center().removeObserver(&this->first);
    EXPECT_TRUE(watched.expired());
}

TYPED_TEST_P(NotificationCenterContract, ReleasingAHandlerMayUseTheCenter) {
    struct Leaver {
        platform::NotificationCenter& center;
        ~Leaver() { center.removeObserver(this); }
    };
    auto held = std::make_shared<Leaver>(this->center());
    this->center().addObserver(&this->first, "name", [held] {});
    this->center().addObserver(&this->second, "name", [held = std::move(held)] {});
    this->center().removeObserver(&this->first, "name");
    this->center().removeObserver(&this->second);
    this->center().post("name");
}

TYPED_TEST_P(NotificationCenterContract, PostingAndLeavingOnManyThreadsIsSafe) {
    std::vector<std::thread> threads;
    std::atomic<int> delivered = 0;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            const int observer = 0;
            for (int i = 0; i < 500; ++i) {
                this->center().addObserver(&observer, "name", [&] { ++delivered; });
                this->center().post("name");
                this->center().removeObserver(&observer);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(delivered, 2000);
    const int before = delivered;
    this->center().post("name");
    EXPECT_EQ(delivered, before);
}

REGISTER_TYPED_TEST_SUITE_P(NotificationCenterContract,
                            EveryRegistrationIsCalledOncePerNotification,
                            ARemovalTakesTheObserversRegistrationsForTheName,
                            AnObserverMayLeaveDuringDelivery,
                            AnObserverThatJoinsDuringDeliveryIsCalledFromTheNextOneOn,
                            AHandlerMayPost, HandlersRunOnThePostingThread,
                            ARemovedHandlerIsReleased, ReleasingAHandlerMayUseTheCenter,
                            PostingAndLeavingOnManyThreadsIsSafe);

}  // namespace test
