#include "host/plan/scan_merge.h"

#include <gtest/gtest.h>

#include "tests/host_sync/folder_maker.h"

namespace host {
namespace {

using test::mediaFile;

class ScanMerge : public testing::Test {
protected:
    ScanMergeResult merge(std::vector<MediaFile> files) {
        scan.files = std::move(files);
        ScanMergeInput input;
        input.now = 77;
        input.hashFile = [this](const FileStamp& stamp) {
            ++hashed;
            return std::optional(contents[stamp.path]);
        };
        return mergeScan(scan, state, ids, input);
    }

    FolderState state;
    IdentitySource ids{42};
    ScanResult scan;
    std::map<std::string, ContentHash> contents;
    int hashed = 0;
};

TEST_F(ScanMerge, NewFilesGetIdentitiesOfTheirOwn) {
    EXPECT_EQ(merge({mediaFile("a"), mediaFile("b")}).added, 2u);
    EXPECT_GT(state.files[0].syncId, 0);
    EXPECT_NE(state.files[0].syncId, state.files[1].syncId);
    EXPECT_NE(state.files[0].syncId, state.files[0].globalId);
    EXPECT_EQ(state.files[0].dateAdded, 77);
    EXPECT_EQ(hashed, 0) << "no media file is read for this";
}

TEST_F(ScanMerge, AFileThatStaysAsItIsChangesNothing) {
    merge({mediaFile("a")});
    state.files[0].changed = false;
    const ScanMergeResult result = merge({mediaFile("a")});
    EXPECT_EQ(result.added + result.changed + result.moved + result.missing, 0u);
    EXPECT_FALSE(state.files[0].changed);
}

TEST_F(ScanMerge, ARenamedFileIsKnownByItsInode) {
    merge({mediaFile("a")});
    const std::int64_t id = state.files[0].syncId;
    EXPECT_EQ(merge({mediaFile("folder/b")}).moved, 1u);
    ASSERT_EQ(state.files.size(), 1u);
    EXPECT_EQ(state.files[0].syncId, id);
    EXPECT_EQ(state.files[0].media.stamp.path, "folder/b");
    EXPECT_EQ(state.fileAt("a"), nullptr);
    EXPECT_EQ(hashed, 0);
}

TEST_F(ScanMerge, ACopiedFileIsKnownByItsContents) {
    merge({mediaFile("a")});
    state.files[0].contentHash = ContentHash{5, 5};
    contents["b"] = ContentHash{5, 5};
    MediaFile moved = mediaFile("b", 1000, 99);
    moved.stamp.inode = 12345;
    EXPECT_EQ(merge({moved}).moved, 1u);
    EXPECT_EQ(state.files.size(), 1u);
}

TEST_F(ScanMerge, AnotherFileOfTheSameSizeIsNew) {
    merge({mediaFile("a")});
    state.files[0].contentHash = ContentHash{5, 5};
    contents["b"] = ContentHash{6, 6};
    MediaFile other = mediaFile("b", 1000, 99);
    other.stamp.inode = 12345;
    const ScanMergeResult result = merge({other});
    EXPECT_EQ(result.added, 1u);
    EXPECT_EQ(result.missing, 1u);
}

TEST_F(ScanMerge, ChangedContentsKeepTheIdentity) {
    merge({mediaFile("a")});
    state.files[0].contentHash = ContentHash{5, 5};
    contents["a"] = ContentHash{6, 6};
    const std::int64_t id = state.files[0].syncId;
    EXPECT_EQ(merge({mediaFile("a", 1000, 2)}).changed, 1u);
    EXPECT_EQ(state.files[0].syncId, id);
    EXPECT_EQ(state.files[0].contentHash, (ContentHash{6, 6}));
}

TEST_F(ScanMerge, AnUnreadableFileKeepsWhatWasKnown) {
    merge({mediaFile("a")});
    MediaFile broken = mediaFile("a", 3, 9);
    broken.reason = "no media";
    merge({broken});
    EXPECT_EQ(state.files[0].presence, Presence::Unreadable);
    EXPECT_EQ(state.files[0].media.stamp.size, 1000);
}

TEST_F(ScanMerge, FilesBelowAnUnreadableFolderAreHiddenNotMissing) {
    merge({mediaFile("in/a"), mediaFile("b")});
    scan.skipped = {{"in/", "permission denied"}};
    EXPECT_EQ(merge({}).missing, 1u);
    EXPECT_EQ(state.fileAt("in/a")->presence, Presence::Hidden);
}

TEST_F(ScanMerge, WhatCameFromTheDeviceIsNotSentBack) {
    merge({mediaFile("Uploads from device/x")});
    EXPECT_TRUE(state.files.empty());
}

}  // namespace
}  // namespace host
