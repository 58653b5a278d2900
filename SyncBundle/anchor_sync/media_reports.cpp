#include <array>
#include <map>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/anchor_sync/sync_properties.h"
#include "SyncBundle/transfer_records.h"
#include "SyncBundle/waiting.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view accountsQuery = "SELECT DISTINCT account_id FROM item_store";

// Counted among the music, since they are there for it.
constexpr std::string_view musicDirectories[] = {
    "/private/var/mobile/Media/Tessel_Control/Artwork",
    "/private/var/mobile/Media/Tessel_Control/Tessel",
};

// What is installed of one asset type.
struct Metrics {
    std::uint64_t physicalSize = 0;              // bytes
    std::optional<std::uint64_t> count;          // absent until a track that is kept
    std::optional<std::uint64_t> purgeableSize;  // bytes; absent until a temporary track

    void add(std::uint64_t trackSize, bool isTemporary) {
        physicalSize += trackSize;
        if (isTemporary)
            purgeableSize = purgeableSize.value_or(0) + trackSize;
        else
            count = count.value_or(0) + 1;
    }
    platform::Dictionary dictionary() const {
        platform::Dictionary result{{std::string(ORMetricsPhysicalSizeKey), physicalSize}};
        if (count)
            result.emplace(ORMetricsCountKey, *count);
        if (purgeableSize)
            result.emplace(ORMetricsPurgeableSizeKey, *purgeableSize);
        return result;
    }
};
using MetricsByType = std::map<std::string, Metrics, std::less<>>;

MetricsByType metricsOfTracks(const std::shared_ptr<KV3Korvane>& library) {
    constexpr std::array properties{KV3TrackPropertyMediaType, KV3TrackPropertyTotalSize,
                                    KV3TrackPropertyIsTemporaryCloudDownload};
    const auto withLocation = KV3ComparisonPredicate::predicateWithProperty(
        KV3TrackPropertyBaseLocationID, 0, KV3ComparisonNotEqual);
    MetricsByType metrics;
    KV3Track::queryWithLibrary(library, withLocation)
        ->enumeratePersistentIDsAndProperties(properties, [&](std::int64_t, KV3TrackRow values) {
            const std::string type =
                KVAssetTypeForMediaType(static_cast<std::uint32_t>(values[0].int64Value()));
            if (type.empty())
                return;
            const auto size = static_cast<std::uint64_t>(values[1].int64Value());
            metrics[type].add(ORGetPhysicalSizeForLogicalSize(size), values[2].boolValue());
        });
    return metrics;
}

std::set<std::int64_t> accountsOfItems(KV3Korvane& library) {
    std::set<std::int64_t> accounts;
    library.databaseConnectionAllowingWrites(false, [&](KV3DatabaseConnection& connection) {
        connection.executeQuery(accountsQuery)->enumerateRowsWithBlock([&](const KV3QueryRow& row) {
            if (!row.isNullForColumnIndex(0))
                accounts.insert(row.int64ForColumnIndex(0));
        });
    });
    return accounts;
}

}  // namespace

void KVSyncClient::pathsToBackup(std::vector<std::string>* pathsToBackup,
                                 std::vector<std::string>*) {
    const auto found = std::make_shared<std::vector<std::string>>();
    KVRunAndWait(platform::QueuePriority::Default, [found](const platform::Job& finished) {
        VDDownloadFileManifest::make()->getPathsForFilesWithClass(
            VDDownloadFileClassBackup,
            [found, finished](const std::optional<std::vector<std::string>>& paths) {
                if (paths)
                    found->insert(found->end(), paths->begin(), paths->end());
                finished();
            });
    });
    if (pathsToBackup)
        *pathsToBackup = std::move(*found);
}

platform::Dictionary KVSyncClient::installedAssetMetrics() {
    MetricsByType metrics = metricsOfTracks(_library);
    if (const auto music = metrics.find(KVAssetTypeMusic); music != metrics.end()) {
        for (const std::string_view directory : musicDirectories)
            music->second.physicalSize += ORGetDiskUsageForPath(std::string(directory));
    }
    platform::Dictionary result;
    for (const auto& [type, ofType] : metrics)
        result.emplace(type, ofType.dictionary());
    return result;
}

std::set<std::string> KVSyncClient::vantorIDsForAssets() {
    std::set<std::string> names;
    for (const std::int64_t account : accountsOfItems(*_library)) {
        if (auto name = _library->accountCacheDatabase().vantorIDForDSID(account))
            names.insert(*std::move(name));
    }
    return names;
}

std::optional<std::set<std::string>> KVSyncClient::disabledAssetTypes() {
    if (!KVIsSignedInToCloudLibrary())
        return std::nullopt;
    return std::set<std::string>{std::string(KVAssetTypeMusic), std::string(KVAssetTypeMusicVideo)};
}

void KVSyncClient::clearSyncData() {
    _library->deleteDatabaseProperty(KVSyncAnchorProperty);
}
