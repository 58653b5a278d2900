#include "device/system/rooted_file_system.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/support/temporary_directory.h"

namespace {

using device::RootedFileSystem;
namespace fs = std::filesystem;

void writeReal(const std::string& path, std::string_view contents) {
    std::ofstream(path, std::ios::binary) << contents;
}

std::string readReal(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A device directory beside a file that nothing in the device may reach.
class RootedFileSystemTest : public ::testing::Test {
protected:
    RootedFileSystemTest() {
        writeReal(outside, "secret");
        fs::create_directory(area / "elsewhere");
        writeReal(area / "elsewhere/file", "secret");
    }
    std::string contents(const std::string& path) {
        const auto bytes = files.readFile(path, 1 << 20, nullptr);
        return bytes ? std::string(bytes->begin(), bytes->end()) : "(absent)";
    }
    void symlink(const std::string& target, const std::string& path) {
        fs::create_symlink(target, root + path);
    }

    test::TemporaryDirectory area;
    const std::string outside = area / "canary";
    const std::string root = area / "device";
    RootedFileSystem files{root};
};

TEST_F(RootedFileSystemTest, NoNameLeadsOut) {
    ASSERT_FALSE(files.createDirectory("/dir/sub"));
    symlink(outside, "/absolute");
    symlink("../canary", "/dir/up");
    symlink("../../../../../../.." + outside, "/dir/far");
    symlink(area / "elsewhere", "/way");
    symlink("/proc/self/root" + outside, "/magic");
    symlink("loop", "/loop");

    for (const std::string path :
         {"/../canary", "/dir/../../canary", "/dir/sub/../../../canary", "/absolute", "/dir/up",
          "/dir/far", "/way/file", "/magic", "/loop", "/loop/x", "/private/../canary",
          "/private/private/../../canary", "//..//canary", "/./../canary"}) {
        EXPECT_EQ(contents(path), "(absent)") << path;
        EXPECT_FALSE(files.fileExists(path)) << path;
        EXPECT_FALSE(files.openInputStream(path)) << path;
    }
    EXPECT_EQ(contents(outside), "(absent)");
}

TEST_F(RootedFileSystemTest, DotDotStopsAtTheRoot) {
    writeReal(root + "/file", "inside");
    EXPECT_EQ(contents("/../../../../file"), "inside");
    ASSERT_FALSE(files.createDirectory("/../made/../other"));
    EXPECT_TRUE(fs::exists(root + "/other"));
    EXPECT_FALSE(fs::exists(area / "other"));
    EXPECT_FALSE(fs::exists(area / "made"));
}

TEST_F(RootedFileSystemTest, AnAbsoluteLinkStartsAtTheDeviceRoot) {
    ASSERT_FALSE(files.createDirectory("/var/mobile"));
    writeReal(root + "/var/mobile/file", "inside");
    symlink("/var/mobile", "/short");
    EXPECT_EQ(contents("/short/file"), "inside");
}

TEST_F(RootedFileSystemTest, ChangesThroughALinkThatLeadsOutTouchNothingOutside) {
    symlink("../elsewhere", "/way");
    symlink(area / "elsewhere", "/absolute");
    writeReal(root + "/file", "inside");
    for (const std::string way : {"/way", "/absolute"}) {
        EXPECT_TRUE(files.createDirectory(way + "/made"));
        EXPECT_TRUE(files.moveItem("/file", way + "/moved"));
        EXPECT_TRUE(files.linkItem("/file", way + "/linked"));
        EXPECT_TRUE(files.renameReplacing("/file", way + "/file"));
        EXPECT_TRUE(files.removeItem(way + "/file"));
        EXPECT_NE(files.unlink(way + "/file"), 0);
        EXPECT_TRUE(files.writeFileDurably(way + "/file", {}));
        EXPECT_FALSE(files.openFile(way + "/new", O_CREAT | O_RDWR, 0644, nullptr));
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(area / "elsewhere"), {}), 1);
    EXPECT_EQ(readReal(area / "elsewhere/file"), "secret");
}

TEST_F(RootedFileSystemTest, RemovalTakesLinksAndNotWhatTheyLeadTo) {
    ASSERT_FALSE(files.createDirectory("/tree/sub"));
    symlink(area / "elsewhere", "/tree/sub/link");
    symlink(area / "elsewhere", "/top");
    EXPECT_FALSE(files.removeItem("/tree"));
    EXPECT_FALSE(files.removeItem("/top"));
    EXPECT_FALSE(fs::exists(root + "/tree"));
    EXPECT_FALSE(fs::is_symlink(root + "/top"));
    EXPECT_EQ(readReal(area / "elsewhere/file"), "secret");
}

TEST_F(RootedFileSystemTest, ListingsDoNotDescendIntoLinks) {
    ASSERT_FALSE(files.createDirectory("/tree/real"));
    symlink("/tree", "/tree/real/again");
    EXPECT_THAT(files.subpathsOfDirectory("/tree"),
                ::testing::UnorderedElementsAre("real", "real/again"));
}

TEST_F(RootedFileSystemTest, TheRootItselfIsNeitherRemovedNorMoved) {
    for (const std::string path : {"/", "//", "/private", "/private/", "/."}) {
        EXPECT_TRUE(files.removeItem(path)) << path;
        EXPECT_TRUE(files.moveItem(path, "/below")) << path;
    }
    EXPECT_TRUE(files.removeItem("/.."));
    EXPECT_TRUE(fs::exists(root));
}

TEST_F(RootedFileSystemTest, LongNamesWorkUpToTheLimitOfTheSystem) {
    const std::string longest(255, 'n');
    EXPECT_FALSE(files.createDirectory("/" + longest));
    EXPECT_EQ(files.createDirectory("/" + longest + "n")->code, ENAMETOOLONG);
    EXPECT_FALSE(files.writeFileDurably("/" + std::string(255, 'f'), {}));

    // 4095 bytes and the NUL, counted without the leading slash.
    std::string longPath;
    for (int level = 0; level < 16; ++level)
        longPath += "/" + std::string(255, 'd');
    EXPECT_FALSE(files.createDirectory(longPath));
    EXPECT_EQ(files.createDirectory(longPath + "/d")->code, ENAMETOOLONG);
    EXPECT_EQ(files.unlink("/" + std::string(5000, 'n')), ENAMETOOLONG);
}

TEST_F(RootedFileSystemTest, ATreeTooDeepToRemoveIsRefused) {
    std::string deep;
    for (int level = 0; level < 300; ++level)
        deep += "/d";
    ASSERT_FALSE(files.createDirectory(deep));
    EXPECT_EQ(files.removeItem("/d")->code, ENAMETOOLONG);
    EXPECT_FALSE(files.removeItem("/d/d/d/d/d" + deep.substr(0, 2 * 50)));
    EXPECT_FALSE(files.removeItem("/d"));
}

TEST_F(RootedFileSystemTest, SpecialFilesAreRefusedWithoutBlocking) {
    ASSERT_EQ(::mkfifo((root + "/fifo").c_str(), 0600), 0);
    platform::OptionalError error;
    EXPECT_FALSE(files.readFile("/fifo", 100, &error));
    EXPECT_EQ(error->code, EINVAL);
    EXPECT_FALSE(files.openInputStream("/fifo"));
    EXPECT_FALSE(files.openFile("/fifo", O_WRONLY, 0, &error));
    EXPECT_TRUE(files.syncFile("/fifo"));
    const auto attributes = files.attributes("/fifo", nullptr);
    ASSERT_TRUE(attributes);
    EXPECT_FALSE(attributes->isRegularFile);
    EXPECT_FALSE(files.removeItem("/fifo"));
}

TEST_F(RootedFileSystemTest, ALinkSwappedDuringTheLookUpNeverLeadsOut) {
    ASSERT_FALSE(files.createDirectory("/inside"));
    writeReal(root + "/inside/file", "inside");
    symlink("inside", "/way");
    std::atomic<bool> done = false;
    std::thread swapper([&] {
        for (bool out = true; !done; out = !out) {
            fs::create_symlink(out ? area / "elsewhere" : std::string("inside"), root + "/next");
            fs::rename(root + "/next", root + "/way");
        }
    });
    for (int i = 0; i < 20000; ++i) {
        const std::string read = contents("/way/../way/file");
        ASSERT_TRUE(read == "inside" || read == "(absent)") << read;
    }
    done = true;
    swapper.join();
}

TEST_F(RootedFileSystemTest, ADurableWriteReplacesTheFileAndLeavesNothingBeside) {
    const platform::Data first{'o', 'n', 'e'}, second{'t', 'w', 'o'};
    ASSERT_FALSE(files.createDirectory("/var"));
    EXPECT_FALSE(files.writeFileDurably("/var/file", first));
    EXPECT_FALSE(files.writeFileDurably("/var/file", second));
    EXPECT_EQ(contents("/var/file"), "two");
    EXPECT_EQ(files.writeFileDurably("/none/file", first)->code, ENOENT);
    EXPECT_TRUE(files.writeFileDurably("/var", first));
    EXPECT_THAT(*files.contentsOfDirectory("/var", nullptr), ::testing::ElementsAre("file"));
    EXPECT_THAT(*files.contentsOfDirectory("/", nullptr), ::testing::ElementsAre("var"));
}

TEST_F(RootedFileSystemTest, ATemporaryFileCanBeFiledOverAnother) {
    std::string temporary;
    platform::OptionalError error;
    auto file = files.openTemporary("/", temporary, &error);
    ASSERT_TRUE(file);
    EXPECT_NE(temporary.find(RootedFileSystem::TemporaryPrefix), std::string::npos);
    ASSERT_EQ(::write(file.get(), "new", 3), 3);
    writeReal(root + "/file", "old");
    EXPECT_FALSE(files.syncFile(temporary));
    EXPECT_FALSE(files.renameReplacing(temporary, "/file"));
    EXPECT_FALSE(files.syncDirectory("/"));
    EXPECT_EQ(contents("/file"), "new");
}

TEST_F(RootedFileSystemTest, FreeSpaceIsThatOfTheDisk) {
    platform::OptionalError error;
    const auto free = files.freeSpace("/", &error);
    ASSERT_TRUE(free);
    EXPECT_GT(*free, 0u);
    EXPECT_LE(*free, fs::space(root).capacity);
    EXPECT_FALSE(files.freeSpace("/none", &error));
    EXPECT_EQ(error->code, ENOENT);
}

TEST_F(RootedFileSystemTest, RealPathsAreOfferedOnlyForPlainDevicePaths) {
    EXPECT_EQ(files.realPath("/private/var/db"), root + "/var/db");
    EXPECT_EQ(files.realPath("/a..b/"), root + "/a..b");
    for (const std::string& path :
         {std::string("/a/../b"), std::string("/.."), std::string("a"), std::string("/a\0b", 4)})
        EXPECT_EQ(files.realPath(path), "");
}

TEST_F(RootedFileSystemTest, ADeviceDirectoryThatCannotBeMadeIsReported) {
    EXPECT_THROW(RootedFileSystem(outside + "/below"), std::system_error);
}

// Not a benchmark: a guard against look-ups that cost several system calls.
TEST_F(RootedFileSystemTest, ARootedOpenCostsLittleMoreThanAPlainOne) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer would be measured";
#endif
    ASSERT_FALSE(files.createDirectory("/var/mobile/Media"));
    writeReal(root + "/var/mobile/Media/file", "x");
    const common::UniqueFd base(::open(root.c_str(), O_PATH | O_DIRECTORY));
    const auto timed = [](auto&& step) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < 500; ++i)
            step();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    const std::string path = "/var/mobile/Media/file";
    device::RootDirectory directory(root);
    double plain = 1e9, rooted = 1e9;
    for (int round = 0; round < 40; ++round) {
        plain = std::min(
            plain, timed([&] {
                common::UniqueFd(::openat(base.get(), path.c_str() + 1, O_RDONLY | O_CLOEXEC));
            }));
        rooted = std::min(rooted, timed([&] {
                              common::UniqueFd file;
                              directory.open(path, O_RDONLY, 0, file);
                          }));
    }
    RecordProperty("ratio", std::to_string(rooted / plain));
    EXPECT_LE(rooted / plain, 1.5);
}

TEST_F(RootedFileSystemTest, AMemoryStreamTakesBytesOnlyWhileItIsOpen) {
    const auto stream = files.makeMemoryOutputStream();
    EXPECT_EQ(stream->write(platform::Data{1}), platform::Error::posix(EBADF));
    stream->open();
    EXPECT_FALSE(stream->write(platform::Data{2}));
    stream->close();
    EXPECT_EQ(stream->write(platform::Data{3}), platform::Error::posix(EBADF));
    EXPECT_EQ(stream->takeData(), platform::Data{2});
}

}  // namespace
