#include "SyncBundle/transfer_records.h"

#include <limits>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

using platform::ValueView;

TEST(AssetType, WithoutATestedBitIsMusic) {
    for (const std::uint32_t mediaType :
         {0u, 0x1u, 0x8u, 0x10u, 0x40u, 0x80u, 0x4000u, 0x80000000u, 0xFFFFC0D1u})
        EXPECT_EQ(KVAssetTypeForMediaType(mediaType), "Music") << mediaType;
}

TEST(AssetType, OfEachBit) {
    EXPECT_EQ(KVAssetTypeForMediaType(0x20), "TesselU");
    EXPECT_EQ(KVAssetTypeForMediaType(0x1000), "TesselUVideo");
    EXPECT_EQ(KVAssetTypeForMediaType(0x2), "Audiobook");
    EXPECT_EQ(KVAssetTypeForMediaType(0x800), "Movie");
    EXPECT_EQ(KVAssetTypeForMediaType(0x2000), "HomeVideo");
    EXPECT_EQ(KVAssetTypeForMediaType(0x400), "MusicVideo");
    EXPECT_EQ(KVAssetTypeForMediaType(0x4), "Podcast");
    EXPECT_EQ(KVAssetTypeForMediaType(0x200), "TVEpisode");
    EXPECT_EQ(KVAssetTypeForMediaType(0x100), "VideoPodcast");
}

TEST(AssetType, IsDecidedByTheFirstRowThatMeetsABit) {
    EXPECT_EQ(KVAssetTypeForMediaType(0x24), "TesselU");
    EXPECT_EQ(KVAssetTypeForMediaType(0x1100), "TesselUVideo");
    EXPECT_EQ(KVAssetTypeForMediaType(0x300), "TVEpisode");
    EXPECT_EQ(KVAssetTypeForMediaType(0x802), "Audiobook");
    EXPECT_EQ(KVAssetTypeForMediaType(0x408), "MusicVideo");
    EXPECT_EQ(KVAssetTypeForMediaType(0xFFFFFFFF), "TesselU");
    // From each row to the next: both bits set, the earlier row decides.
    EXPECT_EQ(KVAssetTypeForMediaType(0x1020), "TesselU");
    EXPECT_EQ(KVAssetTypeForMediaType(0x1002), "TesselUVideo");
    EXPECT_EQ(KVAssetTypeForMediaType(0x2800), "Movie");
    EXPECT_EQ(KVAssetTypeForMediaType(0x2400), "HomeVideo");
    EXPECT_EQ(KVAssetTypeForMediaType(0x404), "MusicVideo");
    EXPECT_EQ(KVAssetTypeForMediaType(0x204), "Podcast");
}

TEST(AssetIdentifier, IsTheNumberInDecimal) {
    EXPECT_EQ(KVStringFromPersistentID(-5), "-5");
    EXPECT_EQ(KVStringFromPersistentID(std::numeric_limits<std::int64_t>::max()),
              "9223372036854775807");
    EXPECT_EQ(KVStringFromPersistentID(std::numeric_limits<std::int64_t>::min()),
              "-9223372036854775808");
    EXPECT_EQ(KVStringFromPersistentID(0), "0");
}

TEST(AssetIdentifier, GivesItsNumberBack) {
    for (const std::int64_t id : {std::numeric_limits<std::int64_t>::min(), std::int64_t{-5},
                                  std::int64_t{0}, std::numeric_limits<std::int64_t>::max()})
        EXPECT_EQ(KVPersistentIDFromString(KVStringFromPersistentID(id)), id);
    EXPECT_EQ(KVPersistentIDFromString("no number"), 0);
}

TEST(Vocabulary, OfTheRecords) {
    EXPECT_EQ(KVDataClassMedia, "Media");
    EXPECT_EQ(KVVariantOptionAssetParts, "AssetParts");
    EXPECT_EQ(KVVariantOptionDeleteAfterUpload, "delete_after_upload");
    EXPECT_EQ(KVAssetPartFile, 1u);
    EXPECT_EQ(KVAssetPartArtwork, 2u);
    EXPECT_EQ(KVAssetPartKenning, 4u);
}

class StoreInfo : public SyncClientTest {
protected:
    std::array<ValueView, KVStoreColumnCount> values;

    Calls settersCalled() {
        const auto info = KVStoreInfoFromValues(values, library());
        return info ? dynamic_cast<support::RecordingStoreInfo&>(*info).calls() : Calls{};
    }
};

TEST_F(StoreInfo, WithoutAnyStoredValueThereIsNone) {
    EXPECT_EQ(KVStoreInfoFromValues(values, library()), nullptr);
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(StoreInfo, CallsAllEightSettersInTheirOrder) {
    library().accounts().names[77] = "someone@example.org";
    values[KVStoreColumnAccountID] = ValueView(std::int64_t{77});
    values[KVStoreColumnItemID] = ValueView(std::int64_t{5});
    values[KVStoreColumnFlavor] = ValueView(std::string_view("flavor"));
    values[KVStoreColumnMatchedStatus] = ValueView(std::int64_t{2});
    values[KVStoreColumnRedownloadedStatus] = ValueView(std::int64_t{3});
    values[KVStoreColumnVeskaID] = ValueView(std::int64_t{0});
    values[KVStoreColumnPodcastExternalGUID] = ValueView(std::string_view("guid"));
    EXPECT_EQ(settersCalled(), (Calls{{"setDSID", {77}},
                                      {"setVantorID", {"someone@example.org"}},
                                      {"setFlavor", {"flavor"}},
                                      {"setOrbisID", {5}},
                                      {"setVeskaID", {0}},
                                      {"setMatchStatus", {2}},
                                      {"setRedownloadStatus", {3}},
                                      {"setPodcastEpisodeGUID", {"guid"}}}));
    EXPECT_EQ(calls(), (Calls{{"KV3AccountCacheDatabase.vantorIDForDSID", {77}}}));
}

TEST_F(StoreInfo, WithOnlyAPodcastGUIDLooksUpAccountZero) {
    values[KVStoreColumnPodcastExternalGUID] = ValueView(std::string_view("guid"));
    EXPECT_EQ(settersCalled(), (Calls{{"setDSID", {Value()}},
                                      {"setVantorID", {Value()}},
                                      {"setFlavor", {Value()}},
                                      {"setOrbisID", {Value()}},
                                      {"setVeskaID", {Value()}},
                                      {"setMatchStatus", {Value()}},
                                      {"setRedownloadStatus", {Value()}},
                                      {"setPodcastEpisodeGUID", {"guid"}}}));
    EXPECT_EQ(calls(), (Calls{{"KV3AccountCacheDatabase.vantorIDForDSID", {0}}}));
}

TEST_F(StoreInfo, AnyOneOfTheSevenIsEnough) {
    const ValueView zero(std::int64_t{0});
    for (ValueView& value : values) {
        value = zero;
        EXPECT_NE(KVStoreInfoFromValues(values, library()), nullptr);
        value = {};
    }
}

}  // namespace
}  // namespace sync_bundle_tests
