#include "device/orlith/job_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

namespace orlith {
namespace {

TEST(JobQueue, RunsEveryJobInTheOrderPushed) {
    std::vector<int> order;
    {
        JobQueue queue(10);
        for (int i = 0; i < 1000; ++i)
            queue.push(3, [&order, i] { order.push_back(i); });
    }
    ASSERT_EQ(order.size(), 1000u);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(JobQueue, NeverHoldsMoreThanItsBudgetButTakesAJobThatIsLarger) {
    std::atomic<int> waiting{0};
    std::atomic<int> most{0};
    JobQueue queue(10);
    for (int i = 0; i < 200; ++i) {
        queue.push(4, [&] { --waiting; });
        most = std::max(most.load(), ++waiting);
    }
    queue.push(1000, [] {});
    queue.drain();
    EXPECT_LE(most, 3);
    EXPECT_EQ(waiting, 0);
}

}  // namespace
}  // namespace orlith
