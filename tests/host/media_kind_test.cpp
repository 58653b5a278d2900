#include "host/scan/media_kind.h"

#include <gtest/gtest.h>

#include "host/scan/episode_name.h"
#include "platform/media_library_properties.h"

namespace host {
namespace {

MediaFile fileAt(const std::string& path, bool hasVideo = false) {
    MediaFile file;
    file.stamp.path = path;
    file.hasVideo = hasVideo;
    return file;
}

std::uint32_t kindOf(MediaFile file, const RuleFile& rules = {}) {
    classifyMedia(file, rules);
    return file.mediaType;
}

TEST(MediaKind, FoldersTellTheKind) {
    EXPECT_EQ(kindOf(fileAt("a.mp3")), KV3MediaTypeMusic);
    EXPECT_EQ(kindOf(fileAt("Podcasts/X/a.mp3")), KV3MediaTypePodcast);
    EXPECT_EQ(kindOf(fileAt("podcasts/X/a.mp4", true)), KV3MediaTypeVideoPodcast);
    EXPECT_EQ(kindOf(fileAt("Audiobooks/a.mp3")), KV3MediaTypeAudiobook);
    EXPECT_EQ(kindOf(fileAt("Films/a.mp4", true)), KV3MediaTypeMovie);
    EXPECT_EQ(kindOf(fileAt("TV Shows/X/a.mp4", true)), KV3MediaTypeTVEpisode);
    EXPECT_EQ(kindOf(fileAt("Home Videos/a.mp4", true)), KV3MediaTypeHomeVideo);
    EXPECT_EQ(kindOf(fileAt("Music Videos/a.mp4", true)), KV3MediaTypeMusicVideo);
    EXPECT_EQ(kindOf(fileAt("Music/a.mp4", true)), KV3MediaTypeMusicVideo);
    EXPECT_EQ(kindOf(fileAt("TesselU/a.mp3")), KV3MediaTypeTesselU);
    EXPECT_EQ(kindOf(fileAt("TesselU/a.mp4", true)), KV3MediaTypeTesselUVideo);
    EXPECT_EQ(kindOf(fileAt("Podcasts/Movies/a.mp4", true)), KV3MediaTypeMovie) << "innermost";
}

TEST(MediaKind, AHintThatDoesNotFitIsPassedOver) {
    EXPECT_EQ(kindOf(fileAt("Movies/sound track.mp3")), KV3MediaTypeMusic);
    EXPECT_EQ(kindOf(fileAt("Audiobooks/a.mp4", true)), KV3MediaTypeMovie);
}

TEST(MediaKind, FilmsWithoutAHintAreEpisodesHomeVideosOrFilms) {
    EXPECT_EQ(kindOf(fileAt("X.S02E03.mkv", true)), KV3MediaTypeTVEpisode);
    EXPECT_EQ(kindOf(fileAt("IMG_0042.mp4", true)), KV3MediaTypeHomeVideo);
    EXPECT_EQ(kindOf(fileAt("a.mov", true)), KV3MediaTypeHomeVideo);
    EXPECT_EQ(kindOf(fileAt("Clipped Wings.mp4", true)), KV3MediaTypeMovie);
}

TEST(MediaKind, TagsComeBeforeFoldersAndRulesBeforeTags) {
    MediaFile file = fileAt("Movies/a.mp4", true);
    file.tags.kind = TaggedKind::TVEpisode;
    EXPECT_EQ(kindOf(file), KV3MediaTypeTVEpisode);
    RuleFile rules;
    ASSERT_FALSE(RuleFile::parse("[[rule]]\nmatch=\"*\"\nkind=\"home-video\"\n", rules));
    EXPECT_EQ(kindOf(file, rules), KV3MediaTypeHomeVideo);
}

TEST(MediaKind, GenreExtensionAndPodcastMarksCountAsTags) {
    MediaFile file = fileAt("Music/a.mp3");
    file.tags.genre = "Audiobook";
    EXPECT_EQ(kindOf(file), KV3MediaTypeAudiobook);
    file.tags.genre = "";
    file.tags.podcastFeed = "https://feed";
    EXPECT_EQ(kindOf(file), KV3MediaTypePodcast);
    EXPECT_EQ(kindOf(fileAt("Music/a.m4b")), KV3MediaTypeAudiobook);
}

TEST(MediaKind, RentalsAreMarked) {
    MediaFile file = fileAt("Rentals/a.mp4", true);
    classifyMedia(file, {});
    EXPECT_TRUE(file.isRental);
    EXPECT_EQ(file.mediaType, KV3MediaTypeMovie);
}

TEST(MediaKind, EveryNameOfAKindLeadsBackToIt) {
    for (const std::uint32_t type :
         {KV3MediaTypeMusic, KV3MediaTypeAudiobook, KV3MediaTypePodcast, KV3MediaTypeVideoPodcast,
          KV3MediaTypeMovie, KV3MediaTypeTVEpisode, KV3MediaTypeMusicVideo, KV3MediaTypeHomeVideo,
          KV3MediaTypeTesselU, KV3MediaTypeTesselUVideo})
        EXPECT_EQ(mediaTypeNamed(nameOfMediaType(type)), type);
    EXPECT_FALSE(mediaTypeNamed("flim"));
}

TEST(MediaKind, TheNameStandsInForAMissingTitle) {
    MediaFile file = fileAt("A/01 Song.mp3");
    classifyMedia(file, {});
    EXPECT_EQ(file.tags.title, "01 Song");
    ASSERT_TRUE(file.tagsInFile);
    EXPECT_EQ(file.tagsInFile->title, "");
}

TEST(EpisodeName, ReadsShowNumbersAndTitle) {
    const auto name = episodeNameOf("TV/Low.Tide.S01E12.The_End.mkv");
    ASSERT_TRUE(name);
    EXPECT_EQ(name->show, "Low Tide");
    EXPECT_EQ(name->season, 1);
    EXPECT_EQ(name->episode, 12);
    EXPECT_EQ(name->title, "The End");
}

TEST(EpisodeName, IsFoundAtTheStartAndWithoutATitle) {
    const auto name = episodeNameOf("s3e4.mp4");
    ASSERT_TRUE(name);
    EXPECT_EQ(name->show, "");
    EXPECT_EQ(name->season, 3);
    EXPECT_EQ(name->episode, 4);
    EXPECT_EQ(name->title, "");
}

TEST(EpisodeName, IsNotFoundInOtherWords) {
    for (const char* path : {"Class1E2.mp4", "s.mp4", "S1.mp4", "S01 01.mp4", "s99999e1.mp4",
                             "s1e99999.mp4", "s1e.mp4"})
        EXPECT_FALSE(episodeNameOf(path)) << path;
}

TEST(EpisodeName, TheShowIsTheFolderAboveTheSeason) {
    EXPECT_EQ(showByFolder("TV Shows/Tide/Season 1/a.mp4"), "Tide");
    EXPECT_EQ(showByFolder("TV Shows/Tide/a.mp4"), "Tide");
    EXPECT_EQ(showByFolder("TV Shows/a.mp4"), "");
    EXPECT_EQ(showByFolder("a.mp4"), "");
}

}  // namespace
}  // namespace host
