#include "device/system/log_service.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "common/unique_fd.h"
#include "device/system/log_text.h"
#include "tests/support/temporary_directory.h"

namespace {

using platform::LogLevel;

platform::LogRecord record(std::string message) {
    return {.level = LogLevel::Warning,
            .category = "com.example.bundle",
            .file = "SyncBundle/Client",
            .operation = "doThis:withThat:",
            .line = 12,
            .message = std::move(message)};
}

TEST(LogText, WhatCouldForgeALineIsEscaped) {
    EXPECT_EQ(device::escapedLogText("plain \xc3\xa4 \\ text"), "plain \xc3\xa4 \\ text");
    EXPECT_EQ(device::escapedLogText("a\nb\r\tc"), "a\\nb\\r\\tc");
    EXPECT_EQ(device::escapedLogText(std::string("\0\x1b[31m\x7f", 7)), "\\x00\\x1b[31m\\x7f");
    EXPECT_EQ(device::escapedLogText("\xc2\x9b"), "\\x9b");
    EXPECT_EQ(device::escapedLogText("\xe2\x80\xae\xe2\x80\xa8"), "\\u202e\\u2028");
    EXPECT_EQ(device::escapedLogText("\xff\xc3"), "\\xff\\xc3");
}

TEST(LogText, ALineNamesLevelCategoryAndOperation) {
    EXPECT_EQ(device::logLine(record("no\nfile")),
              "warning [com.example.bundle] doThis:withThat:: no\\nfile");
}

TEST(LogText, AJournalEntryHasFieldsOfItsOwn) {
    EXPECT_THAT(
        device::journalFields(record("a\nPRIORITY=0")),
        ::testing::ElementsAre("MESSAGE=a\\nPRIORITY=0", "PRIORITY=4",
                               "CODE_FILE=SyncBundle/Client", "CODE_LINE=12",
                               "CODE_FUNC=doThis:withThat:", "ORLITH_CATEGORY=com.example.bundle"));
}

TEST(LogText, TheJournalIsRecognisedByDeviceAndInode) {
    test::TemporaryDirectory directory;
    const common::UniqueFd file(::open((directory / "stream").c_str(), O_CREAT | O_RDWR, 0600));
    struct stat status {};
    ASSERT_EQ(::fstat(file.get(), &status), 0);
    const std::string name = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    EXPECT_TRUE(device::isJournalStream(file.get(), name.c_str()));
    EXPECT_FALSE(device::isJournalStream(file.get(), (name + "0").c_str()));
    EXPECT_FALSE(device::isJournalStream(file.get(), ""));
    EXPECT_FALSE(device::isJournalStream(file.get(), nullptr));
    EXPECT_FALSE(device::isJournalStream(-1, name.c_str()));
}

TEST(LogService, LogsUpToItsLevel) {
    device::LogService log(LogLevel::Error);
    EXPECT_TRUE(log.shouldLog(LogLevel::Emergency, "any"));
    EXPECT_TRUE(log.shouldLog(LogLevel::Error, "any"));
    EXPECT_FALSE(log.shouldLog(LogLevel::Warning, "any"));
    log.setLevel(LogLevel::Debug);
    EXPECT_TRUE(log.shouldLog(LogLevel::Debug, "any"));
}

TEST(LogService, WritesOneLineWithItsTimeToStandardError) {
    ::testing::internal::CaptureStderr();
    device::LogService log;
    log.log(record("one\ntwo"));
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::MatchesRegex("[0-9]+-[0-9]+-[0-9]+T[0-9:.]+[+-][0-9:]+ warning "
                                        ".com.example.bundle. doThis:withThat:: one.ntwo\n"));
}

}  // namespace
