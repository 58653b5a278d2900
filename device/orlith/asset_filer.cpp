#include "device/orlith/asset_filer.h"

#include <fmt/format.h>
#include <linux/magic.h>
#include <sys/vfs.h>

#include <array>
#include <cerrno>
#include <random>

#include "device/orlith/asset.h"
#include "device/orlith/names.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::uint64_t MusicFolders = 50;
constexpr int NameAttempts = 100;
constexpr long XfsMagic = 0x58465342;

std::string randomLetters() {
    thread_local std::mt19937 generator{std::random_device{}()};
    std::uniform_int_distribution<int> letter('A', 'Z');
    std::string name(4, 'A');
    for (char& c : name)
        c = static_cast<char>(letter(generator));
    return name;
}

// On these file systems the sync of a file also carries its renames before it; elsewhere the
// directory is synced itself.
bool syncCarriesRenames(const std::string& realPath) {
    struct statfs status {};
    return ::statfs(realPath.c_str(), &status) == 0 &&
           (status.f_type == EXT4_SUPER_MAGIC || status.f_type == XfsMagic);
}

// Where the plug-in is told that a restored file lies: nothing is ever there, for it removes what
// it finds when the track has no sync id.
std::string reportedRestorePath(const std::string& identifier) {
    return fmt::format("Stagehold/Media/Restore/{}", identifier);
}

std::int64_t identifierValue(const ReceivedAsset& received) {
    return parseIdentifier(received.asset->identifier()).value_or(0);
}

bool hasFile(const ReceivedAsset& received) {
    return (received.parts & PartFile) != 0;
}

}  // namespace

std::string destinationDirectory(std::int64_t syncID, const std::string& assetType) {
    if (assetType == "Podcast" || assetType == "VideoPodcast")
        return "Podcasts";
    const auto bits = static_cast<std::uint64_t>(syncID);
    const std::uint64_t magnitude = syncID < 0 ? 0 - bits : bits;
    return fmt::format("Tessel_Control/Music/F{:02}", magnitude % MusicFolders);
}

AssetFiler::AssetFiler(ORClient& client, MediaLibraryFramework& library, LibraryAccess& access,
                       device::RootedFileSystem& files, StagingArea& staging)
    : _client(client),
      _library(library),
      _access(access),
      _files(files),
      _staging(staging),
      _syncCarriesRenames(syncCarriesRenames(files.realPath("/"))) {}

FilingResult AssetFiler::file(ReceivedAsset& received) {
    for (const auto& staged : received.staged)
        if (const OptionalError error = staged->sync(); error && !received.installFailure)
            received.installFailure = error;
    std::string relativePath = "Stagehold/Media/Artwork/" + received.asset->identifier();
    if (!received.transferFailure && !received.installFailure && hasFile(received))
        received.installFailure = install(received, relativePath);
    if (received.transferFailure || received.installFailure)
        return fail(received);

    const bool installedHere = hasFile(received) && !received.asset->isRestore();
    FilingResult result;
    try {
        received.asset->setPath(relativePath);
        if (!received.chapterPictures.empty())
            _access.discardChapterPictures(identifierValue(received), received.chapterPictures);
        _client.assetTransferSucceeded(received.asset, true, std::nullopt);
        if (hasFile(received))
            result.failure = received.asset->isRestore() ? recordRestore(received)
                                                         : readBackFile(received, relativePath);
    } catch (...) {
        if (installedHere && readBackFile(received, relativePath))
            _files.unlink(MediaDirectory + relativePath);
        emptyStaging(received);
        throw;
    }
    if (result.failure) {
        if (installedHere)
            _files.unlink(MediaDirectory + relativePath);
        _client.assetInstallFailed(received.asset, result.failure);
    } else {
        result.complaint = readBackPictureAndKenning(received);
        if (!received.complaint.empty())
            result.complaint = received.complaint;
        if (!hasFile(received) && !result.complaint.empty())
            result.failure = Error(platform::POSIXErrorDomain, EBADMSG, result.complaint);
    }
    emptyStaging(received);
    return result;
}

FilingResult AssetFiler::fail(ReceivedAsset& received) {
    if (received.file)
        received.file->remove();
    emptyStaging(received);
    if (received.installFailure) {
        _client.assetInstallFailed(received.asset, received.installFailure);
        return {received.installFailure, {}};
    }
    _client.assetTransferSucceeded(received.asset, false, received.transferFailure);
    return {received.transferFailure, {}};
}

OptionalError AssetFiler::install(ReceivedAsset& received, std::string& relativePath) {
    if (!received.file)
        return Error(platform::POSIXErrorDomain, ENODATA, "the media file did not come");
    const std::string& identifier = received.asset->identifier();
    if (!received.asset->isRestore())
        return moveIntoPlace(
            *received.file, relativePath,
            destinationDirectory(identifierValue(received),
                                 received.asset->assetType().value_or(std::string())),
            received.fileExtension);
    if (OptionalError error = received.file->sync())
        return error;
    // The move itself is the staging area's, once the plug-in hands the asset over.
    if (OptionalError error = _files.createDirectory(std::string(MediaDirectory) + "Purchases"))
        return error;
    const std::string destination =
        fmt::format("{}Purchases/{}.{}", MediaDirectory, identifier, received.fileExtension);
    // A track that waits for its restore has no file, so this is what an earlier attempt left.
    _files.unlink(destination);
    _staging.keepForRestore(identifier, received.file->path(), destination);
    relativePath = reportedRestorePath(identifier);
    return std::nullopt;
}

OptionalError AssetFiler::moveIntoPlace(IncomingFile& file, std::string& relativePath,
                                        const std::string& directory,
                                        const std::string& extension) {
    const std::string absolute = MediaDirectory + directory;
    if (OptionalError error = _files.createDirectory(absolute))
        return error;
    OptionalError error;
    for (int attempt = 0; attempt < NameAttempts; ++attempt) {
        relativePath = fmt::format("{}/{}.{}", directory, randomLetters(), extension);
        error = file.moveTo(MediaDirectory + relativePath);
        if (!error)
            // After the move, so that on a journalling file system one sync carries both; no row
            // names the file before that.
            error = file.syncWithName();
        if (!error)
            return _syncCarriesRenames ? OptionalError() : _files.syncDirectory(absolute);
        if (error->code != EEXIST)
            break;
    }
    return error;
}

std::shared_ptr<KV3Track> AssetFiler::trackOf(std::int64_t identifier) {
    return _library.anyTrack(_library.sharedLibrary(),
                             KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(
                                 KV3TrackPropertySyncID, identifier));
}

OptionalError AssetFiler::readBackFile(const ReceivedAsset& received,
                                       const std::string& relativePath) {
    const std::shared_ptr<KV3Track> track = trackOf(identifierValue(received));
    if (!track->existsInLibrary())
        return Error(platform::POSIXErrorDomain, ENOENT, "the library has no such track any more");
    constexpr std::array properties{KV3TrackPropertyFilePath, KV3TrackPropertyNeedsRestore};
    const std::vector<platform::Value> values = track->getValues(properties);
    const std::string* path = values.empty() ? nullptr : values[0].string();
    if (path && *path == MediaDirectory + relativePath && !values[1].boolValue())
        return std::nullopt;
    const auto free = _files.freeSpace(MediaDirectory, nullptr);
    return free && *free < ReservedSpace
               ? Error(platform::POSIXErrorDomain, ENOSPC,
                       "the device is too full to record the file in its library")
               : Error(platform::POSIXErrorDomain, EIO,
                       "the library did not record where the file lies");
}

std::string AssetFiler::readBackPictureAndKenning(const ReceivedAsset& received) {
    if ((received.parts & (PartArtwork | PartKenning)) == 0)
        return {};
    const std::shared_ptr<KV3Track> track = trackOf(identifierValue(received));
    constexpr std::array properties{KV3TrackPropertySyncArtworkToken,
                                    KV3TrackPropertyKenningChecksum,
                                    KV3TrackPropertyPendingKenningChecksum};
    const std::vector<platform::Value> values = track->getValues(properties);
    if (values.size() != properties.size())
        return "the library has no such track any more";
    const std::string* token = values[0].string();
    if ((received.parts & PartArtwork) != 0 && token &&
        !_library.artworkHasOriginalArtwork(_library.artworkRelativePathFromToken(*token)))
        return "the library did not take the picture";
    if ((received.parts & PartKenning) != 0 && !(values[1] == values[2]))
        return "the library did not take the recommendation data";
    return {};
}

OptionalError AssetFiler::recordRestore(const ReceivedAsset& received) {
    const auto path = _staging.takeRestored(received.asset->identifier());
    if (!path)
        return Error(platform::POSIXErrorDomain, EIO, "the restored file could not be installed");
    const std::shared_ptr<KV3Korvane> library = _library.sharedLibrary();
    std::shared_ptr<KV3Track> track = trackOf(identifierValue(received));
    if (!track->existsInLibrary())
        track = _library.trackWithPersistentID(identifierValue(received), library);
    const bool recorded = library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        return track->existsInLibrary() && track->populateLocationPropertiesWithPath(*path) &&
               track->setValue(false, KV3TrackPropertyNeedsRestore);
    });
    if (recorded)
        return std::nullopt;
    _files.unlink(*path);
    return Error(platform::POSIXErrorDomain, EIO,
                 "the library did not record where the restored file lies");
}

void AssetFiler::emptyStaging(const ReceivedAsset& received) {
    // What the plug-in took is gone already.
    for (const auto& staged : received.staged)
        staged->remove();
}

}  // namespace orlith
