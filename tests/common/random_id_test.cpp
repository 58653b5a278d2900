#include "common/random_id.h"

#include <gtest/gtest.h>

#include <set>

namespace {

TEST(RandomId, IsPositiveAndNeverTheSame) {
    std::set<std::int64_t> seen;
    std::int64_t bits = 0;
    for (int i = 0; i < 10'000; ++i) {
        const std::int64_t id = common::randomPositiveId();
        EXPECT_GT(id, 0);
        bits |= id;
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), 10'000u);
    EXPECT_EQ(bits, INT64_MAX);
}

}  // namespace
