// Metadata updates: one track's fields as a host sends them outside of a session.
#include <gmock/gmock.h>

#include "common/property_list/property_list.h"
#include "common/sqlite/database.h"
#include "device/korvane/track.h"
#include "tests/device/korvane_import/import_fixture.h"

namespace {

using namespace test;
using platform::Data;
using platform::Dictionary;
using platform::Value;

class MetadataUpdate : public ImportTest {
protected:
    void SetUp() override {
        ImportTest::SetUp();
        add({.pid = 1, .syncID = 11, .title = "One", .artist = "A", .globalID = 71});
        add({.pid = 2, .title = "Two"});
        library->setValueForDatabaseProperty("3", "KVSyncClientSyncAnchor");
        library->setValueForDatabaseProperty(9, "KVSyncClientLastSyncedRevision");
    }

    ImportResult import(const std::optional<Data>& trackData, const std::string& anchor = "4") {
        ImportResult result;
        service->performImportFromSource(6, korvane::DefaultDatabasePath, trackData, std::nullopt,
                                         options(false, anchor),
                                         [&](bool success, const platform::OptionalError& error) {
                                             ++result.calls;
                                             result.success = success;
                                             result.error = error;
                                         });
        system.queue->runAll();
        return result;
    }
    ImportResult update(const Value& document, const std::string& anchor = "4") {
        return import(
            common::serializePropertyList(document, platform::PropertyListFormat::Binary, nullptr),
            anchor);
    }
    static Dictionary ofTrack(std::int64_t pid, Dictionary fields) {
        return {{"persistent_id", pid}, {"fields", std::move(fields)}};
    }
    std::string anchor() {
        return library->valueForDatabaseProperty("KVSyncClientSyncAnchor").description();
    }
    // What is refused changes nothing, not even the anchor.
    std::string refusal(const Value& document) {
        const std::string before = dump();
        const ImportResult result = update(document);
        EXPECT_FALSE(result.success);
        EXPECT_EQ(result.calls, 1);
        EXPECT_EQ(dump(), before);
        EXPECT_EQ(service->lastHostImportFailure(), result.error);
        return result.error ? result.error->text() : "";
    }
};

TEST_F(MetadataUpdate, SetsFieldsAndStoresTheAnchorAlone) {
    const auto before = revision();
    const ImportResult result = update(ofTrack(1, {{"title", "Uno"},
                                                   {"artist", "B"},
                                                   {"album-artist", "C"},
                                                   {"year", 1999},
                                                   {"disc", "2"},
                                                   {"compilation", true},
                                                   {"rating", 70},
                                                   {"bookmark", 5000}}));
    EXPECT_TRUE(result.success) << (result.error ? result.error->text() : "");
    EXPECT_EQ(service->lastHostImportFailure(), std::nullopt);
    EXPECT_EQ(text("SELECT title FROM item_extra WHERE item_pid = 1"), "Uno");
    EXPECT_EQ(text("SELECT name FROM item_artist JOIN item USING (item_artist_pid) WHERE "
                   "item_pid = 1"),
              "B");
    EXPECT_EQ(number("SELECT year FROM item_extra WHERE item_pid = 1"), 1999);
    EXPECT_EQ(number("SELECT disc_number FROM item WHERE item_pid = 1"), 2);
    EXPECT_EQ(number("SELECT compilation FROM item_extra WHERE item_pid = 1"), 1);
    EXPECT_EQ(number("SELECT user_rating FROM item_stats WHERE item_pid = 1"), 70);
    EXPECT_EQ(number("SELECT bookmark_ms FROM item_stats WHERE item_pid = 1"), 5000);
    EXPECT_EQ(anchor(), "4");
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientLastSyncedRevision"), Value(9));
    // Other devices are told, in one revision.
    EXPECT_EQ(revision(), before + 1);
    EXPECT_EQ(text("SELECT origin FROM entity_revision WHERE entity_kind = 0 AND pid = 1"), "");
}

TEST_F(MetadataUpdate, ObserversAreToldOnceItIsCommitted) {
    system.center.posted.clear();
    EXPECT_TRUE(update(ofTrack(1, {{"title", "Uno"}, {"rating", 70}})).success);
    EXPECT_THAT(system.center.posted,
                testing::Each(std::string(KV3KorvaneContentsDidChangeNotification)));
    EXPECT_FALSE(system.center.posted.empty());
    system.center.posted.clear();
    EXPECT_FALSE(update(ofTrack(1, {{"title", "Ein"}, {"year", 12345}})).success);
    EXPECT_TRUE(system.center.posted.empty());
}

TEST_F(MetadataUpdate, NamesTheTrackByEitherId) {
    EXPECT_TRUE(
        update(Dictionary{{"sync_id", 11}, {"fields", Dictionary{{"title", "Uno"}}}}).success);
    EXPECT_EQ(text("SELECT title FROM item_extra WHERE item_pid = 1"), "Uno");
    EXPECT_EQ(refusal(ofTrack(99, {{"title", "x"}})), "there is no track of the persistent_id 99");
    const std::string oneTrack = "an update names one track, by persistent_id or by sync_id";
    const Value fields = Dictionary{{"title", "x"}};
    EXPECT_EQ(refusal(Dictionary{{"fields", fields}}), oneTrack);
    EXPECT_EQ(refusal(Dictionary{{"sync_id", 0}, {"fields", fields}}), oneTrack);
    EXPECT_EQ(refusal(Dictionary{{"sync_id", "11"}, {"fields", fields}}), oneTrack);
    EXPECT_EQ(refusal(Dictionary{{"sync_id", UINT64_MAX}, {"fields", fields}}), oneTrack);
    EXPECT_EQ(refusal(Dictionary{{"sync_id", 11}, {"persistent_id", 1}, {"fields", fields}}),
              oneTrack);
}

TEST_F(MetadataUpdate, AFieldThatIsNotKnownIsRefusedByItsName) {
    EXPECT_EQ(refusal(ofTrack(1, {{"title", "x"}, {"colour", "red"}})),
              "a track has no field \"colour\"");
    EXPECT_EQ(
        refusal(Dictionary{
            {"persistent_id", 1}, {"fields", Dictionary{{"title", "x"}}}, {"path", "/etc/passwd"}}),
        "an update has no key \"path\"");
}

TEST_F(MetadataUpdate, ValuesOfAnotherTypeOrBeyondTheirBoundsAreRefused) {
    EXPECT_EQ(refusal(ofTrack(1, {{"year", 10000}})), "year: a whole number from 0 to 9999");
    EXPECT_EQ(refusal(ofTrack(1, {{"year", true}})), "year: a whole number from 0 to 9999");
    EXPECT_EQ(refusal(ofTrack(1, {{"year", 1.5}})), "year: text, a whole number, or yes or no");
    EXPECT_EQ(refusal(ofTrack(1, {{"title", Data{1}}})),
              "title: text, a whole number, or yes or no");
    EXPECT_EQ(refusal(ofTrack(1, {{"compilation", 2}})), "compilation: yes or no");
    EXPECT_EQ(refusal(ofTrack(1, {{"rating", 101}})), "rating: a whole number from 0 to 100");
    EXPECT_EQ(refusal(ofTrack(1, {{"rating", -1}})), "rating: a whole number from 0 to 100");
    EXPECT_EQ(refusal(ofTrack(1, {{"rating", "5"}})), "rating: a whole number from 0 to 100");
    EXPECT_THAT(refusal(ofTrack(1, {{"bookmark", UINT64_MAX}})),
                testing::StartsWith("bookmark: a whole number"));
    EXPECT_THAT(refusal(ofTrack(1, {{"title", std::string(4097, 'x')}})),
                testing::StartsWith("title: text of at most 4096 bytes"));
    EXPECT_EQ(refusal(ofTrack(1, {})), "the update sets no fields");
    EXPECT_EQ(refusal(Dictionary{{"persistent_id", 1}}), "the update sets no fields");
    EXPECT_EQ(refusal(Dictionary{{"persistent_id", 1}, {"fields", "title"}}),
              "the update sets no fields");
}

TEST_F(MetadataUpdate, DataThatAreNoDictionaryAreDamaged) {
    for (const Data& bytes : {Data{}, Data{1, 2, 3}, Data(100, 0xff)}) {
        const std::string before = dump();
        const ImportResult result = import(bytes);
        ASSERT_TRUE(result.error);
        EXPECT_EQ(result.error->code, KVMediaLibraryServiceErrorDamagedData);
        EXPECT_EQ(dump(), before);
    }
    EXPECT_EQ(refusal(platform::Array{1}), "the update is no dictionary");
}

TEST_F(MetadataUpdate, WithoutDataOrARegisteredFileThereIsNoAnchor) {
    const ImportResult result = import(std::nullopt);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->code, KVMediaLibraryServiceErrorNoData);
    EXPECT_EQ(anchor(), "3");
}

TEST_F(MetadataUpdate, TheSameUpdateAgainGivesNoRevision) {
    const Dictionary document = ofTrack(1, {{"title", "Uno"}, {"artist", "B"}});
    EXPECT_TRUE(update(document, "4").success);
    const auto after = revision();
    EXPECT_TRUE(update(document, "5").success);
    EXPECT_EQ(revision(), after);
    EXPECT_EQ(anchor(), "5");
}

TEST_F(MetadataUpdate, IsSavedForTheHostAgain) {
    EXPECT_TRUE(update(ofTrack(1, {{"title", "Uno"}})).success);
    save(9);
    const auto saved = library->configuration().files.subpathsOfDirectory(
        "/var/mobile/Media/Tessel_Control/Sync/");
    EXPECT_FALSE(saved.empty());
}

TEST_F(MetadataUpdate, ACancelEndsItWithACodeOfItsOwn) {
    service->cancelImportOperation(6, [] {});
    const std::string before = dump();
    const ImportResult result = update(ofTrack(1, {{"title", "Uno"}}));
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->code, KVMediaLibraryServiceErrorCancelled);
    EXPECT_EQ(dump(), before);
}

TEST_F(MetadataUpdate, ADatabaseThatRefusesLeavesAllAsItWas) {
    execute(
        "CREATE TRIGGER refusal BEFORE UPDATE ON item_stats BEGIN SELECT raise(ABORT, 'no'); "
        "END");
    const std::string before = dump();
    EXPECT_FALSE(update(ofTrack(1, {{"title", "Uno"}, {"rating", 20}})).success);
    EXPECT_EQ(dump(), before);
}

}  // namespace
