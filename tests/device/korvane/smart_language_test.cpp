#include "device/korvane/smart_language.h"

#include <gmock/gmock.h>

#include "device/korvane/listing.h"
#include "device/korvane/owner_edits.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using namespace korvane;
using enum SmartOperation;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

SmartRules rulesOf(std::string_view text, std::string_view limit = "") {
    platform::OptionalError error;
    const auto rules = smartRulesOfText(text, limit, error);
    EXPECT_TRUE(rules) << text << ": " << (error ? error->text() : "");
    return rules.value_or(SmartRules());
}

std::string refusalOf(std::string_view text, std::string_view limit = "") {
    platform::OptionalError error;
    EXPECT_FALSE(smartRulesOfText(text, limit, error)) << text;
    return error ? error->text() : "";
}

SmartCondition only(std::string_view text) {
    const SmartRules rules = rulesOf(text);
    EXPECT_EQ(rules.conditions.size(), 1u) << text;
    return rules.conditions.empty() ? SmartCondition() : rules.conditions.front();
}

SmartCondition number(SmartField field, SmartOperation operation, std::int64_t value) {
    return {field, operation, value};
}

TEST(SmartLanguage, ConditionsAreJoinedByAndOrByOr) {
    const SmartRules both = rulesOf("rating >= 4 and genre is Jazz");
    EXPECT_FALSE(both.matchesAny);
    EXPECT_THAT(both.conditions, ElementsAre(number(SmartField::Rating, GreaterOrEqual, 80),
                                             SmartCondition{SmartField::Genre, Equal, "Jazz"}));
    const SmartRules any = rulesOf("Year=1994 OR artist Contains \"or and\" or plays > 3");
    EXPECT_TRUE(any.matchesAny);
    EXPECT_THAT(any.conditions, ElementsAre(number(SmartField::Year, Equal, 1994),
                                            SmartCondition{SmartField::Artist, Contains, "or and"},
                                            number(SmartField::PlayCount, Greater, 3)));
    EXPECT_THAT(refusalOf("year = 1 and year = 2 or year = 3"), HasSubstr("not by both"));
    EXPECT_THAT(rulesOf("all").conditions, IsEmpty());
}

TEST(SmartLanguage, ATextIsSeveralWordsOrQuoted) {
    EXPECT_EQ(only("album is  Harbour  Lights ").value,
              (std::variant<std::int64_t, std::string>("Harbour  Lights")));
    EXPECT_EQ(only("title is not Don't").operation, NotEqual);
    EXPECT_EQ(std::get<std::string>(only(R"(title is "a \"b\" \\ and c")").value),
              R"(a "b" \ and c)");
    EXPECT_EQ(std::get<std::string>(only("genre is ''").value), "");
    EXPECT_EQ(only("comment does not contain x").operation, DoesNotContain);
    EXPECT_EQ(only("album_artist starts with x").operation, BeginsWith);
    EXPECT_EQ(only("Composer ends with x").operation, EndsWith);
}

TEST(SmartLanguage, ValuesHaveTheUnitsOfPeople) {
    EXPECT_EQ(only("rating is 5"), number(SmartField::Rating, Equal, 100));
    EXPECT_EQ(only("length > 3:30"), number(SmartField::TotalTime, Greater, 210'000));
    EXPECT_EQ(only("length < 1:02:03"), number(SmartField::TotalTime, Less, 3'723'000));
    EXPECT_EQ(only("size <= 8 MB"), number(SmartField::TotalSize, LessOrEqual, 8'000'000));
    EXPECT_EQ(only("size <> 1GiB"), number(SmartField::TotalSize, NotEqual, 1 << 30));
    EXPECT_EQ(only("bit-rate >= 256"), number(SmartField::BitRate, GreaterOrEqual, 256'000));
    EXPECT_EQ(only("compilation is yes"), number(SmartField::Compilation, Equal, 1));
    EXPECT_EQ(only("kind is podcast"), number(SmartField::MediaType, AnyBits, 4));
    EXPECT_EQ(only("kind is not Movie"), number(SmartField::MediaType, NoBits, 0x800));
    EXPECT_EQ(only("added in the last 2 weeks"),
              number(SmartField::DateAdded, WithinLast, 1'209'600));
    EXPECT_EQ(only("last-played is not in last 1 day"),
              number(SmartField::LastPlayed, NotWithinLast, 86'400));
    EXPECT_EQ(only("last-played is never"), number(SmartField::LastPlayed, Equal, 0));
    EXPECT_EQ(only("added >= 2024-05-31"),
              number(SmartField::DateAdded, GreaterOrEqual, 1'717'113'600));
}

TEST(SmartLanguage, ALimitKeepsTheFirstByAField) {
    const auto limited = [](std::string_view limit) {
        const SmartRules rules = rulesOf("all", limit);
        return std::tuple(rules.limit, rules.order, rules.isDescending);
    };
    EXPECT_EQ(limited(""), std::tuple(0u, SmartField::DateAdded, false));
    EXPECT_EQ(limited("25"), std::tuple(25u, SmartField::DateAdded, true));
    EXPECT_EQ(limited("3 by rating"), std::tuple(3u, SmartField::Rating, true));
    EXPECT_EQ(limited("3 by lowest play-count"), std::tuple(3u, SmartField::PlayCount, false));
    EXPECT_EQ(limited("3 by title"), std::tuple(3u, SmartField::Title, false));
    EXPECT_EQ(limited("3 by highest title"), std::tuple(3u, SmartField::Title, true));
    EXPECT_THAT(refusalOf("all", "0"), HasSubstr("1 to 1000000"));
    EXPECT_THAT(refusalOf("all", "1000001"), HasSubstr("1 to 1000000"));
    EXPECT_THAT(refusalOf("all", "many"), HasSubstr("1 to 1000000"));
    EXPECT_THAT(refusalOf("all", "3 rating"), HasSubstr("\"by\" is missing"));
    EXPECT_THAT(refusalOf("all", "3 by"), HasSubstr("a field is missing"));
    EXPECT_THAT(refusalOf("all", "3 by size size"), HasSubstr("ends with the field"));
}

TEST(SmartLanguage, ARefusalPointsAtThePlace) {
    EXPECT_THAT(refusalOf("genre is Søl and ratng >= 4"),
                testing::EndsWith("\n  genre is Søl and ratng >= 4\n                   ^"));
    EXPECT_THAT(refusalOf("ratng >= 4"),
                HasSubstr("there is no field \"ratng\"; there are title, "));
    EXPECT_THAT(refusalOf("rating >= 6"),
                testing::EndsWith("rating is 0 to 5 stars\n  rating >= 6\n            ^"));
    EXPECT_THAT(refusalOf("rating"), HasSubstr("after a field comes is"));
    EXPECT_THAT(refusalOf("rating =<> 4"), HasSubstr("after a field comes is"));
    EXPECT_THAT(refusalOf("rating contains 4"), HasSubstr("rating can be asked with is, is not"));
    EXPECT_THAT(refusalOf("title > 4"), HasSubstr("title can be asked with is, is not, contains"));
    EXPECT_THAT(refusalOf("kind > Music"), HasSubstr("kind can be asked with is and is not"));
    EXPECT_THAT(refusalOf("kind is Jazz"), HasSubstr("kind is Music, MusicVideo"));
    EXPECT_THAT(refusalOf("added is 2024-05-31"), HasSubstr("added can be asked with in the last"));
    EXPECT_THAT(refusalOf("added > 2024-13-01"), HasSubstr("like 2024-05-31"));
    EXPECT_THAT(refusalOf("added in the last week"), HasSubstr("like 2 weeks"));
    EXPECT_THAT(refusalOf("added in the 2 weeks"), HasSubstr("\"last\" is missing"));
    EXPECT_THAT(refusalOf("size > 8 parsecs"), HasSubstr("a size, like 8 MB"));
    EXPECT_THAT(refusalOf("size > 99999999999 GiB"), HasSubstr("a size, like 8 MB"));
    EXPECT_THAT(refusalOf("year > 1 year > 2"), HasSubstr("in quotes"));
    EXPECT_THAT(refusalOf("title is \"a"), HasSubstr("no end"));
    EXPECT_THAT(refusalOf("title is \"a\" \"b\""), HasSubstr("and or or is missing here"));
    EXPECT_THAT(refusalOf("title is"), HasSubstr("a value is missing"));
    EXPECT_THAT(refusalOf("title is a and"), HasSubstr("a field is missing"));
    EXPECT_THAT(refusalOf("all and title is a"), HasSubstr("stands alone"));
    EXPECT_THAT(refusalOf(" "), HasSubstr("what the tracks have in common"));
}

TEST(SmartLanguage, LengthAndNumberOfConditionsAreBounded) {
    std::string text = "year=1";
    for (int i = 1; i < 200; ++i)
        text += " or year=1";
    EXPECT_EQ(rulesOf(text).conditions.size(), 200u);
    EXPECT_THAT(refusalOf(text + " or year=1"), HasSubstr("at most 200 conditions"));
    EXPECT_THAT(refusalOf(std::string(16'385, 'x')), HasSubstr("at most 16384 bytes"));
    EXPECT_THAT(refusalOf("title is a\x01"), HasSubstr("control characters"));
    EXPECT_THAT(refusalOf("title is a\xff"), HasSubstr("control characters"));
    EXPECT_THAT(refusalOf("title is " + std::string(1'025, 'x')), HasSubstr("at most 1024 bytes"));
}

TEST(SmartLanguage, WhatIsSaidMeansTheSame) {
    for (const char* text :
         {"all", "rating >= 4 and genre is \"Jazz\"", "title is not \"a \\\"b\\\"\" or year < 3",
          "added in the last 2 weeks", "last-played not in the last 1 month",
          "last-skipped is never", "added > 2024-05-31", "length > 3:30", "length < 1:02:03",
          "size <= 8 MB", "size is 1 GiB", "bit-rate >= 256", "compilation is no",
          "kind is not MusicVideo"}) {
        EXPECT_EQ(textOfSmartRules(rulesOf(text)), text);
    }
    for (const char* limit :
         {"", "25 by added", "3 by lowest rating", "3 by title", "3 by highest album-artist"})
        EXPECT_EQ(textOfSmartLimit(rulesOf("all", limit)), limit);
    EXPECT_EQ(textOfSmartRules(
                  {false,
                   {number(SmartField::MediaType, AnyBits, 12),
                    number(SmartField::Rating, Equal, 90), number(SmartField::DateAdded, Less, -5)},
                   0,
                   SmartField::Title,
                   false}),
              "kind is Music, Podcast and rating is 4.5 and added < -5 seconds since 1970");
}

class SmartPlaylistsOfOnesOwn : public test::LibraryTest {
protected:
    std::vector<std::int64_t> tracksOf(std::int64_t playlist) {
        std::vector<std::int64_t> tracks;
        listPlaylists(*library, [&](const ListedPlaylist& listed) {
            if (listed.persistentID == playlist)
                tracks = listed.tracks;
            return true;
        });
        return tracks;
    }
    platform::OptionalError error;
};

TEST_F(SmartPlaylistsOfOnesOwn, AreFilledAtOnceAndFollowTheOwnersEdits) {
    add({.pid = 1, .title = "One"});
    add({.pid = 2, .title = "Two"});
    add({.pid = 3, .title = "Three", .mediaType = KV3MediaTypePodcast});
    const auto best =
        createSmartPlaylist(*library, "Best", "rating >= 4 and kind is not Podcast", "", error);
    ASSERT_GT(best, 0);
    const auto top = createSmartPlaylist(*library, "Top", "all", "1 by play-count", error);
    EXPECT_THAT(tracksOf(best), IsEmpty());
    for (const std::int64_t track : {1, 2, 3})
        EXPECT_FALSE(rateTrack(*library, track, 4));
    EXPECT_THAT(tracksOf(best), ElementsAre(1, 2));
    EXPECT_FALSE(rateTrack(*library, 1, 3));
    EXPECT_THAT(tracksOf(best), ElementsAre(2));
    EXPECT_FALSE(recordPlay(*library, 3));
    EXPECT_THAT(tracksOf(top), ElementsAre(3));
    EXPECT_FALSE(deleteTrackAsOwner(*library, 3));
    EXPECT_EQ(tracksOf(top).size(), 1u);
    EXPECT_NE(tracksOf(top).front(), 3);
}

TEST_F(SmartPlaylistsOfOnesOwn, FollowChangedFieldsAndGiveNoRevisionWhenFilled) {
    add({.pid = 1, .title = "One"});
    const auto jazz = createSmartPlaylist(*library, "Jazz", "genre is jazz", "", error);
    const FieldEdit edits[] = {{"genre", "Jazz"}};
    EXPECT_FALSE(setTrackFields(*library, 1, edits));
    EXPECT_THAT(tracksOf(jazz), ElementsAre(1));
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE entity_kind = 1 AND revision > "
                     "(SELECT min(revision) FROM entity_revision WHERE entity_kind = 1 AND pid = " +
                     std::to_string(jazz) + ")"),
              0);
}

TEST_F(SmartPlaylistsOfOnesOwn, AreToldWithTheirRules) {
    const auto pid = createSmartPlaylist(*library, "A", "rating = 5", "9 by year", error);
    ASSERT_FALSE(error);
    listPlaylists(*library, [&](const ListedPlaylist& listed) {
        if (listed.persistentID == pid) {
            EXPECT_EQ(listed.rules, "rating is 5");
            EXPECT_EQ(listed.limit, "9 by year");
            EXPECT_TRUE(listed.isSmart);
        }
        return true;
    });
    EXPECT_TRUE(addToPlaylist(*library, pid, {}));
}

TEST_F(SmartPlaylistsOfOnesOwn, ThatAreNotUnderstoodAreNotMade) {
    EXPECT_EQ(createSmartPlaylist(*library, "A", "rating = 6", "", error), 0);
    EXPECT_TRUE(error);
    EXPECT_EQ(createSmartPlaylist(*library, "", "rating = 5", "", error), 0);
    EXPECT_TRUE(error);
    EXPECT_EQ(number("SELECT count(*) FROM container WHERE name = 'A'"), 0);
}

}  // namespace
