#include <array>
#include <iterator>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/log.h"
#include "SyncBundle/transfer_records.h"

namespace {

// The properties asked for of each track, and where each stands in its row. Whether it is a rental
// is asked for and not used.
enum Column : std::size_t {
    ColumnPodcastExternalGUID,
    ColumnStoreAccountID,
    ColumnStoreItemID,
    ColumnStoreFlavor,
    ColumnStoreMatchedStatus,
    ColumnStoreRedownloadedStatus,
    ColumnStoreVeskaID,
    ColumnSyncID,
    ColumnNeedsRestore,
    ColumnIsRental,
    ColumnTitle,
    ColumnCount
};
constexpr std::array<KV3TrackProperty, ColumnCount> trackProperties{
    KV3TrackPropertyPodcastExternalGUID,
    KV3TrackPropertyStoreAccountID,
    KV3TrackPropertyStoreItemID,
    KV3TrackPropertyStoreFlavor,
    KV3TrackPropertyStoreMatchedStatus,
    KV3TrackPropertyStoreRedownloadedStatus,
    KV3TrackPropertyStoreVeskaID,
    KV3TrackPropertySyncID,
    KV3TrackPropertyNeedsRestore,
    KV3TrackPropertyIsRental,
    KV3TrackPropertyTitle,
};

// One row for each cloud token that is its item's best picture and that has no picture here.
constexpr std::string_view missingArtworkQuery =
    "SELECT DISTINCT(cloud_artwork_token), sync_id, media_type, title FROM item_artwork "
    "LEFT OUTER JOIN artwork ON cloud_artwork_token=artwork_token JOIN item_store USING (item_pid) "
    "JOIN item USING (item_pid) JOIN item_extra USING (item_pid) WHERE artwork_token IS NULL AND "
    "cloud_artwork_token != '' AND cloud_artwork_token=best_artwork_token "
    "GROUP BY cloud_artwork_token";
enum ArtworkColumn { ArtworkColumnSyncID = 1, ArtworkColumnMediaType, ArtworkColumnTitle };

// Only pictures of plain music are asked for in a size.
constexpr std::uint32_t sizedMediaType = KV3MediaTypeMusic;

// Shared by all assets that want the same. The dimensions are null, or width and height in pixels.
platform::Value makeOptions(std::uint64_t parts, const platform::Value& dimensions) {
    platform::Dictionary options{{std::string(KVVariantOptionAssetParts), parts}};
    if (!dimensions.isNull())
        options.emplace(KVVariantOptionDimensions, dimensions);
    return options;
}

std::shared_ptr<ORAsset> makeAsset(std::int64_t id, std::string_view title,
                                   const platform::Value& variantOptions) {
    std::shared_ptr<ORAsset> asset =
        ORAsset::initWithIdentifier(KVIdentifier(id).text(), KVDataClassMedia, title);
    asset->setVariantOptions(variantOptions);
    return asset;
}

std::shared_ptr<ORAsset> makeTrackAsset(std::int64_t persistentID, KV3TrackRow row,
                                        const platform::Value& variantOptions,
                                        KV3Korvane& library) {
    const std::int64_t syncID = row[ColumnSyncID].int64Value();
    std::shared_ptr<ORAsset> asset =
        makeAsset(syncID != 0 ? syncID : persistentID, row[ColumnTitle].string(), variantOptions);
    asset->setIsRestore(row[ColumnNeedsRestore].boolValue());
    if (auto storeInfo = KVStoreInfoFromValues(
            row.subspan<ColumnPodcastExternalGUID, KVStoreColumnCount>(), library))
        asset->setStoreInfo(std::move(storeInfo));
    return asset;
}

void append(std::vector<std::shared_ptr<ORAsset>>& assets,
            std::vector<std::shared_ptr<ORAsset>> more) {
    if (assets.empty())
        assets.swap(more);
    assets.insert(assets.end(), std::make_move_iterator(more.begin()),
                  std::make_move_iterator(more.end()));
}

}  // namespace

std::string KVSyncClient::assetDataClass() {
    return std::string(KVDataClassMedia);
}

void KVSyncClient::assetsToSyncWithCompletion(const AssetsHandler& completion) {
    constexpr std::string_view operation = "assetsToSyncWithCompletion:";
    KVLog(Debug, operation, "gathering assets to sync");
    Assets assets = _artworkAssetsToSync();
    const std::size_t artworkCount = assets.size();
    append(assets, _trackAssetsToSync());
    const std::size_t trackCount = assets.size() - artworkCount;
    append(assets, _kenningAssetsToSync());
    const std::size_t kenningCount = assets.size() - artworkCount - trackCount;
    KVLog(Debug, operation, "found %lu total assets; %lu tracks, %lu artwork, %lu kenning",
          assets.size(), trackCount, artworkCount, kenningCount);
    completion(std::nullopt, assets);
}

KV3Predicate KVSyncClient::_tracksToSyncPredicate() {
    return KV3AnyCompoundPredicate::predicateMatchingPredicates({
        KV3ComparisonPredicate::predicateWithProperty(KV3TrackPropertySyncID, 0,
                                                      KV3ComparisonNotEqual),
        KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(KV3TrackPropertyNeedsRestore, 1),
    });
}

KVSyncClient::Assets KVSyncClient::_trackAssetsToSync() {
    Assets assets;
    const KV3Predicate withoutFile = KV3AnyCompoundPredicate::predicateMatchingPredicates({
        KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(KV3TrackPropertyBaseLocationID,
                                                                  0),
        KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(KV3TrackPropertyBaseLocationID,
                                                                  _cloudAssetBaseLocationID),
    });
    const std::shared_ptr<KV3TrackQuery> query =
        KV3Track::queryWithLibrary(_library, KV3AllCompoundPredicate::predicateMatchingPredicates(
                                                 {_tracksToSyncPredicate(), withoutFile}));
    const platform::Value options = makeOptions(KVAssetPartFile, {});
    query->enumeratePersistentIDsAndProperties(
        trackProperties, [&](std::int64_t persistentID, KV3TrackRow row) {
            assets.push_back(makeTrackAsset(persistentID, row, options, *_library));
        });
    return assets;
}

KVSyncClient::Assets KVSyncClient::_artworkAssetsToSync() {
    Assets assets;
    const platform::Value options = makeOptions(KVAssetPartArtwork, {});
    const platform::Value sizedOptions =
        makeOptions(KVAssetPartArtwork, _artworkSizeVariantForMediaType(sizedMediaType));
    _library->databaseConnectionAllowingWrites(false, [&](KV3DatabaseConnection& connection) {
        connection.executeQuery(missingArtworkQuery)
            ->enumerateRowsWithBlock([&](const KV3QueryRow& row) {
                const std::int64_t syncID = row.int64ForColumnIndex(ArtworkColumnSyncID);
                const auto mediaType =
                    static_cast<std::uint32_t>(row.intForColumnIndex(ArtworkColumnMediaType));
                const auto title = row.stringForColumnIndex(ArtworkColumnTitle);
                assets.push_back(makeAsset(syncID, title.value_or(std::string_view()),
                                           mediaType == sizedMediaType ? sizedOptions : options));
            });
    });
    return assets;
}

KVSyncClient::Assets KVSyncClient::_kenningAssetsToSync() {
    return {};
}

// The largest as a whole: a size that is larger one way replaces both numbers.
KV3ArtworkSize KVSyncClient::_maxArtworkSizeForMediaType(std::uint32_t mediaType) {
    KV3ArtworkSize largest;
    for (const KV3ArtworkSize& size :
         KV3ArtworkConfiguration::systemConfiguration().sizesToAutogenerateForMediaType(
             mediaType, KVArtworkTypeTrack)) {
        if (size.width > largest.width || size.height > largest.height)
            largest = size;
    }
    return largest;
}

KVSyncClient::ArtworkSizeVariants KVSyncClient::artworkSizeVariants;

// The first call fills the cache, under its own media type and with the size of music; everybody
// asks for music only.
platform::Value KVSyncClient::_artworkSizeVariantForMediaType(std::uint32_t mediaType) {
    const std::lock_guard lock(artworkSizeVariants.mutex);
    auto& variants = artworkSizeVariants.byMediaType;
    if (!variants) {
        const KV3ArtworkSize size = _maxArtworkSizeForMediaType(sizedMediaType);
        variants.emplace();
        if (size.width > 0 && size.height > 0)
            variants->emplace(mediaType, platform::Array{size.width, size.height});
    }
    const auto found = variants->find(mediaType);
    return found == variants->end() ? platform::Value() : found->second;
}
