#include <array>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/anchor_sync/sync_properties.h"
#include "SyncBundle/log.h"
#include "SyncBundle/waiting.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view operation = "reconcileRestoreWithError:";

// Base locations from this one on hold what a store can give again.
constexpr std::int64_t firstStoreLocation = 300;
// Podcasts, heard and seen.
constexpr std::int64_t podcastMediaTypes = 260;
constexpr std::int64_t mediaManifest = 0;
constexpr std::string_view purchasesDirectory = "/var/mobile/Media/Purchases";

// What stops pointing at the file and the pictures that the restore did not bring.
constexpr std::array restoredProperties{
    KV3TrackPropertyNeedsRestore,
    KV3TrackPropertyBaseLocationID,
    KV3TrackPropertyLocationFileName,
    KV3TrackPropertyDownloadIdentifier,
    KV3TrackPropertyCloudArtworkToken,
    KV3TrackPropertySyncArtworkToken,
    KV3TrackPropertyPurchaseHistoryArtworkToken,
    KV3TrackPropertyStoreArtworkToken,
    KV3TrackPropertyStoreVeskaID,
    KV3TrackPropertyMatchRedownloadParameters,
    KV3TrackPropertyPurchaseHistoryID,
    KV3TrackPropertyPurchaseHistoryToken,
    KV3TrackPropertyPurchaseHistoryRedownloadParameters,
    KV3TrackPropertySyncID,
};

std::array<platform::Value, restoredProperties.size()> restoredValues() {
    return {true, 0, "", 0, "", "", "", "", 0, "", 0, 0, "", 0};
}

constexpr std::string_view artworkTokenUpdates[] = {
    "UPDATE album SET representative_item_artwork_token = IFNULL( (SELECT best_artwork_token FROM "
    "item_artwork WHERE item_pid = representative_item_pid), '')",
    "UPDATE album_artist SET representative_item_artwork_token = IFNULL( (SELECT "
    "best_artwork_token FROM item_artwork WHERE item_pid = representative_item_pid), '')",
    "UPDATE item_artist SET artist_artwork_token = ''",
    "UPDATE album_artist SET artist_artwork_token = ''",
};

constexpr std::string_view revisionProperties[] = {
    "KVCloudDatabaseRevision",
    "KVPelorinDatabaseRevision",
    KVLastSyncedRevisionProperty,
    KVSyncAnchorProperty,
};

KV3Predicate restorableTracks() {
    const KV3Predicate isBought = KV3AllCompoundPredicate::predicateMatchingPredicates({
        KV3ComparisonPredicate::predicateWithProperty(KV3TrackPropertyStoreItemID, 0,
                                                      KV3ComparisonNotEqual),
        KV3ComparisonPredicate::predicateWithProperty(KV3TrackPropertyStoreAccountID, 0,
                                                      KV3ComparisonNotEqual),
        KV3ComparisonPredicate::predicateWithProperty(
            KV3TrackPropertyBaseLocationID, firstStoreLocation, KV3ComparisonGreaterOrEqual),
    });
    const KV3Predicate isSubscribedTo = KV3AnyCompoundPredicate::predicateMatchingPredicates({
        KV3ComparisonPredicate::predicateWithProperty(KV3TrackPropertyMediaType, podcastMediaTypes,
                                                      KV3ComparisonAnyBits),
        KV3ComparisonPredicate::predicateWithPropertyEqualToInteger(KV3TrackPropertyIsTesselU, 1),
    });
    return KV3AnyCompoundPredicate::predicateMatchingPredicates({isBought, isSubscribedTo});
}

void markRestorableTracks(const std::shared_ptr<KV3Korvane>& library) {
    const auto values = restoredValues();
    const std::array fetched{KV3TrackPropertySyncArtworkToken};
    KV3Track::queryWithLibrary(library, restorableTracks())
        ->enumeratePersistentIDsAndProperties(fetched, [&](std::int64_t persistentID, KV3TrackRow) {
            const auto track = KV3Track::newWithPersistentID(persistentID, library);
            KVLog(Info, operation, "Marking restored track as requiring redownload: %@", track);
            track->setValues(values, restoredProperties);
        });
}

void deleteUnrestorableTracks(const std::shared_ptr<KV3Korvane>& library) {
    const auto unmarked = KV3Track::queryWithLibrary(
        library,
        KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(KV3TrackPropertyNeedsRestore, 0));
    if (unmarked->deleteAllEntitiesFromLibrary())
        KVLog(Info, operation, "Deleted unrestorable items from database");
    else
        KVLog(Error, operation, "Failed to delete unrestoreable items from database");
}

// Holds the calling thread until the manifest is rebuilt.
void rebuildManifest() {
    KVRunAndWait(platform::QueuePriority::Default, [](const platform::Job& finished) {
        VDDownloadFileManifest::initWithManifestType(mediaManifest)
            ->rebuildManifestWithCompletionBlock([finished] {
                KVLog(Info, operation, "Manifest rebuilt from %@",
                      platform::Platform::current()
                          .operatingSystem()
                          .fileSystem()
                          .contentsOfDirectory(std::string(purchasesDirectory), nullptr));
                finished();
            });
    });
}

}  // namespace

bool KVSyncClient::reconcileRestore(platform::OptionalError*) {
    _library->performDatabaseTransactionWithBlock([this](KV3DatabaseConnection& connection) {
        markRestorableTracks(_library);
        deleteUnrestorableTracks(_library);
        for (const std::string_view update : artworkTokenUpdates)
            connection.executeUpdate(update);
        for (const std::string_view property : revisionProperties)
            _library->deleteDatabaseProperty(property);
        _library->deleteOrphanedArtworkWithSearchOptions(KV3ArtworkSearchRecorded);
        return true;
    });
    rebuildManifest();
    return true;
}
