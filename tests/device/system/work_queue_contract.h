// What the queues, semaphores and timers of every platform::OperatingSystem must do. Instantiate
// with a fixture type that is default constructible and has
//     platform::OperatingSystem& operatingSystem();
//     // Lets jobs run and time pass until the condition holds; false when it never does.
//     bool runUntil(const std::function<bool()>& condition);
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/operating_system.h"

namespace test {

template <typename Subject>
class WorkQueueContract : public ::testing::Test {
protected:
    platform::OperatingSystem& system() { return subject.operatingSystem(); }
    bool reaches(const std::atomic<int>& count, int value) {
        return subject.runUntil([&] { return count >= value; });
    }
    // Time for what should not happen to happen.
    void passTime(platform::Nanoseconds time) {
        std::atomic<int> passed = 0;
        system().globalQueue(platform::QueuePriority::Default)->asyncAfter(time, [&] { ++passed; });
        ASSERT_TRUE(reaches(passed, 1));
    }

    static constexpr platform::Nanoseconds millisecond = 1'000'000;
    Subject subject;
};

TYPED_TEST_SUITE_P(WorkQueueContract);

TYPED_TEST_P(WorkQueueContract, ASerialQueueKeepsTheOrder) {
    const auto queue = this->system().makeSerialQueue("label");
    EXPECT_EQ(queue->label(), "label");
    std::vector<int> order;
    std::atomic<int> ran = 0;
    for (int i = 0; i < 5; ++i)
        queue->async([&, i] {
            order.push_back(i);
            ++ran;
        });
    ASSERT_TRUE(this->reaches(ran, 5));
    EXPECT_THAT(order, ::testing::ElementsAre(0, 1, 2, 3, 4));
}

TYPED_TEST_P(WorkQueueContract, AJobKnowsItsQueue) {
    const auto queue = this->system().makeSerialQueue("one");
    const auto other = this->system().makeSerialQueue("two");
    std::atomic<int> ran = 0;
    bool mine = false, others = true;
    queue->async([&] {
        mine = queue->isCurrent();
        others = other->isCurrent();
        ++ran;
    });
    ASSERT_TRUE(this->reaches(ran, 1));
    EXPECT_TRUE(mine);
    EXPECT_FALSE(others);
    EXPECT_FALSE(queue->isCurrent());
}

TYPED_TEST_P(WorkQueueContract, DelayedJobsRunInTheOrderOfTheirTimes) {
    const auto queue = this->system().makeSerialQueue("delayed");
    const platform::Nanoseconds start = this->system().monotonicTime();
    std::vector<int> order;
    std::atomic<int> ran = 0;
    platform::Nanoseconds later = 0;
    queue->asyncAfter(40 * this->millisecond, [&] {
        later = this->system().monotonicTime();
        order.push_back(40);
        ++ran;
    });
    queue->asyncAfter(5 * this->millisecond, [&] {
        order.push_back(5);
        ++ran;
    });
    ASSERT_TRUE(this->reaches(ran, 2));
    EXPECT_THAT(order, ::testing::ElementsAre(5, 40));
    EXPECT_GE(later - start, 40 * this->millisecond);
}

TYPED_TEST_P(WorkQueueContract, ATimerFiresOnItsQueueAtItsTime) {
    const auto queue = this->system().makeSerialQueue("timer");
    const auto timer = this->system().makeTimer(queue);
    const platform::Nanoseconds start = this->system().monotonicTime() + 5 * this->millisecond;
    std::atomic<int> fired = 0;
    platform::Nanoseconds when = 0;
    bool onQueue = false;
    timer->setEventHandler([&] {
        when = this->system().monotonicTime();
        onQueue = queue->isCurrent();
        ++fired;
    });
    timer->setTimer(start, platform::Never, this->millisecond);
    timer->resume();
    ASSERT_TRUE(this->reaches(fired, 1));
    EXPECT_GE(when, start);
    EXPECT_TRUE(onQueue);
}

TYPED_TEST_P(WorkQueueContract, ATimerThatIsSuspendedReplacedOrReleasedDoesNotFire) {
    const auto queue = this->system().makeSerialQueue("timer");
    const auto suspended = this->system().makeTimer(queue);
    const auto replaced = this->system().makeTimer(queue);
    auto released = this->system().makeTimer(queue);
    const platform::Nanoseconds soon = this->system().monotonicTime() + 10 * this->millisecond;
    std::atomic<int> fired = 0;
    for (const auto& timer : {suspended, replaced, released}) {
        timer->setEventHandler([&] { ++fired; });
        timer->setTimer(soon, platform::Never, 0);
    }
    replaced->resume();
    released->resume();
    replaced->setTimer(platform::Never, platform::Never, 0);
    released.reset();
    this->passTime(30 * this->millisecond);
    EXPECT_EQ(fired, 0);
    suspended->resume();
    EXPECT_TRUE(this->reaches(fired, 1));
}

TYPED_TEST_P(WorkQueueContract, ATimerRepeatsAtItsInterval) {
    const auto timer =
        this->system().makeTimer(this->system().globalQueue(platform::QueuePriority::Default));
    std::atomic<int> fired = 0;
    timer->setEventHandler([&] { ++fired; });
    timer->setTimer(this->system().monotonicTime(), this->millisecond, 0);
    timer->resume();
    EXPECT_TRUE(this->reaches(fired, 3));
}

TYPED_TEST_P(WorkQueueContract, AThreadMayWaitForAJob) {
    const auto queue = this->system().globalQueue(platform::QueuePriority::Background);
    const auto semaphore = this->system().makeSemaphore(0);
    queue->async([semaphore] { semaphore->signal(); });
    semaphore->wait();
    const auto counted = this->system().makeSemaphore(2);
    counted->wait();
    counted->wait();
}

REGISTER_TYPED_TEST_SUITE_P(WorkQueueContract, ASerialQueueKeepsTheOrder, AJobKnowsItsQueue,
                            DelayedJobsRunInTheOrderOfTheirTimes, ATimerFiresOnItsQueueAtItsTime,
                            ATimerThatIsSuspendedReplacedOrReleasedDoesNotFire,
                            ATimerRepeatsAtItsInterval, AThreadMayWaitForAJob);

}  // namespace test
