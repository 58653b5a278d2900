#include "device/downloads/retry_plan.h"

#include <gtest/gtest.h>

namespace {

using downloads::RetryPlan;

constexpr platform::Nanoseconds Second = 1'000'000'000;

TEST(RetryPlan, DelaysDoubleUpToTheLongest) {
    RetryPlan plan({Second, 5 * Second, 10});
    for (const platform::Nanoseconds delay : {1, 2, 4, 5, 5}) {
        ASSERT_TRUE(plan.retry(1, false, std::nullopt, 100 * Second));
        EXPECT_EQ(plan.due(1), (100 + delay) * Second);
    }
    EXPECT_EQ(plan.due(2), 0u);
}

TEST(RetryPlan, TheLastAttemptIsTheLast) {
    RetryPlan plan({Second, Second, 3});
    EXPECT_TRUE(plan.retry(1, false, std::nullopt, 0));
    EXPECT_TRUE(plan.retry(1, false, std::nullopt, 0));
    EXPECT_FALSE(plan.retry(1, false, std::nullopt, 0));
    EXPECT_EQ(plan.due(1), 0u);
}

TEST(RetryPlan, AttemptsThatBroughtSomethingCountAnew) {
    RetryPlan plan({Second, 60 * Second, 3});
    for (int attempt = 0; attempt < 10; ++attempt)
        ASSERT_TRUE(plan.retry(1, true, std::nullopt, 0));
    EXPECT_EQ(plan.due(1), Second);
}

TEST(RetryPlan, ASourcesOwnWishIsKept) {
    RetryPlan plan({Second, 60 * Second, 3});
    EXPECT_TRUE(plan.retry(1, false, 20 * Second, 0));
    EXPECT_EQ(plan.due(1), 20 * Second);
}

TEST(RetryPlan, TellsTheNextThatIsDue) {
    RetryPlan plan({Second, 60 * Second, 5});
    EXPECT_EQ(plan.nextDue(0), platform::Never);
    plan.retry(1, false, std::nullopt, 10 * Second);
    plan.retry(2, false, std::nullopt, 5 * Second);
    EXPECT_EQ(plan.nextDue(0), 6 * Second);
    EXPECT_EQ(plan.nextDue(6 * Second), 11 * Second);
    plan.forget(1);
    EXPECT_EQ(plan.nextDue(6 * Second), platform::Never);
}

}  // namespace
