#include "SyncBundle/transfer_records.h"

#include <algorithm>
#include <array>
#include <charconv>

std::uint64_t KVAssetParts(const ORAsset& asset) {
    return asset.variantOptions()[KVVariantOptionAssetParts].unsignedValue();
}

KVIdentifier::KVIdentifier(std::int64_t persistentID)
    : _size(static_cast<std::size_t>(
          std::to_chars(_digits.data(), _digits.data() + _digits.size(), persistentID).ptr -
          _digits.data())) {}

std::string KVStringFromPersistentID(std::int64_t persistentID) {
    return std::string(KVIdentifier(persistentID).text());
}

std::int64_t KVPersistentIDFromString(const std::string& identifier) {
    return platform::Value(identifier).int64Value();
}

std::string KVAssetTypeForMediaType(std::uint32_t mediaType) {
    struct Row {
        std::uint32_t mask;
        std::string_view assetType;
    };
    // The first row that meets a set bit decides. Rows 7 and 9 repeat bits that rows 1 and 2 have
    // taken already: the masks are the daemon's and stand as they are.
    static constexpr std::array<Row, 9> rows{{
        {0x20, "TesselU"},
        {0x1000, "TesselUVideo"},
        {0x2, "Audiobook"},
        {0x800, "Movie"},
        {0x2000, "HomeVideo"},
        {0x400, KVAssetTypeMusicVideo},
        {0x24, "Podcast"},
        {0x200, "TVEpisode"},
        {0x1100, "VideoPodcast"},
    }};
    for (const Row& row : rows) {
        if (mediaType & row.mask)
            return std::string(row.assetType);
    }
    return std::string(KVAssetTypeMusic);
}

std::shared_ptr<KV3Track> KVTrackWithSyncID(const std::shared_ptr<KV3Korvane>& library,
                                            std::int64_t syncID) {
    return KV3Track::anyInLibrary(
        library,
        KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(KV3TrackPropertySyncID, syncID));
}

std::shared_ptr<ORStoreInfo> KVStoreInfoFromValues(KVStoreValues values, KV3Korvane& library) {
    if (std::ranges::all_of(values, &platform::ValueView::isNull))
        return nullptr;
    auto storeInfo = ORStoreInfo::make();
    const platform::ValueView& account = values[KVStoreColumnAccountID];
    storeInfo->setDSID(account.value());
    storeInfo->setVantorID(library.accountCacheDatabase().vantorIDForDSID(account.int64Value()));
    storeInfo->setFlavor(values[KVStoreColumnFlavor].value());
    storeInfo->setOrbisID(values[KVStoreColumnItemID].value());
    storeInfo->setVeskaID(values[KVStoreColumnVeskaID].value());
    storeInfo->setMatchStatus(values[KVStoreColumnMatchedStatus].value());
    storeInfo->setRedownloadStatus(values[KVStoreColumnRedownloadedStatus].value());
    storeInfo->setPodcastEpisodeGUID(values[KVStoreColumnPodcastExternalGUID].value());
    return storeInfo;
}
