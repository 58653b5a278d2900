#include <algorithm>
#include <array>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/log.h"
#include "SyncBundle/media_paths.h"
#include "SyncBundle/transfer_records.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view settingsFilePrefix = "Sync_";
constexpr std::string_view settingsFileSuffix = ".plist";
// Far above any settings file; a larger one is not read.
constexpr std::uint64_t largestSettingsFile = 64 * 1024 * 1024;

constexpr std::string_view operationsKey = "operations";
constexpr std::string_view operationKey = "operation";
constexpr std::string_view uploadTrackOperation = "upload_track";
constexpr std::string_view persistentIDKey = "pid";

// Characters, not bytes, of the shortest path that can name a file.
constexpr std::ptrdiff_t shortestSourcePath = 2;

bool isSettingsFileName(std::string_view name) {
    return name.starts_with(settingsFilePrefix) && name.ends_with(settingsFileSuffix);
}

std::ptrdiff_t characterCount(std::string_view utf8) {
    return std::count_if(utf8.begin(), utf8.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    });
}

// Null for what cannot be read or is no property list.
platform::Value propertyListAtPath(const std::string& path) {
    platform::OperatingSystem& system = platform::Platform::current().operatingSystem();
    const auto bytes = system.fileSystem().readFile(path, largestSettingsFile, nullptr);
    if (!bytes)
        return {};
    return system.propertyLists().parse(*bytes, nullptr).value_or(platform::Value());
}

// By persistent id or, failing that, by sync id; the result may not exist in the library.
std::shared_ptr<KV3Track> trackForUpload(std::int64_t id,
                                         const std::shared_ptr<KV3Korvane>& library) {
    auto track = KV3Track::newWithPersistentID(id, library);
    if (track->existsInLibrary())
        return track;
    return KV3Track::anyInLibrary(
        library,
        KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(KV3TrackPropertySyncID, id));
}

}  // namespace

std::vector<std::string> KVSyncClient::_syncPlistFiles() {
    const std::string directory(KVSyncSettingsDirectory);
    platform::OptionalError error;
    const auto names =
        platform::Platform::current().operatingSystem().fileSystem().contentsOfDirectory(directory,
                                                                                         &error);
    if (!names) {
        KVLogTo(KV3LogCategory, Info, "_syncPlistFiles", "Could not read %@: %@", directory, error);
        return {};
    }
    std::vector<std::string> paths;
    for (const std::string& name : *names) {
        if (isSettingsFileName(name))
            paths.push_back(KVPathByAppendingComponent(directory, name));
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

bool KVSyncClient::_processUploadTrackOperations() {
    for (const std::string& path : _syncPlistFiles()) {
        const platform::Value settings = propertyListAtPath(path);
        const platform::Array* operations = settings[operationsKey].array();
        if (!operations)
            continue;
        for (const platform::Value& step : *operations) {
            const std::string* name = step[operationKey].string();
            if (name && *name == uploadTrackOperation)
                _evaluateUploadTrackDatabaseChangeStep(step);
        }
    }
    return true;
}

bool KVSyncClient::_evaluateUploadTrackDatabaseChangeStep(const platform::Value& step) {
    constexpr std::string_view operation = "_evaluateUploadTrackDatabaseChangeStep:";
    const platform::Value& pid = step[persistentIDKey];
    if (!pid.isNumber()) {
        KVLog(Error, operation, "Got upload_track with invalid pid: %@", pid);
        return false;
    }
    const std::int64_t id = pid.int64Value();
    const std::shared_ptr<KV3Track> track = trackForUpload(id, _library);
    if (!track->existsInLibrary()) {
        KVLog(Warning, operation, "Got upload_track for non-existant track: %@", track);
        return true;
    }
    const std::array properties{KV3TrackPropertyFilePath};
    const platform::Value path = track->getValues(properties).front();
    const std::string* sourcePath = path.string();
    if (!sourcePath || characterCount(*sourcePath) < shortestSourcePath) {
        KVLog(Error, operation, "Invalid upload source path %@", path);
        return true;
    }
    // From the id as it was given, also when it was the sync id.
    const std::string identifier = KVStringFromPersistentID(id);
    const std::shared_ptr<ORAsset> asset =
        ORAsset::uploadAssetWithIdentifier(identifier, KVDataClassMedia, *sourcePath, std::nullopt);
    if (step[KVVariantOptionDeleteAfterUpload].boolValue())
        asset->setVariantOptions(
            platform::Dictionary{{std::string(KVVariantOptionDeleteAfterUpload), true}});
    KVLog(Info, operation, "Enqueuing asset upload request: %@", asset);
    _pendingUploads[identifier] = asset;
    return true;
}
