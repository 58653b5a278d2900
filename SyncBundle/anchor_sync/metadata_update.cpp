#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/log.h"
#include "SyncBundle/waiting.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view operation = "metadataUpdate:forAsset:withNewAnchor:";

platform::Dictionary updateOptions(const std::string& newAnchor) {
    return {
        {std::string(KVImportOperationOptionIsResetSyncKey), false},
        {std::string(KVImportOperationOptionIsVeskaEnabledKey), KVIsSignedInToCloudLibrary()},
        {std::string(KVImportOperationOptionSyncAnchorKey), newAnchor},
    };
}

}  // namespace

// What cannot be written as a property list becomes an import without track data.
void KVSyncClient::metadataUpdate(const platform::Dictionary& metadataUpdate,
                                  const std::shared_ptr<ORAsset>&, const std::string& newAnchor) {
    KVRunAndWait(platform::QueuePriority::Background, [metadataUpdate,
                                                       newAnchor](const platform::Job& finished) {
        const platform::Dictionary options = updateOptions(newAnchor);
        std::optional<platform::Data> trackData =
            platform::Platform::current().operatingSystem().propertyLists().serialize(
                metadataUpdate, platform::PropertyListFormat::Binary, nullptr);
        KVMediaLibraryService::sharedMediaLibraryService().performImportFromSource(
            KV3SourceHostData, KV3Korvane::sharedLibraryDatabasePath(), std::move(trackData),
            std::nullopt, options, [finished](bool success, const platform::OptionalError& error) {
                KVLog(Info, operation, "metadataUpdate import complete. success=%d, err=%@",
                      success, error);
                finished();
            });
    });
}
