#include "SyncBundle/transfer_records.h"

#include <array>

std::uint64_t KVAssetParts(const ORAsset& asset) {
    return asset.variantOptions()[KVVariantOptionAssetParts].unsignedValue();
}

std::string KVStringFromPersistentID(std::int64_t persistentID) {
    return std::to_string(persistentID);
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

bool KVStoreValues::anyPresent() const {
    return !accountID.isNull() || !itemID.isNull() || !flavor.isNull() || !matchedStatus.isNull() ||
           !redownloadedStatus.isNull() || !veskaID.isNull() || !podcastExternalGUID.isNull();
}

KVStoreValues KVStoreValuesFromRow(KV3TrackRow row, std::size_t firstColumn) {
    const KV3TrackRow columns = row.subspan(firstColumn);
    KVStoreValues values;
    values.podcastExternalGUID = columns[0];
    values.accountID = columns[1];
    values.itemID = columns[2];
    values.flavor = columns[3];
    values.matchedStatus = columns[4];
    values.redownloadedStatus = columns[5];
    values.veskaID = columns[6];
    return values;
}

std::shared_ptr<ORStoreInfo> KVStoreInfoFromValues(const KVStoreValues& values,
                                                   KV3Korvane& library) {
    if (!values.anyPresent())
        return nullptr;
    auto storeInfo = ORStoreInfo::make();
    storeInfo->setDSID(values.accountID.value());
    storeInfo->setVantorID(
        library.accountCacheDatabase().vantorIDForDSID(values.accountID.int64Value()));
    storeInfo->setFlavor(values.flavor.value());
    storeInfo->setOrbisID(values.itemID.value());
    storeInfo->setVeskaID(values.veskaID.value());
    storeInfo->setMatchStatus(values.matchedStatus.value());
    storeInfo->setRedownloadStatus(values.redownloadedStatus.value());
    storeInfo->setPodcastEpisodeGUID(values.podcastExternalGUID.value());
    return storeInfo;
}
