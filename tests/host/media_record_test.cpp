#include "host/scan/media_record.h"

#include <gtest/gtest.h>

#include "host/scan/av_tags.h"

namespace host {
namespace {

MediaFile fullFile() {
    MediaFile file;
    file.stamp = {"a\n\xff/b.mp3", 12, 34, 56, 78};
    file.tags.title = "Title";
    file.tags.releaseDate = -5;
    file.tags.compilation = true;
    file.tags.kind = TaggedKind::Movie;
    file.tagsInFile = file.tags;
    file.tagsInFile->title = "";
    file.mediaType = 8;
    file.isRental = true;
    file.readAgain = true;
    file.durationMilliseconds = 1234;
    file.hasVideo = true;
    file.container = "mp4";
    file.chapters = {{0, "One", std::nullopt}, {900, "Two", ContentHash{1, 2}}};
    file.artwork = EmbeddedArtwork{{3, 4}, 5};
    file.contentHash = ContentHash{6, 7};
    return file;
}

TEST(MediaRecord, EverythingComesBack) {
    const MediaFile file = fullFile();
    EXPECT_EQ(decodeMediaFile(encodeMediaFile(file)), file);
    EXPECT_EQ(decodeMediaFile(encodeMediaFile({})), MediaFile());
}

TEST(MediaRecord, EveryTruncationIsRefused) {
    const std::string bytes = encodeMediaFile(fullFile());
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_FALSE(decodeMediaFile(std::string_view(bytes).substr(0, size))) << size;
    EXPECT_FALSE(decodeMediaFile(bytes + '\0'));
}

TEST(MediaRecord, AnotherVersionIsRefused) {
    std::string bytes = encodeMediaFile(fullFile());
    ++bytes[0];
    EXPECT_FALSE(decodeMediaFile(bytes));
}

TEST(AvTags, NumbersAndCountsAreRead) {
    std::int32_t number = 0;
    std::int32_t count = 0;
    readNumberOfCount("03/12", number, count);
    EXPECT_EQ(number, 3);
    EXPECT_EQ(count, 12);
    number = count = 0;
    readNumberOfCount("-3/x", number, count);
    EXPECT_EQ(number, 0);
    EXPECT_EQ(count, 0);
    readNumberOfCount("99999999999999999999", number, count);
    EXPECT_EQ(number, 0);
}

TEST(AvTags, DatesAreReadAsFarAsTheyGo) {
    EXPECT_EQ(yearOf("2024"), 2024);
    EXPECT_EQ(yearOf("2024-05-06"), 2024);
    EXPECT_EQ(yearOf("12"), 0);
    EXPECT_EQ(yearOf("0000"), 0);
    EXPECT_FALSE(secondsOfDate("2024"));
    EXPECT_FALSE(secondsOfDate("2024-13-01"));
    EXPECT_FALSE(secondsOfDate("2023-02-29"));
    EXPECT_EQ(secondsOfDate("1970-01-02"), 86400);
    EXPECT_EQ(secondsOfDate("1970-01-01T01:00:00Z"), 3600);
    EXPECT_EQ(secondsOfDate("1970-01-01T01:00:00+01:00"), 0);
    EXPECT_EQ(secondsOfDate("1970-01-01T01:00:10-00:30"), 5410);
    EXPECT_EQ(secondsOfDate("1969-12-31"), -86400);
}

}  // namespace
}  // namespace host
