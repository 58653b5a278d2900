#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "device/system/rooted_file_system.h"
#include "tests/support/temporary_directory.h"

namespace {

namespace fs = std::filesystem;

class DiskUsage : public ::testing::Test {
protected:
    DiskUsage() { fs::create_directories(root + "/media/inner"); }

    void write(const std::string& path, std::size_t bytes) {
        std::ofstream(root + path, std::ios::binary) << std::string(bytes, 'x');
        // Some file systems give out blocks only when they write.
        ::sync();
    }
    // What one entry takes, as the file system says.
    std::uint64_t blocksOf(const std::string& path) const {
        struct stat status {};
        EXPECT_EQ(::lstat((root + path).c_str(), &status), 0) << path;
        return static_cast<std::uint64_t>(status.st_blocks) * 512;
    }

    test::TemporaryDirectory area;
    const std::string root = area / "device";
    device::RootedFileSystem files{root};
};

TEST_F(DiskUsage, IsTheSumOfWhatFilesAndDirectoriesTake) {
    write("/media/a", 1000);
    write("/media/inner/b", 100'000);
    EXPECT_GE(blocksOf("/media/inner/b"), 100'000u);
    EXPECT_EQ(files.diskUsage("/media"),
              blocksOf("/media/a") + blocksOf("/media/inner") + blocksOf("/media/inner/b"));
    EXPECT_EQ(files.diskUsage("/private/media"), files.diskUsage("/media"));
    EXPECT_EQ(files.diskUsage("/media/"), files.diskUsage("/media"));
}

TEST_F(DiskUsage, TheHolesOfASparseFileTakeNothing) {
    write("/media/sparse", 1);
    fs::resize_file(root + "/media/sparse", 1u << 30);
    EXPECT_LT(files.diskUsage("/media"), 1u << 20);
}

TEST_F(DiskUsage, AFileWithSeveralNamesCountsOnce) {
    write("/media/a", 100'000);
    const std::uint64_t before = files.diskUsage("/media");
    fs::create_hard_link(root + "/media/a", root + "/media/b");
    fs::create_hard_link(root + "/media/a", root + "/media/inner/c");
    EXPECT_EQ(files.diskUsage("/media"), before);
}

TEST_F(DiskUsage, LinksAreNotFollowed) {
    write("/elsewhere", 100'000);
    fs::create_directory(root + "/folder");
    write("/folder/file", 100'000);
    fs::create_symlink("../elsewhere", root + "/media/link");
    fs::create_directory_symlink("../folder", root + "/media/inner/link");
    fs::create_directory_symlink(".", root + "/media/loop");
    EXPECT_EQ(files.diskUsage("/media"), blocksOf("/media/inner") + blocksOf("/media/link") +
                                             blocksOf("/media/loop") +
                                             blocksOf("/media/inner/link"));
}

TEST_F(DiskUsage, WhatIsNotThereTakesNothing) {
    EXPECT_EQ(files.diskUsage("/nowhere"), 0u);
    write("/file", 1000);
    EXPECT_EQ(files.diskUsage("/file"), 0u);
    EXPECT_EQ(files.diskUsage("relative"), 0u);
}

TEST_F(DiskUsage, TheBlockSizeIsThatOfTheFileSystem) {
    struct statvfs status {};
    ASSERT_EQ(::statvfs(root.c_str(), &status), 0);
    EXPECT_EQ(files.blockSize("/"), status.f_frsize);
    EXPECT_EQ(files.blockSize("/nowhere"), 0u);
}

}  // namespace
