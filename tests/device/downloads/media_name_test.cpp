#include "device/downloads/media_name.h"

#include <gtest/gtest.h>

namespace {

using namespace downloads;

TEST(MediaName, ANameFromElsewhereIsMadeHarmless) {
    EXPECT_EQ(harmlessName("../../etc/passwd"), "passwd");
    EXPECT_EQ(harmlessName("C:\\music\\a.mp3"), "a.mp3");
    EXPECT_EQ(harmlessName("..hidden"), "hidden");
    EXPECT_EQ(harmlessName(" a\r\nb\x7F\xC2\x85 "), "ab");
    EXPECT_EQ(harmlessName("a\xFF\xC3\xA9"), "a\xC3\xA9");
    EXPECT_EQ(harmlessName(".."), "");
    EXPECT_EQ(harmlessName(std::string(5000, 'x')).size(), 200u);
}

TEST(MediaName, ADispositionsFileNameIsRead) {
    EXPECT_EQ(dispositionFileName("attachment; filename=a.mp3"), "a.mp3");
    EXPECT_EQ(dispositionFileName("attachment; filename=\"a; \\\"b\\\".mp3\"; size=3"),
              "a; \"b\".mp3");
    EXPECT_EQ(dispositionFileName("attachment; filename=a.mp3; filename*=UTF-8'en'%C3%A9.mp3"),
              "\xC3\xA9.mp3");
    EXPECT_EQ(dispositionFileName("attachment; filename*=latin'"), "");
    EXPECT_EQ(dispositionFileName("attachment; filename=\"a"), "a");
    EXPECT_EQ(dispositionFileName("attachment; filename"), "");
    EXPECT_EQ(dispositionFileName("inline"), "");
    EXPECT_EQ(dispositionFileName(""), "");
}

TEST(MediaName, AFileAlwaysHasAnExtensionOfAMediaFile) {
    EXPECT_EQ(mediaFileName("", "/music/Song.FLAC", "text/html"), "Song.flac");
    EXPECT_EQ(mediaFileName("attachment; filename=B.m4a", "/get.mp3", ""), "B.m4a");
    EXPECT_EQ(mediaFileName("attachment; filename=B", "/get.ogg", ""), "B.ogg");
    EXPECT_EQ(mediaFileName("", "/get.php", "Audio/FLAC; x=1"), "get.php.flac");
    EXPECT_EQ(mediaFileName("", "/Vol. 2", "audio/mp4"), "Vol. 2.m4a");
    EXPECT_EQ(mediaFileName("", "/", ""), "Untitled.mp3");
}

TEST(MediaName, AStemAndAnExtensionAreToldApart) {
    EXPECT_EQ(nameStem("a.b.MP3"), "a.b");
    EXPECT_EQ(nameExtension("a.b.MP3"), "mp3");
    EXPECT_EQ(nameStem("a"), "a");
    EXPECT_EQ(nameExtension("a"), "");
    EXPECT_EQ(nameExtension(".mp3"), "");
}

}  // namespace
