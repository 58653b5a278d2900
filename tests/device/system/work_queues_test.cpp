#include "device/system/work_queues.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "device/system/timer_service.h"
#include "device/system/worker_pool.h"

namespace {

using device::WorkQueues;
using platform::Nanoseconds;
using platform::Never;
using platform::QueuePriority;
using namespace std::chrono_literals;

constexpr Nanoseconds millisecond = 1'000'000;
constexpr auto patience = 20s;

// Counts, and waits for a count with a deadline.
class Counter {
public:
    void add() {
        const std::lock_guard lock(_mutex);
        ++_count;
        _changed.notify_all();
    }
    bool reaches(int count) {
        std::unique_lock lock(_mutex);
        return _changed.wait_for(lock, patience, [&] { return _count >= count; });
    }
    int count() {
        const std::lock_guard lock(_mutex);
        return _count;
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    int _count = 0;
};

// Returns when the jobs given to a serial queue before are over.
bool finish(platform::WorkQueue& queue) {
    const auto done = std::make_shared<Counter>();
    queue.async([done] { done->add(); });
    return done->reaches(1);
}

TEST(SerialQueue, JobsRunOneAtATimeInTheOrderGiven) {
    WorkQueues queues;
    const auto queue = queues.makeSerialQueue("serial");
    EXPECT_EQ(queue->label(), "serial");
    std::vector<int> order;
    std::atomic<int> inside = 0;
    bool overlapped = false;
    for (int i = 0; i < 1000; ++i)
        queue->async([&, i] {
            overlapped = overlapped || ++inside != 1;
            order.push_back(i);
            --inside;
        });
    ASSERT_TRUE(finish(*queue));
    ASSERT_EQ(order.size(), 1000u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_FALSE(overlapped);
}

TEST(SerialQueue, KnowsWhetherItRunsTheCallingThread) {
    WorkQueues queues;
    const auto queue = queues.makeSerialQueue("one"), other = queues.makeSerialQueue("two");
    bool mine = false, others = true;
    queue->async([&] {
        mine = queue->isCurrent();
        others = other->isCurrent() || queues.globalQueue(QueuePriority::Default)->isCurrent();
    });
    ASSERT_TRUE(finish(*queue));
    EXPECT_TRUE(mine);
    EXPECT_FALSE(others);
    EXPECT_FALSE(queue->isCurrent());
}

TEST(SerialQueue, AReleasedQueueRunsTheJobsThatItHas) {
    WorkQueues queues;
    Counter done;
    auto queue = queues.makeSerialQueue("released");
    for (int i = 0; i < 100; ++i)
        queue->async([&] { done.add(); });
    queue.reset();
    EXPECT_TRUE(done.reaches(100));
}

TEST(SerialQueue, AJobIsReleasedAfterItRan) {
    WorkQueues queues;
    const auto queue = queues.makeSerialQueue("serial");
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = held;
    queue->async([held = std::move(held)] {});
    ASSERT_TRUE(finish(*queue));
    EXPECT_TRUE(watched.expired());
}

TEST(GlobalQueue, IsOnePerPriority) {
    WorkQueues queues;
    EXPECT_EQ(queues.globalQueue(QueuePriority::Low), queues.globalQueue(QueuePriority::Low));
    EXPECT_NE(queues.globalQueue(QueuePriority::Low), queues.globalQueue(QueuePriority::High));
}

TEST(GlobalQueue, JobsThatWaitForLaterJobsDoNotStarveThePool) {
    WorkQueues queues(2);
    for (const auto priority : {QueuePriority::High, QueuePriority::Background}) {
        const auto queue = queues.globalQueue(priority);
        constexpr int chain = 100;
        Counter done;
        std::vector<std::shared_ptr<platform::Semaphore>> links;
        for (int i = 0; i <= chain; ++i)
            links.push_back(device::makeSemaphore(0));
        // Each waits for the next one, which is given only after it.
        for (std::size_t i = 0; i < chain; ++i)
            queue->async([&, i] {
                links[i + 1]->wait();
                links[i]->signal();
                done.add();
            });
        queue->async([&] { links[chain]->signal(); });
        EXPECT_TRUE(done.reaches(chain));
        links[0]->wait();
    }
    EXPECT_TRUE(queues.shutdown(patience));
}

TEST(GlobalQueue, ThePoolShrinksAgainAfterAWait) {
    WorkQueues queues(2);
    const auto queue = queues.globalQueue(QueuePriority::Default);
    const auto gate = device::makeSemaphore(0);
    Counter waiting, done;
    for (int i = 0; i < 50; ++i)
        queue->async([&] {
            waiting.add();
            gate->wait();
            done.add();
        });
    ASSERT_TRUE(waiting.reaches(50));
    for (int i = 0; i < 50; ++i)
        gate->signal();
    ASSERT_TRUE(done.reaches(50));

    // Of many jobs no more than two are inside at once again.
    std::atomic<int> inside = 0, most = 0;
    Counter ran;
    for (int i = 0; i < 500; ++i)
        queue->async([&] {
            const int now = ++inside;
            for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
            }
            std::this_thread::yield();
            --inside;
            ran.add();
        });
    ASSERT_TRUE(ran.reaches(500));
    EXPECT_LE(most, 2);
}

TEST(GlobalQueue, ABlockingScopeLetsAnotherJobRun) {
    WorkQueues queues(1);
    const auto queue = queues.globalQueue(QueuePriority::Low);
    Counter second, first;
    queue->async([&] {
        const device::BlockingScope blocking;
        if (second.reaches(1))
            first.add();
    });
    queue->async([&] { second.add(); });
    EXPECT_TRUE(first.reaches(1));
}

TEST(SemaphoreTest, CountsSignalsThatNobodyWaitedFor) {
    const auto semaphore = device::makeSemaphore(1);
    semaphore->signal();
    semaphore->wait();
    semaphore->wait();
    std::atomic<bool> passed = false;
    std::thread waiter([&] {
        semaphore->wait();
        passed = true;
    });
    EXPECT_FALSE(passed);
    semaphore->signal();
    waiter.join();
    EXPECT_TRUE(passed);
}

TEST(DelayedJob, RunsNotBeforeItsTime) {
    WorkQueues queues;
    const auto queue = queues.makeSerialQueue("delayed");
    Counter done;
    const Nanoseconds start = device::monotonicNow();
    std::atomic<Nanoseconds> ran = 0;
    std::atomic<bool> onQueue = false;
    queue->asyncAfter(20 * millisecond, [&] {
        ran = device::monotonicNow();
        onQueue = queue->isCurrent();
        done.add();
    });
    ASSERT_TRUE(done.reaches(1));
    EXPECT_GE(ran - start, 20 * millisecond);
    EXPECT_TRUE(onQueue);
}

TEST(DelayedJob, IsDroppedWhenTheQueuesShutDown) {
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = held;
    {
        WorkQueues queues;
        const auto queue = queues.globalQueue(QueuePriority::Low);
        queue->asyncAfter(Never, [held] {});
        queue->asyncAfter(Never - 1, [held] {});
        queue->asyncAfter(3600'000 * millisecond, [held = std::move(held)] {});
        EXPECT_TRUE(queues.shutdown(patience));
    }
    EXPECT_TRUE(watched.expired());
}

TEST(Timer, FiresOnItsQueueOnceStartedAndResumed) {
    WorkQueues queues;
    const auto queue = queues.makeSerialQueue("timer");
    const auto timer = queues.makeTimer(queue);
    Counter fired;
    std::atomic<bool> onQueue = false;
    const Nanoseconds start = device::monotonicNow() + 5 * millisecond;
    std::atomic<Nanoseconds> when = 0;
    timer->setEventHandler([&] {
        onQueue = queue->isCurrent();
        when = device::monotonicNow();
        fired.add();
    });
    timer->setTimer(start, Never, 0);
    timer->resume();
    ASSERT_TRUE(fired.reaches(1));
    EXPECT_TRUE(onQueue);
    EXPECT_GE(when, start);
}

// Returns when what was due on the queue has fired: a delayed job that is due after it has run.
void passTime(const std::shared_ptr<platform::WorkQueue>& queue) {
    Counter passed;
    queue->asyncAfter(30 * millisecond, [&] { passed.add(); });
    ASSERT_TRUE(passed.reaches(1));
}

TEST(Timer, NeverIsNeverDue) {
    WorkQueues queues;
    const auto queue = queues.makeSerialQueue("timer");
    const auto suspended = queues.makeTimer(queue), never = queues.makeTimer(queue);
    Counter fired;
    for (const auto& timer : {suspended, never})
        timer->setEventHandler([&] { fired.add(); });
    suspended->setTimer(0, Never, 0);
    never->setTimer(Never, Never, 0);
    never->resume();
    never->resume();
    passTime(queue);
    EXPECT_EQ(fired.count(), 0);
    suspended->resume();
    EXPECT_TRUE(fired.reaches(1));
}

TEST(Timer, AnIntervalRepeatsIt) {
    WorkQueues queues;
    const auto timer = queues.makeTimer(queues.globalQueue(QueuePriority::Default));
    Counter fired;
    timer->setEventHandler([&] { fired.add(); });
    timer->setTimer(device::monotonicNow(), millisecond, 0);
    timer->resume();
    EXPECT_TRUE(fired.reaches(5));
}

TEST(Timer, ALaterSettingReplacesTheEarlierOne) {
    WorkQueues queues;
    const auto queue = queues.makeSerialQueue("timer");
    const auto timer = queues.makeTimer(queue);
    Counter fired;
    timer->setEventHandler([&] { fired.add(); });
    timer->resume();
    // The first firing is in the queue behind this job when the setting is replaced.
    queue->async([&] {
        timer->setTimer(device::monotonicNow(), Never, 0);
        Counter passed;
        queues.globalQueue(QueuePriority::Low)->asyncAfter(20 * millisecond, [&] { passed.add(); });
        EXPECT_TRUE(passed.reaches(1));
        timer->setTimer(Never, Never, 0);
    });
    ASSERT_TRUE(finish(*queue));
    passTime(queue);
    EXPECT_EQ(fired.count(), 0);
    timer->setTimer(device::monotonicNow(), Never, 0);
    EXPECT_TRUE(fired.reaches(1));
}

TEST(Timer, AReleasedTimerFiresNoLongerAndReleasesItsHandler) {
    WorkQueues queues;
    const auto queue = queues.makeSerialQueue("timer");
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = held;
    auto timer = queues.makeTimer(queue);
    Counter fired;
    timer->setEventHandler([&, held = std::move(held)] { fired.add(); });
    timer->setTimer(device::monotonicNow() + 10 * millisecond, millisecond, 0);
    timer->resume();
    timer.reset();
    EXPECT_TRUE(watched.expired());
    passTime(queue);
    EXPECT_EQ(fired.count(), 0);
}

TEST(Timer, MayBeReleasedByItsOwnHandler) {
    WorkQueues queues;
    auto timer = queues.makeTimer(queues.makeSerialQueue("timer"));
    Counter fired;
    timer->setEventHandler([&] {
        timer.reset();
        fired.add();
    });
    timer->setTimer(device::monotonicNow(), millisecond, 0);
    timer->resume();
    EXPECT_TRUE(fired.reaches(1));
    EXPECT_TRUE(queues.shutdown(patience));
    EXPECT_EQ(fired.count(), 1);
}

TEST(WorkQueuesShutdown, LetsJobsAndWhatTheyAddEnd) {
    WorkQueues queues;
    const auto queue = queues.makeSerialQueue("serial");
    std::atomic<int> ran = 0;
    for (int i = 0; i < 10; ++i)
        queue->async([&] {
            ++ran;
            queues.globalQueue(QueuePriority::Default)->async([&] { ++ran; });
        });
    EXPECT_TRUE(queues.shutdown(patience));
    EXPECT_EQ(ran, 20);
    queue->async([&] { ++ran; });
    EXPECT_EQ(ran, 20);
}

TEST(WorkQueuesShutdown, GivesUpOnAJobAtTheDeadline) {
    const auto gate = device::makeSemaphore(0);
    const auto released = std::make_shared<Counter>();
    WorkQueues queues;
    Counter waiting;
    queues.globalQueue(QueuePriority::Low)->async([&waiting, gate, released] {
        waiting.add();
        gate->wait();
        released->add();
    });
    ASSERT_TRUE(waiting.reaches(1));
    EXPECT_FALSE(queues.shutdown(20ms));
    gate->signal();
    EXPECT_TRUE(released->reaches(1));
}

TEST(WorkQueuesDeathTest, AJobThatThrowsEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            WorkQueues queues;
            const auto queue = queues.makeSerialQueue("throws");
            queue->async([] { throw std::runtime_error("no good"); });
            finish(*queue);
        },
        "a job threw: no good");
}

TEST(WorkQueuesUnderLoad, ManyThreadsGiveJobsTimersAndWaits) {
    WorkQueues queues(2);
    Counter done;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                const auto serial = queues.makeSerialQueue("load");
                const auto semaphore = device::makeSemaphore(0);
                queues.globalQueue(QueuePriority::Background)->async([&, semaphore] {
                    semaphore->wait();
                    done.add();
                });
                serial->asyncAfter(millisecond / 10, [semaphore] { semaphore->signal(); });
                const auto timer = queues.makeTimer(serial);
                timer->setEventHandler([] {});
                timer->setTimer(device::monotonicNow(), millisecond, 0);
                timer->resume();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(done.reaches(400));
    EXPECT_TRUE(queues.shutdown(patience));
}

}  // namespace
