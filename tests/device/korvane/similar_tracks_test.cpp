#include "device/korvane/similar_tracks.h"

#include <gmock/gmock.h>

#include "common/kenning/similarities.h"
#include "common/sqlite/database.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using namespace korvane;
using common::KenningSimilarity;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class SimilarTracks : public test::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        for (std::int64_t pid = 1; pid <= 5; ++pid) {
            add({.pid = pid, .title = "Track " + std::to_string(pid), .artist = "Artist"});
            execute("UPDATE item_extra SET kenning_id = item_pid * 10 WHERE item_pid = " +
                    std::to_string(pid));
        }
        store(10, common::encodeKenningSimilarities(std::vector<KenningSimilarity>{
                      {40, 9'000}, {20, 9'000}, {990, 800}, {10, 700}, {30, 3}}));
    }
    void store(std::int64_t kenningID, const platform::Data& blob) {
        library->connections().write([&](common::Database& database) {
            database.execute("INSERT OR REPLACE INTO kenning_similarities VALUES (?, ?)", kenningID,
                             blob);
            return true;
        });
    }
    void configure(const std::string& values) {
        execute(
            "INSERT OR REPLACE INTO kenning_config (id, default_num_results, min_num_results, "
            "version) VALUES (0, " +
            values + ")");
    }
    std::vector<std::int64_t> similarTo(std::int64_t pid, std::optional<std::uint32_t> count = {}) {
        answer = {};
        error = findSimilarTracks(*library, pid, count, answer);
        std::vector<std::int64_t> pids;
        for (const SimilarTrack& track : answer.tracks)
            pids.push_back(track.persistentID);
        return pids;
    }
    SimilarAnswer answer;
    platform::OptionalError error;
};

TEST_F(SimilarTracks, ComeInTheOrderOfTheirLikenessWithoutThoseThatAreNotHere) {
    EXPECT_THAT(similarTo(1), ElementsAre(4, 2, 3));
    EXPECT_FALSE(error);
    EXPECT_EQ(answer.tracks[0].likeness, 9'000);
    EXPECT_EQ(answer.tracks[0].title, "Track 4");
    EXPECT_EQ(answer.tracks[0].artist, "Artist");
    EXPECT_EQ(answer.available, 3u);
}

TEST_F(SimilarTracks, TheConfigurationSaysHowManyAndHowFewAreNotWorthIt) {
    configure("2, 1, 1");
    EXPECT_THAT(similarTo(1), ElementsAre(4, 2));
    configure("25, 4, 1");
    EXPECT_THAT(similarTo(1), IsEmpty());
    EXPECT_FALSE(error);
    EXPECT_EQ(answer.available, 3u);
    EXPECT_EQ(answer.minimum, 4u);
    EXPECT_THAT(similarTo(1, 1), ElementsAre(4));
    EXPECT_THAT(similarTo(1, 100), ElementsAre(4, 2, 3));
}

TEST_F(SimilarTracks, NumbersWithoutSenseAreAsIfTheyWereNotThere) {
    for (const char* values : {"NULL, NULL, NULL", "-3, -4, 1", "'many', x'00', 1", "0, 0, 1"}) {
        configure(values);
        EXPECT_THAT(similarTo(1), ElementsAre(4, 2, 3)) << values;
    }
}

TEST_F(SimilarTracks, DataOfAnotherVersionAreRefused) {
    for (const char* version : {"2", "'new'"}) {
        configure(std::string("25, 1, ") + version);
        similarTo(1);
        ASSERT_TRUE(error);
        EXPECT_THAT(error->text(), HasSubstr("does not understand"));
        EXPECT_THAT(answer.tracks, IsEmpty());
    }
}

TEST_F(SimilarTracks, WithoutDataItIsSaidWhatHelps) {
    similarTo(2);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, LibraryErrorNotFound);
    EXPECT_THAT(error->text(), HasSubstr("orlith sync"));
}

TEST_F(SimilarTracks, DamagedDataAreSaidToBe) {
    platform::Data blob =
        common::encodeKenningSimilarities(std::vector<KenningSimilarity>{{20, 5}});
    blob.pop_back();
    store(10, blob);
    similarTo(1);
    ASSERT_TRUE(error);
    EXPECT_THAT(error->text(), HasSubstr("orlith check --repair"));
}

}  // namespace
