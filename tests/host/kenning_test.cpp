#include "host/kenning/kenning.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <random>

#include "host/kenning/kenning_blobs.h"
#include "platform/media_library_properties.h"

namespace host {
namespace {

using testing::ElementsAre;

class Kenning : public testing::Test {
protected:
    MediaFile& add(const std::string& artist, const std::string& album, const std::string& genre,
                   std::int32_t year = 0, std::uint32_t mediaType = KV3MediaTypeMusic) {
        MediaFile& file = files.emplace_back();
        file.mediaType = mediaType;
        file.tags.artist = artist;
        file.tags.album = album;
        file.tags.genre = genre;
        file.tags.year = year;
        return file;
    }
    // Ids are 100, 101 and so on.
    std::vector<KenningTrack> tracks() const {
        std::vector<KenningTrack> result;
        for (std::size_t place = 0; place < files.size(); ++place)
            result.push_back({100 + static_cast<std::int64_t>(place), &files[place]});
        return result;
    }
    std::vector<KenningRecord> records(
        const std::vector<std::vector<std::size_t>>& playlists = {}) const {
        return makeKenningRecords(tracks(), playlists);
    }
    static std::vector<std::int64_t> alike(const KenningRecord& record) {
        std::vector<std::int64_t> ids;
        const auto similarities = decodeKenningSimilarities(record.similarities);
        for (const KenningSimilarity& similarity : similarities.value())
            ids.push_back(similarity.kenningId);
        return ids;
    }

    std::vector<MediaFile> files;
};

TEST_F(Kenning, TheMostAlikeComeFirst) {
    add("Lumen", "Harbour", "Folk", 2019);  // 100
    add("Other", "Else", "Folk", 2018);     // 101: genre and year
    add("Lumen", "Harbour", "Folk", 2019);  // 102: all
    add("Lumen", "Later", "Folk", 2019);    // 103: artist, genre, year
    add("Nobody", "Nothing", "Noise");      // 104: nothing
    EXPECT_THAT(alike(records()[0]), ElementsAre(102, 103, 101));
    EXPECT_THAT(alike(records()[4]), testing::IsEmpty());
}

TEST_F(Kenning, NeighboursInPlaylistsAreAlike) {
    add("A", "", "");
    add("B", "", "");
    add("C", "", "");
    EXPECT_THAT(alike(records({{0, 2, 1}})[0]), ElementsAre(102, 101));
}

TEST_F(Kenning, OnlyMusicAndMusicVideosTakePart) {
    add("A", "X", "G");
    add("A", "X", "G", 0, KV3MediaTypePodcast);
    add("A", "X", "G", 0, KV3MediaTypeMusicVideo);
    add("A", "X", "G").reason = "broken";
    const auto all = records({{0, 1, 2, 3, 99}});
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].kenningId, 100);
    EXPECT_THAT(alike(all[0]), ElementsAre(102));
    EXPECT_EQ(all[1].kenningId, 102);
}

TEST_F(Kenning, NoMoreThanTheLimitAreNamed) {
    for (int count = 0; count < 60; ++count)
        add("A", "X", "G", 2000);
    for (const KenningRecord& record : records())
        EXPECT_EQ(alike(record).size(), KenningMaximumSimilar);
}

TEST_F(Kenning, TheSameTracksGiveTheSameBytes) {
    std::mt19937 random(7);
    for (int count = 0; count < 500; ++count)
        add("Artist " + std::to_string(random() % 20), "Album " + std::to_string(random() % 50),
            "Genre " + std::to_string(random() % 4), 1970 + static_cast<int>(random() % 50));
    const auto first = records();
    const auto second = records();
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t place = 0; place < first.size(); ++place) {
        EXPECT_EQ(first[place].metadata, second[place].metadata);
        EXPECT_EQ(first[place].similarities, second[place].similarities);
        EXPECT_EQ(first[place].checksum, second[place].checksum);
    }
}

TEST_F(Kenning, AGenreThatEverybodySharesCostsNoSquare) {
    const auto timeFor = [this](std::size_t count) {
        while (files.size() < count)
            add("Artist " + std::to_string(files.size() / 30), "", "Rock", 2000);
        const std::clock_t start = std::clock();  // processor time: others may be busy too
        EXPECT_EQ(records().size(), count);
        return std::clock() - start;
    };
    const auto small = timeFor(1'000);
    EXPECT_LT(timeFor(8'000), small * 40) << "8 times the tracks would take 64 times as long";
}

TEST_F(Kenning, MetadataComesBack) {
    MediaFile& file = add("Lumen", "Harbour", "Folk", 2019);
    file.tags.beatsPerMinute = 92;
    file.durationMilliseconds = 3000;
    const KenningMetadata expected{100, "Lumen", "Harbour", "Folk", 2019, 92, 3000};
    EXPECT_EQ(decodeKenningMetadata(records()[0].metadata), expected);
}

TEST_F(Kenning, ThePropertyListHoldsBothBlobsAndTheChecksumIsOverThem) {
    add("A", "X", "G");
    const KenningRecord record = records()[0];
    const platform::Value plist = record.plist();
    ASSERT_TRUE(plist["kenning_metadata"].data());
    EXPECT_EQ(*plist["kenning_metadata"].data(), record.metadata);
    EXPECT_EQ(*plist["kenning_similarities"].data(), record.similarities);
    EXPECT_EQ(record.checksum, kenningChecksum(record.metadata, record.similarities));
    auto changed = record.metadata;
    ++changed.back();
    EXPECT_NE(record.checksum, kenningChecksum(changed, record.similarities));
}

TEST_F(Kenning, TheConfigurationHasItsFourValues) {
    const platform::Value configuration = kenningConfiguration();
    EXPECT_TRUE(configuration["data"].isData());
    EXPECT_EQ(configuration["default_num_results"].int64Value(), 25);
    EXPECT_EQ(configuration["min_num_results"].int64Value(), 5);
    EXPECT_EQ(configuration["version"].int64Value(), KenningVersion);
}

TEST(KenningBlobs, EveryTruncationIsRefused) {
    const auto metadata = encodeKenningMetadata({1, "A", "B", "C", 2, 3, 4});
    for (std::size_t size = 0; size < metadata.size(); ++size)
        EXPECT_FALSE(decodeKenningMetadata(std::span(metadata).first(size)));
    const auto similarities =
        encodeKenningSimilarities(std::vector<KenningSimilarity>{{1, 9}, {2, 8}});
    EXPECT_EQ(decodeKenningSimilarities(similarities)->size(), 2u);
    for (std::size_t size = 0; size < similarities.size(); ++size)
        EXPECT_FALSE(decodeKenningSimilarities(std::span(similarities).first(size)));
}

TEST(KenningBlobs, ScoresThatRiseOrAreZeroAreRefused) {
    EXPECT_FALSE(decodeKenningSimilarities(
        encodeKenningSimilarities(std::vector<KenningSimilarity>{{1, 8}, {2, 9}})));
    EXPECT_FALSE(decodeKenningSimilarities(
        encodeKenningSimilarities(std::vector<KenningSimilarity>{{1, 0}})));
}

TEST(KenningBlobs, AnotherVersionIsRefused) {
    auto metadata = encodeKenningMetadata({});
    ++metadata[4];
    EXPECT_FALSE(decodeKenningMetadata(metadata));
}

}  // namespace
}  // namespace host
