#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/log.h"
#include "SyncBundle/media_paths.h"
#include "SyncBundle/waiting.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view operation = "reconcileSync:withNewAnchor:progressCallback:error:";

// Where a reset sync moved media aside, where it belongs, and what is said when one cannot be put
// back.
struct StagedMedia {
    std::string_view staged;
    std::string_view destination;
    std::string_view failureMessage;
};
constexpr StagedMedia stagedMedia[] = {
    {"/var/mobile/Media/Stagehold/tmp/Tessel_Control/Music/",
     "/var/mobile/Media/Tessel_Control/Music/",
     "failed to restore Music asset %@ back from tmp location. err=%@"},
    {"/var/mobile/Media/Stagehold/tmp/Podcasts/", "/var/mobile/Media/Podcasts/",
     "failed to restore Podcast asset %@ back from tmp location. err=%@"},
};

platform::OperatingSystem& operatingSystem() {
    return platform::Platform::current().operatingSystem();
}

platform::Dictionary importOptions(std::uint32_t syncType, const std::string& newAnchor) {
    return {
        {std::string(KVImportOperationOptionIsResetSyncKey), syncType == ORSyncReset ? 1 : 0},
        {std::string(KVImportOperationOptionIsVeskaEnabledKey), KVIsSignedInToCloudLibrary()},
        {std::string(KVImportOperationOptionSyncAnchorKey), newAnchor},
    };
}

void restoreStagedMedia(const StagedMedia& media) {
    platform::FileSystem& files = operatingSystem().fileSystem();
    const std::string staged(media.staged);
    for (const std::string& path : files.subpathsOfDirectory(staged)) {
        const std::string destination = KVPathByAppendingComponent(media.destination, path);
        if (files.fileExists(destination))
            continue;
        const platform::OptionalError error =
            files.linkItem(KVPathByAppendingComponent(staged, path), destination);
        if (error)
            KVLog(Warning, operation, media.failureMessage, path, error);
    }
}

void removeStagingDirectory() {
    const platform::OptionalError error =
        operatingSystem().fileSystem().removeItem(std::string(KVStageholdTemporaryDirectory));
    if (error)
        KVLog(Warning, operation, "Could not remove temporary tessel asset directory. err=%@",
              error);
}

}  // namespace

struct KVSyncClient::ImportOutcome {
    bool success = false;
    platform::OptionalError error;
};

bool KVSyncClient::reconcileSync(std::uint32_t syncType, const std::string& newAnchor,
                                 const Progress&, platform::OptionalError* error) {
    KVLog(Info, operation, "reconcileSync. syncType=%d, anchor=%@", syncType, newAnchor);
    _pendingUploads.clear();
    ImportOutcome outcome;
    if (syncType == ORSyncNoSync) {
        KVLog(Warning, operation, "sync type is ORSyncNoSync - nothing to do");
        operatingSystem().namedNotifications().post(
            KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification);
    } else {
        _autoCreatedSmartPlaylistsPIDs =
            KV3Container::autoCreatedBuiltInSmartPlaylistsPIDs(_library);
        outcome = importHostData(syncType, newAnchor);
    }

    // Only an error makes reconcile fail: a failure without one is overwritten here.
    if (!outcome.error)
        outcome.success = _processUploadTrackOperations();
    else if (error)
        *error = outcome.error;

    if (syncType == ORSyncReset) {
        if (!outcome.success) {
            KVLog(Info, operation, "recovering temporarily moved assets");
            for (const StagedMedia& media : stagedMedia)
                restoreStagedMedia(media);
        }
        removeStagingDirectory();
        _library->updateTrackIntegrity();
    }
    KVLog(Info, operation, "finished!");
    return outcome.success;
}

// Holds the calling thread until the import service has answered, without time-out.
KVSyncClient::ImportOutcome KVSyncClient::importHostData(std::uint32_t syncType,
                                                         const std::string& newAnchor) {
    const auto outcome = std::make_shared<ImportOutcome>();
    KVRunAndWait(platform::QueuePriority::Background, [outcome, library = _library, syncType,
                                                       newAnchor](const platform::Job& finished) {
        const platform::Dictionary options = importOptions(syncType, newAnchor);
        KVMediaLibraryService::sharedMediaLibraryService().performImportFromSource(
            KV3SourceHostData, KV3Korvane::sharedLibraryDatabasePath(), std::nullopt, std::nullopt,
            options,
            [outcome, library, finished](bool success, const platform::OptionalError& error) {
                KVLog(Info, operation, "sync import complete. success=%d, err=%@", success, error);
                *outcome = {success, error};
                library->notifyContentsDidChange();
                finished();
            });
    });
    return *outcome;
}
