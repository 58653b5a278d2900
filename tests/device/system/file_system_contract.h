// What every platform::FileSystem must do. Instantiate with a fixture type that is default
// constructible and has
//     platform::FileSystem& fileSystem();
//     void writeFile(const std::string& devicePath, std::string_view contents);
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "platform/operating_system.h"

namespace test {

template <typename Subject>
class FileSystemContract : public ::testing::Test {
protected:
    FileSystemContract() { EXPECT_FALSE(files().createDirectory("/var/mobile/Media")); }

    platform::FileSystem& files() { return subject.fileSystem(); }
    std::string contents(const std::string& path) {
        const auto bytes = files().readFile(path, 1 << 20, nullptr);
        return bytes ? std::string(bytes->begin(), bytes->end()) : "(absent)";
    }
    static std::int64_t codeOf(const platform::OptionalError& error) {
        return error ? error->code : 0;
    }

    Subject subject;
};

TYPED_TEST_SUITE_P(FileSystemContract);

TYPED_TEST_P(FileSystemContract, ADirectoryIsMadeWithItsMissingParents) {
    EXPECT_FALSE(this->files().createDirectory("/a/b/c"));
    EXPECT_FALSE(this->files().createDirectory("/a/b/c/"));
    platform::OptionalError error;
    const auto attributes = this->files().attributes("/a/b/c", &error);
    ASSERT_TRUE(attributes);
    EXPECT_TRUE(attributes->isDirectory);
    EXPECT_FALSE(attributes->isRegularFile);
    EXPECT_FALSE(error);
}

TYPED_TEST_P(FileSystemContract, ADirectoryIsNotMadeWhereAFileIs) {
    this->subject.writeFile("/var/file", "x");
    EXPECT_TRUE(this->files().createDirectory("/var/file"));
    EXPECT_EQ(this->codeOf(this->files().createDirectory("/var/file/below")), ENOTDIR);
}

TYPED_TEST_P(FileSystemContract, AFileIsReadUpToTheLimitAndRefusedBeyondIt) {
    this->subject.writeFile("/var/file", "12345");
    platform::OptionalError error;
    EXPECT_EQ(this->files().readFile("/var/file", 5, &error)->size(), 5u);
    EXPECT_FALSE(this->files().readFile("/var/file", 4, &error));
    EXPECT_EQ(this->codeOf(error), EFBIG);
    EXPECT_FALSE(this->files().readFile("/var/none", 4, &error));
    EXPECT_EQ(this->codeOf(error), ENOENT);
    EXPECT_FALSE(this->files().readFile("/var", 4, &error));
    EXPECT_EQ(this->codeOf(error), EISDIR);
}

TYPED_TEST_P(FileSystemContract, AnInputStreamGivesTheFileInPiecesAndThenNothing) {
    this->subject.writeFile("/var/file", "abcde");
    const auto stream = this->files().openInputStream("/var/file");
    ASSERT_TRUE(stream);
    platform::Data bytes;
    EXPECT_FALSE(stream->read(bytes, 3));
    EXPECT_EQ(bytes.size(), 3u);
    EXPECT_FALSE(stream->read(bytes, 3));
    EXPECT_FALSE(stream->read(bytes, 3));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "abcde");
    EXPECT_FALSE(this->files().openInputStream("/var/none"));
    EXPECT_FALSE(this->files().openInputStream("/var"));
}

TYPED_TEST_P(FileSystemContract, AnInputStreamOverBytesGivesThemInPiecesAndThenNothing) {
    const auto stream = this->files().makeInputStream({1, 2, 3, 4, 5});
    platform::Data bytes{0};
    EXPECT_FALSE(stream->read(bytes, 0));
    EXPECT_FALSE(stream->read(bytes, 3));
    EXPECT_EQ(bytes, (platform::Data{0, 1, 2, 3}));
    EXPECT_FALSE(stream->read(bytes, 1000));
    EXPECT_FALSE(stream->read(bytes, 1));
    EXPECT_EQ(bytes, (platform::Data{0, 1, 2, 3, 4, 5}));
    EXPECT_FALSE(this->files().makeInputStream({})->read(bytes, 1));
    EXPECT_EQ(bytes.size(), 6u);
}

TYPED_TEST_P(FileSystemContract, AMemoryOutputStreamKeepsWhatIsWrittenUntilItIsTaken) {
    const auto stream = this->files().makeMemoryOutputStream();
    EXPECT_TRUE(stream->takeData().empty());
    stream->open();
    EXPECT_FALSE(stream->write(platform::Data{1, 2}));
    EXPECT_FALSE(stream->write({}));
    EXPECT_FALSE(stream->write(platform::Data{3}));
    EXPECT_EQ(stream->takeData(), (platform::Data{1, 2, 3}));
    EXPECT_TRUE(stream->takeData().empty());
    EXPECT_FALSE(stream->write(platform::Data{4}));
    stream->close();
    EXPECT_EQ(stream->takeData(), (platform::Data{4}));
}

TYPED_TEST_P(FileSystemContract, PrivateIsTheSamePlaceAsWithoutIt) {
    this->subject.writeFile("/private/var/file", "x");
    EXPECT_EQ(this->contents("/var/file"), "x");
    EXPECT_EQ(this->contents("/private/var/file"), "x");
    EXPECT_FALSE(this->files().createDirectory("/privateer"));
    EXPECT_TRUE(this->files().fileExists("/privateer"));
    EXPECT_TRUE(this->files().fileExists("/private"));
}

TYPED_TEST_P(FileSystemContract, ListingsNameEverythingBelowADirectory) {
    EXPECT_FALSE(this->files().createDirectory("/var/tree/sub"));
    this->subject.writeFile("/var/tree/one", "1");
    this->subject.writeFile("/var/tree/sub/two", "2");
    EXPECT_THAT(*this->files().contentsOfDirectory("/var/tree", nullptr),
                ::testing::UnorderedElementsAre("one", "sub"));
    const auto below = this->files().subpathsOfDirectory("/var/tree");
    EXPECT_THAT(below, ::testing::UnorderedElementsAre("one", "sub", "sub/two"));
    EXPECT_LT(std::find(below.begin(), below.end(), "sub"),
              std::find(below.begin(), below.end(), "sub/two"));
    EXPECT_TRUE(this->files().subpathsOfDirectory("/var/none").empty());
    platform::OptionalError error;
    EXPECT_FALSE(this->files().contentsOfDirectory("/var/none", &error));
    EXPECT_EQ(this->codeOf(error), ENOENT);
}

TYPED_TEST_P(FileSystemContract, LinksAndMovesNeverReplaceWhatIsThere) {
    this->subject.writeFile("/var/one", "1");
    this->subject.writeFile("/var/two", "2");
    EXPECT_EQ(this->codeOf(this->files().linkItem("/var/one", "/var/two")), EEXIST);
    EXPECT_EQ(this->codeOf(this->files().moveItem("/var/one", "/var/two")), EEXIST);
    EXPECT_EQ(this->contents("/var/two"), "2");
    EXPECT_FALSE(this->files().linkItem("/var/one", "/var/three"));
    EXPECT_FALSE(this->files().moveItem("/var/one", "/var/four"));
    EXPECT_FALSE(this->files().fileExists("/var/one"));
    EXPECT_EQ(this->contents("/var/three"), "1");
    EXPECT_EQ(this->contents("/var/four"), "1");
    EXPECT_EQ(this->codeOf(this->files().moveItem("/var/none", "/var/five")), ENOENT);
}

TYPED_TEST_P(FileSystemContract, RemovingADirectoryTakesAllThatItHolds) {
    EXPECT_FALSE(this->files().createDirectory("/var/tree/a/b"));
    this->subject.writeFile("/var/tree/a/b/file", "x");
    EXPECT_FALSE(this->files().removeItem("/var/tree"));
    EXPECT_FALSE(this->files().fileExists("/var/tree"));
    EXPECT_EQ(this->codeOf(this->files().removeItem("/var/tree")), ENOENT);
}

TYPED_TEST_P(FileSystemContract, UnlinkRemovesFilesOnly) {
    this->subject.writeFile("/var/file", "x");
    EXPECT_EQ(this->files().unlink("/var/file"), 0);
    EXPECT_EQ(this->files().unlink("/var/file"), ENOENT);
    EXPECT_NE(this->files().unlink("/var/mobile"), 0);
    EXPECT_TRUE(this->files().fileExists("/var/mobile"));
}

TYPED_TEST_P(FileSystemContract, PathsThatAreNotAbsoluteOrHoldANulAreRefused) {
    for (const std::string& path : {std::string("relative"), std::string(), std::string(".."),
                                    std::string("/var/mobile\0/x", 14)}) {
        platform::OptionalError error;
        EXPECT_FALSE(this->files().fileExists(path));
        EXPECT_FALSE(this->files().attributes(path, &error));
        EXPECT_EQ(this->codeOf(error), EINVAL);
        EXPECT_EQ(this->codeOf(this->files().createDirectory(path)), EINVAL);
        EXPECT_EQ(this->codeOf(this->files().removeItem(path)), EINVAL);
        EXPECT_EQ(this->files().unlink(path), EINVAL);
    }
}

REGISTER_TYPED_TEST_SUITE_P(FileSystemContract, ADirectoryIsMadeWithItsMissingParents,
                            ADirectoryIsNotMadeWhereAFileIs,
                            AFileIsReadUpToTheLimitAndRefusedBeyondIt,
                            AnInputStreamGivesTheFileInPiecesAndThenNothing,
                            AnInputStreamOverBytesGivesThemInPiecesAndThenNothing,
                            AMemoryOutputStreamKeepsWhatIsWrittenUntilItIsTaken,
                            PrivateIsTheSamePlaceAsWithoutIt, ListingsNameEverythingBelowADirectory,
                            LinksAndMovesNeverReplaceWhatIsThere,
                            RemovingADirectoryTakesAllThatItHolds, UnlinkRemovesFilesOnly,
                            PathsThatAreNotAbsoluteOrHoldANulAreRefused);

}  // namespace test
