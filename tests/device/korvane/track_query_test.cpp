#include "device/korvane/track_query.h"

#include <gmock/gmock.h>
#include <rapidcheck.h>

#include <algorithm>

#include "common/sqlite/database.h"
#include "device/korvane/track.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using korvane::TrackQuery;
using platform::Value;

constexpr std::array<KV3TrackProperty, 7> ComparedProperties{
    KV3TrackPropertySyncID,        KV3TrackPropertyStoreVeskaID, KV3TrackPropertyMediaType,
    KV3TrackPropertyNeedsRestore,  KV3TrackPropertyDiscNumber,   KV3TrackPropertyStoreItemID,
    KV3TrackPropertyBaseLocationID};

KV3Predicate everyTrack() {
    return KV3AllCompoundPredicate::predicateMatchingPredicates({});
}

class LibraryQuery : public test::LibraryTest {
protected:
    std::vector<std::int64_t> pids(const KV3Predicate& predicate,
                                   const std::vector<KV3OrderingTerm>& terms = {}) {
        std::vector<std::int64_t> found;
        TrackQuery(library, predicate, terms)
            .enumeratePersistentIDsAndProperties(
                {}, [&](std::int64_t pid, KV3TrackRow) { found.push_back(pid); });
        return found;
    }
};

TEST_F(LibraryQuery, GivesTheValuesInTheOrderAskedFor) {
    add({.pid = 1, .syncID = 7, .title = "Title", .album = "Album"});
    const KV3TrackProperty properties[] = {KV3TrackPropertyAlbum, KV3TrackPropertySyncID,
                                           KV3TrackPropertyGlobalID, KV3TrackPropertyTitle,
                                           KV3TrackPropertySyncArtworkToken};
    int rows = 0;
    TrackQuery(library, everyTrack(), {})
        .enumeratePersistentIDsAndProperties(properties, [&](std::int64_t pid, KV3TrackRow values) {
            ++rows;
            EXPECT_EQ(pid, 1);
            ASSERT_EQ(values.size(), 5u);
            EXPECT_EQ(values[0].string(), "Album");
            EXPECT_EQ(values[1].int64Value(), 7);
            EXPECT_TRUE(values[2].isNull());
            EXPECT_EQ(values[3].string(), "Title");
            EXPECT_TRUE(values[4].isNull());
        });
    EXPECT_EQ(rows, 1);
}

TEST_F(LibraryQuery, TheBlockMayChangeTheLibrary) {
    for (int pid = 1; pid <= 20; ++pid)
        add({.pid = pid});
    int rows = 0;
    TrackQuery(library, everyTrack(), {})
        .enumeratePersistentIDsAndProperties({}, [&](std::int64_t pid, KV3TrackRow) {
            ++rows;
            EXPECT_TRUE(korvane::Track(pid, library).deleteFromLibrary());
        });
    EXPECT_EQ(rows, 20);
    EXPECT_TRUE(pids(everyTrack()).empty());
}

TEST_F(LibraryQuery, SortsByAlbumArtistThenAlbumThenPlace) {
    add({.pid = 1, .album = "b", .albumArtist = "The Zebras", .disc = 1, .number = 2});
    add({.pid = 2, .album = "A", .albumArtist = "abba", .disc = 1, .number = 1});
    add({.pid = 3, .album = "b", .albumArtist = "The Zebras", .disc = 1, .number = 1});
    add({.pid = 4, .album = "B", .albumArtist = "ABBA", .disc = 1, .number = 1});
    add({.pid = 5, .artist = "Ängel", .album = "x"});
    add({.pid = 6});
    const std::vector<KV3OrderingTerm> terms{
        {KV3TrackPropertyAlbumArtistOrder},
        {KV3TrackPropertyAlbumOrder},
        {KV3TrackPropertyDiscNumber},
        {KV3TrackPropertyTrackNumber},
    };
    EXPECT_THAT(pids(everyTrack(), terms), testing::ElementsAre(6, 2, 4, 3, 1, 5));
}

TEST_F(LibraryQuery, AChangedNameMovesItsTracks) {
    add({.pid = 1, .album = "m"});
    add({.pid = 2, .album = "n"});
    const std::vector<KV3OrderingTerm> terms{{KV3TrackPropertyAlbumOrder}};
    EXPECT_THAT(pids(everyTrack(), terms), testing::ElementsAre(1, 2));
    execute("UPDATE item_extra SET sort_album = 'z' WHERE item_pid = 1");
    EXPECT_THAT(pids(everyTrack(), terms), testing::ElementsAre(2, 1));
}

TEST_F(LibraryQuery, NullComparesAsZero) {
    add({.pid = 1});
    add({.pid = 2});
    execute("UPDATE item_store SET veska_id = 5 WHERE item_pid = 2");
    using P = KV3ComparisonPredicate;
    EXPECT_THAT(pids(P::predicateWithPropertyEqualToInt64(KV3TrackPropertyStoreVeskaID, 0)),
                testing::ElementsAre(1));
    EXPECT_THAT(
        pids(P::predicateWithProperty(KV3TrackPropertyStoreVeskaID, 0, KV3ComparisonNotEqual)),
        testing::ElementsAre(2));
    EXPECT_THAT(pids(P::predicateWithProperty(KV3TrackPropertyTitle, Value(), KV3ComparisonEqual)),
                testing::ElementsAre(1, 2));
    EXPECT_TRUE(pids(P::predicateWithProperty(KV3TrackPropertyMediaType, 1, 77)).empty());
}

TEST_F(LibraryQuery, TextsOfAPredicateAreNeverPartOfTheStatement) {
    add({.pid = 1, .title = "' OR 1 = 1 --"});
    add({.pid = 2, .title = "x"});
    EXPECT_THAT(pids(KV3ComparisonPredicate::predicateWithProperty(
                    KV3TrackPropertyTitle, "' OR 1 = 1 --", KV3ComparisonEqual)),
                testing::ElementsAre(1));
}

TEST_F(LibraryQuery, APredicateNestedTooDeepIsRefused) {
    KV3Predicate predicate = everyTrack();
    for (int i = 0; i < 1000; ++i)
        predicate = KV3AllCompoundPredicate::predicateMatchingPredicates({predicate});
    EXPECT_THROW(pids(predicate), std::invalid_argument);
}

// ---- The same questions, answered by a model in memory.

struct ModelTrack {
    std::int64_t pid = 0;
    std::map<KV3TrackProperty, std::optional<std::int64_t>> values;
};

bool compares(std::int64_t left, std::int32_t code, std::int64_t right) {
    switch (code) {
        case KV3ComparisonEqual:
            return left == right;
        case KV3ComparisonNotEqual:
            return left != right;
        case KV3ComparisonGreater:
            return left > right;
        case KV3ComparisonGreaterOrEqual:
            return left >= right;
        case KV3ComparisonLess:
            return left < right;
        case KV3ComparisonLessOrEqual:
            return left <= right;
        case KV3ComparisonAnyBits:
            return (left & right) != 0;
        default:
            return false;
    }
}

bool matches(const ModelTrack& track, const KV3Predicate& predicate) {
    const auto holds = [&](const KV3Predicate& part) { return matches(track, part); };
    switch (predicate.kind) {
        case KV3Predicate::Kind::All:
            return std::ranges::all_of(predicate.operands, holds);
        case KV3Predicate::Kind::Any:
            return std::ranges::any_of(predicate.operands, holds);
        case KV3Predicate::Kind::Comparison:
            break;
    }
    return compares(track.values.at(predicate.property).value_or(0), predicate.comparison,
                    predicate.value.int64Value());
}

KV3Predicate anyPredicate(int depth) {
    const int kind = depth == 0 ? 0 : *rc::gen::inRange(0, 3);
    if (kind == 0)
        return KV3ComparisonPredicate::predicateWithProperty(
            *rc::gen::elementOf(ComparedProperties), Value(*rc::gen::inRange<std::int64_t>(-2, 9)),
            *rc::gen::element(1, 2, 3, 4, 5, 6, 10, 7));
    std::vector<KV3Predicate> parts;
    for (int i = *rc::gen::inRange(0, 4); i > 0; --i)
        parts.push_back(anyPredicate(depth - 1));
    return kind == 1 ? KV3AllCompoundPredicate::predicateMatchingPredicates(parts)
                     : KV3AnyCompoundPredicate::predicateMatchingPredicates(parts);
}

TEST_F(LibraryQuery, AnswersAsAModelInMemoryDoes) {
    const bool holds = rc::check([&] {
        execute("DELETE FROM item");
        std::vector<ModelTrack> model;
        const int count = *rc::gen::inRange(0, 25);
        library->connections().write([&](common::Database& database) {
            for (int i = 0; i < count; ++i) {
                ModelTrack track{1000 + i, {}};
                test::addTrack(database, {.pid = track.pid});
                for (const auto property : ComparedProperties) {
                    const auto value = *rc::gen::inRange<std::int64_t>(-1, 8);
                    const bool isNullable = property == KV3TrackPropertyStoreVeskaID ||
                                            property == KV3TrackPropertyStoreItemID;
                    const bool isNull = isNullable && *rc::gen::arbitrary<bool>();
                    track.values[property] =
                        isNull ? std::nullopt : std::optional<std::int64_t>(value);
                    korvane::Track(track.pid, library)
                        .setValue(isNull ? Value() : Value(value), property);
                }
                model.push_back(track);
            }
            return true;
        });
        const KV3Predicate predicate = anyPredicate(3);
        std::vector<KV3OrderingTerm> terms;
        for (int i = *rc::gen::inRange(0, 6); i > 0; --i)
            terms.push_back({*rc::gen::elementOf(ComparedProperties)});

        std::vector<ModelTrack> expected;
        std::ranges::copy_if(model, std::back_inserter(expected),
                             [&](const ModelTrack& track) { return matches(track, predicate); });
        std::ranges::stable_sort(expected, [&](const ModelTrack& a, const ModelTrack& b) {
            for (const auto& term : terms) {
                const auto left = a.values.at(term.property).value_or(0);
                const auto right = b.values.at(term.property).value_or(0);
                if (left != right)
                    return left < right;
            }
            return false;
        });
        std::vector<std::int64_t> expectedPIDs;
        for (const auto& track : expected)
            expectedPIDs.push_back(track.pid);
        RC_ASSERT(pids(predicate, terms) == expectedPIDs);
        const auto any = korvane::anyTrackMatching(*library, predicate);
        const bool isRight = expectedPIDs.empty()
                                 ? any == 0
                                 : std::ranges::find(expectedPIDs, any) != expectedPIDs.end();
        RC_ASSERT(isRight);
    });
    EXPECT_TRUE(holds);
}

TEST_F(LibraryQuery, SortsByTextsAndByManyTerms) {
    const bool holds = rc::check([&] {
        execute("DELETE FROM item");
        std::vector<std::pair<std::string, std::int64_t>> model;
        const int count = *rc::gen::inRange(0, 20);
        library->connections().write([&](common::Database& database) {
            for (int i = 0; i < count; ++i) {
                const std::string title =
                    *rc::gen::element<std::string>("", "a", "b", "\xc3\xa4", "ab");
                test::addTrack(database, {.pid = 1 + i, .title = title});
                model.emplace_back(title, 1 + i);
            }
            return true;
        });
        std::ranges::stable_sort(model, {}, &std::pair<std::string, std::int64_t>::first);
        std::vector<std::int64_t> expected;
        for (const auto& entry : model)
            expected.push_back(entry.second);
        RC_ASSERT(pids(everyTrack(), {{KV3TrackPropertyTitle}}) == expected);
        RC_ASSERT(pids(everyTrack(), {{KV3TrackPropertyDiscNumber},
                                      {KV3TrackPropertySyncID},
                                      {KV3TrackPropertyMediaType},
                                      {KV3TrackPropertyNeedsRestore},
                                      {KV3TrackPropertyTitle}}) == expected);
    });
    EXPECT_TRUE(holds);
}

}  // namespace
