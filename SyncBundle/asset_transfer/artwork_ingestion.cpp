#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/log.h"
#include "SyncBundle/media_paths.h"
#include "SyncBundle/transfer_records.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view operation =
    "_processArtworkIdentifier:artworkToken:artworkType:mediaType:sourceType:";
constexpr std::uint64_t largestArtworkFile = 10'485'760;  // bytes; exactly that many are accepted

platform::FileSystem& fileSystem() {
    return platform::Platform::current().operatingSystem().fileSystem();
}

// Whether the received file may be imported.
bool isImportable(const std::string& path) {
    platform::OptionalError error;
    const auto attributes = fileSystem().attributes(path, &error);
    if (!attributes) {
        KVLog(Error, operation, "Could not read file attributes for %@: %@", path, error);
        return false;
    }
    if (attributes->size > largestArtworkFile) {
        // It stays where it is all the same: the daemon empties its staging area.
        KVLog(Warning, operation, "Artwork file too big: %llu bytes. Discarding.",
              attributes->size);
        return false;
    }
    return true;
}

void removeRefusedArtwork(const std::string& path) {
    KVLog(Error, operation, "Stagehold contents %@",
          fileSystem().subpathsOfDirectory(std::string(KVStageholdMediaDirectory)));
    if (const int errorNumber = fileSystem().unlink(path); errorNumber != 0)
        KVLog(Error, operation, "Could not remove artwork file from %@: %s", path,
              fileSystem().errorText(errorNumber));
}

}  // namespace

bool KVSyncClient::_processArtworkIdentifier(const std::string& identifier,
                                             const std::optional<std::string>& artworkToken,
                                             std::int64_t artworkType, std::uint32_t mediaType,
                                             std::int64_t sourceType) {
    const std::optional<std::string> path = ORStagehold::sharedInstance().artworkPathForDataclass(
        std::string(KVDataClassMedia), identifier);
    if (!path) {
        KVLog(Warning, operation, "Artwork (%@) for asset had no path", identifier);
        return false;
    }
    if (!artworkToken || artworkToken->empty()) {
        KVLog(Error, operation, "Malformed artwork token on artwork asset with identifier: %@",
              identifier);
        return false;
    }
    if (KV3ArtworkHasOriginalArtwork(KV3ArtworkRelativePathFromToken(*artworkToken))) {
        KVLog(Info, operation,
              "Artwork already exists on disk, checking database consistency (artworkToken: %@)",
              *artworkToken);
        return _library->importExistingOriginalArtworkWithArtworkToken(*artworkToken, artworkType,
                                                                       sourceType, mediaType);
    }
    if (!isImportable(*path))
        return false;
    if (_library->importOriginalArtworkFromFileURL(*path, *artworkToken, artworkType, sourceType,
                                                   mediaType)) {
        KVLog(Info, operation, "Inserted new artwork for token: %@", *artworkToken);
    } else {
        KVLog(Error, operation, "Failed to insert new artwork for token: %@", *artworkToken);
        removeRefusedArtwork(*path);
    }
    return true;
}
