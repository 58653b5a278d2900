#include "device/orlith/names.h"

#include <gtest/gtest.h>

namespace orlith {
namespace {

TEST(HostNames, AnIdentifierIsADecimalNumberInItsOneForm) {
    EXPECT_EQ(parseIdentifier("0"), 0);
    EXPECT_EQ(parseIdentifier("-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(parseIdentifier("9223372036854775807"), INT64_MAX);
    for (const char* text : {"", "+5", "05", "-0", " 5", "5 ", "5/..", "..", "0x5", "1e3",
                             "9223372036854775808", "--5"})
        EXPECT_FALSE(parseIdentifier(text)) << text;
    EXPECT_FALSE(parseIdentifier(std::string("5\0", 2)));
}

TEST(HostNames, AChaptersPictureHasAnIdentifierAHyphenAndMilliseconds) {
    EXPECT_TRUE(isArtworkIdentifier("5"));
    EXPECT_TRUE(isArtworkIdentifier("-5-12346"));
    for (const char* text : {"", "-", "5-", "5-x", "5-1-2", "5--1", "../5-1", "5-/1"})
        EXPECT_FALSE(isArtworkIdentifier(text)) << text;
}

TEST(HostNames, AnExtensionIsShortAndPlain) {
    EXPECT_TRUE(isFileExtension("mp3"));
    EXPECT_TRUE(isFileExtension("abcdefg8"));
    for (const char* text : {"", "MP3", "abcdefghi", "a.b", "a/b", "..", "a b"})
        EXPECT_FALSE(isFileExtension(text)) << text;
}

TEST(HostNames, ASettingsFileIsNamedAsThePluginExpects) {
    EXPECT_TRUE(isSettingsFileName("Sync_.plist"));
    EXPECT_TRUE(
        isSettingsFileName("Sync_Gr\xc3\xbc\xc3\x9f"
                           "e.plist"));
    for (const char* text : {"Sync_1.plist.bak", "sync_1.plist", "Sync_1.xml", "Sync_/../x.plist",
                             "Sync_\n.plist", "Sync_\xff.plist", "Sync.plist"})
        EXPECT_FALSE(isSettingsFileName(text)) << text;
    EXPECT_FALSE(isSettingsFileName(std::string("Sync_\0.plist", 12)));
    EXPECT_TRUE(isSettingsFileName("Sync_" + std::string(244, 'a') + ".plist"));
    EXPECT_FALSE(isSettingsFileName("Sync_" + std::string(245, 'a') + ".plist"));
}

TEST(HostNames, AHostsWordsAreMadePrintable) {
    EXPECT_EQ(printable("a\nb\x1b[0m\xff"), "a?b?[0m?");
    EXPECT_EQ(printable(std::string(1000, 'x')).size(), 128u);
    EXPECT_EQ(cleanUTF8("\xc3\xa9\xc3"), "\xc3\xa9?");
}

}  // namespace
}  // namespace orlith
