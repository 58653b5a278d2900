#include "SyncBundle/media_paths.h"

#include <gtest/gtest.h>

namespace sync_bundle_tests {
namespace {

TEST(MediaPaths, AComponentIsAppendedWithExactlyOneSlash) {
    EXPECT_EQ(KVPathByAppendingComponent("/a", "b"), "/a/b");
    EXPECT_EQ(KVPathByAppendingComponent("/a//", "//b/c/"), "/a/b/c");
    EXPECT_EQ(KVPathByAppendingComponent("/a/", ""), "/a");
}

TEST(MediaPaths, TheLastComponentIsTheNameWithoutSlashes) {
    EXPECT_EQ(KVLastPathComponent("/a/b.m4a"), "b.m4a");
    EXPECT_EQ(KVLastPathComponent("/a/b//"), "b");
    EXPECT_EQ(KVLastPathComponent("b"), "b");
    EXPECT_EQ(KVLastPathComponent("/"), "");
    EXPECT_EQ(KVLastPathComponent(""), "");
}

}  // namespace
}  // namespace sync_bundle_tests
