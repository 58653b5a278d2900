#include "link/anchors.h"

#include <gtest/gtest.h>

namespace orlith::link {
namespace {

TEST(Anchors, AnUpdatesAnchorIsAnotherOneOfTheSameSync) {
    EXPECT_EQ(anchorOfUpdate("host-3"), "host-3+1");
    EXPECT_EQ(anchorOfUpdate("host-3+1"), "host-3+2");
    EXPECT_EQ(anchorOfUpdate("host-3+9"), "host-3+10");
    EXPECT_EQ(anchorOfUpdate("0"), "0+1");
    EXPECT_EQ(anchorOfSync("host-3+10"), "host-3");
    EXPECT_EQ(anchorOfSync("host-3"), "host-3");
    EXPECT_EQ(anchorOfSync(""), "");
}

TEST(Anchors, WhatIsNoNumberBehindTheMarkIsCountedAnew) {
    EXPECT_EQ(anchorOfUpdate("host+"), "host+1");
    EXPECT_EQ(anchorOfUpdate("host+x"), "host+1");
    EXPECT_EQ(anchorOfUpdate("host+99999999999999999999"), "host+1");
    EXPECT_NE(anchorOfUpdate("host+4294967295"), "host+4294967295");
}

}  // namespace
}  // namespace orlith::link
