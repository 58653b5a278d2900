#include "host/scan/file_names.h"

#include <gtest/gtest.h>

#include "host/scan/file_purpose.h"
#include "host/scan/glob.h"

namespace host {
namespace {

TEST(FileNames, DecomposedAndComposedSpellingsMeet) {
    EXPECT_EQ(normalizedName("e\xCC\x81"), "\xC3\xA9");
    EXPECT_EQ(normalizedName("\xC3\xA9"), "\xC3\xA9");
    EXPECT_EQ(normalizedName("plain"), "plain");
}

TEST(FileNames, WhatIsNoUtf8IsComparedByItsBytes) {
    EXPECT_EQ(normalizedName("\xff\xe9 a"), "\xff\xe9 a");
    EXPECT_EQ(caseFoldedName("\xff\xe9 A"), "\xff\xe9 a");
}

TEST(FileNames, CaseFoldingReachesBeyondAscii) {
    EXPECT_EQ(caseFoldedName("ÄRGER"), caseFoldedName("ärger"));
    EXPECT_EQ(caseFoldedName("STRASSE"), caseFoldedName("straße"));
}

TEST(FileNames, DisplayTextIsValidAndCutAtACharacter) {
    EXPECT_EQ(displayText("a\xff\nb\tc\x7f"), "a\xEF\xBF\xBD b c ");
    EXPECT_EQ(displayText("ééé", 5), "éé");
    EXPECT_EQ(displayText(std::string("a\0b", 3)), "a b");
    EXPECT_EQ(displayText("\xE2\x82", 10), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(FileNames, PartsOfAPathAreFound) {
    EXPECT_EQ(folderOfPath("a/b/c.mp3"), "a/b");
    EXPECT_EQ(folderOfPath("c.mp3"), "");
    EXPECT_EQ(fileNameOfPath("a/b/c.mp3"), "c.mp3");
    EXPECT_EQ(stemOfPath("a.b/c.d.mp3"), "c.d");
    EXPECT_EQ(stemOfPath("a.b/c"), "c");
    EXPECT_EQ(extensionOfPath("a/c.MP3"), "mp3");
    EXPECT_EQ(extensionOfPath("a.b/c"), "");
    EXPECT_EQ(extensionOfPath(".mp3"), "");
}

TEST(FilePurpose, IsToldByTheExtension) {
    EXPECT_EQ(purposeOfFile("a.MP3"), FilePurpose::Media);
    EXPECT_EQ(purposeOfFile("a.mkv"), FilePurpose::Media);
    EXPECT_EQ(purposeOfFile("a.wma"), FilePurpose::UnsupportedMedia);
    EXPECT_EQ(purposeOfFile("a.M3U8"), FilePurpose::Playlist);
    EXPECT_EQ(purposeOfFile("Cover.JPEG"), FilePurpose::Image);
    EXPECT_EQ(purposeOfFile("a.cue"), FilePurpose::Ignored);
    EXPECT_EQ(purposeOfFile(".a.mp3"), FilePurpose::Ignored);
    EXPECT_EQ(purposeOfFile("Thumbs.DB"), FilePurpose::Ignored);
    EXPECT_EQ(purposeOfFile("orlith-rules.toml"), FilePurpose::Ignored);
    EXPECT_EQ(purposeOfFile("a"), FilePurpose::Unknown);
}

TEST(Glob, OneStarStaysInItsFolderAndTwoDoNot) {
    EXPECT_TRUE(matchesGlob("*.mp3", "a.mp3"));
    EXPECT_FALSE(matchesGlob("*.mp3", "b/a.mp3"));
    EXPECT_TRUE(matchesGlob("b/*", "b/a.mp3"));
    EXPECT_FALSE(matchesGlob("b/*", "b/c/a.mp3"));
    EXPECT_TRUE(matchesGlob("b/**", "b/c/a.mp3"));
    EXPECT_TRUE(matchesGlob("**/a.mp3", "a.mp3"));
    EXPECT_TRUE(matchesGlob("**/a.mp3", "b/c/a.mp3"));
    EXPECT_TRUE(matchesGlob("b/**/a.mp3", "b/a.mp3"));
    EXPECT_TRUE(matchesGlob("b/**/d*/a.mp3", "b/c/d/e/dd/a.mp3"));
    EXPECT_FALSE(matchesGlob("b/**", "bc"));
    EXPECT_TRUE(matchesGlob("**", "any/thing"));
    EXPECT_FALSE(matchesGlob("a*b*c", "a/b/c"));
    EXPECT_TRUE(matchesGlob("*a*b*", "xxaxxbxx"));
    EXPECT_FALSE(matchesGlob("", "a"));
}

TEST(Glob, AQuestionMarkIsOneCharacter) {
    EXPECT_TRUE(matchesGlob("a?c", "abc"));
    EXPECT_TRUE(matchesGlob("a?c", "aéc"));
    EXPECT_FALSE(matchesGlob("a?c", "a/c"));
    EXPECT_FALSE(matchesGlob("a?c", "ac"));
    EXPECT_TRUE(matchesGlob("a?", "a?"));
}

TEST(Glob, APatternOfManyStarsEndsSoon) {
    std::string pattern;
    for (int count = 0; count < 1000; ++count)
        pattern += "*a";
    EXPECT_FALSE(matchesGlob(pattern + "b", std::string(4000, 'a')));
}

}  // namespace
}  // namespace host
