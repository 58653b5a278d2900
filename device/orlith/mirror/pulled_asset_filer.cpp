#include "device/orlith/mirror/pulled_asset_filer.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "device/orlith/asset.h"
#include "device/orlith/asset_filer.h"
#include "device/orlith/mirror/chapter_pictures.h"
#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

// Removes files when the scope ends; the plug-in has moved away what it took.
class Leftovers {
public:
    explicit Leftovers(device::RootedFileSystem& files) : _files(files) {}
    ~Leftovers() {
        for (const std::string& path : _paths)
            _files.unlink(path);
    }
    Leftovers(const Leftovers&) = delete;
    Leftovers& operator=(const Leftovers&) = delete;
    void add(std::string path) { _paths.push_back(std::move(path)); }

private:
    device::RootedFileSystem& _files;
    std::vector<std::string> _paths;
};

class Delivery {
public:
    Delivery(StagingArea& staging, std::string identifier)
        : _staging(staging), _identifier(std::move(identifier)) {
        _staging.beginDelivery(_identifier);
    }
    ~Delivery() { _staging.endDelivery(_identifier); }
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

private:
    StagingArea& _staging;
    const std::string _identifier;
};

std::string lastComponent(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

OptionalError PulledAssetFiler::file(PulledAsset& pulled) {
    OptionalError failure = pulled.failure;
    if (!failure)
        failure = deliver(pulled);
    if (!failure)
        return std::nullopt;
    for (const auto& picture : pulled.chapters)
        picture.file->remove();
    // A media file that was cut off stays: the next run goes on from there.
    if (pulled.file && !pulled.failure)
        pulled.file->remove();
    return failure;
}

OptionalError PulledAssetFiler::deliver(PulledAsset& pulled) {
    if (OptionalError error = pulled.file->sync())
        return error;
    for (const auto& picture : pulled.chapters)
        if (OptionalError error = picture.file->sync())
            return error;
    return pulled.wanted.parts == PartFile ? fileTrack(pulled) : filePictures(pulled);
}

OptionalError PulledAssetFiler::fileTrack(PulledAsset& pulled) {
    // A name of its own, for two devices' files of one name may go to one folder.
    const std::string name = pulled.fileExtension.empty()
                                 ? fmt::format("{}", pulled.wanted.syncID)
                                 : fmt::format("{}.{}", pulled.wanted.syncID, pulled.fileExtension);
    const std::string delivered = StagingArea::deliveredPath(name);
    Leftovers leftovers(_services.device.files);
    leftovers.add(delivered);
    if (OptionalError error =
            _services.device.files.renameReplacing(pulled.file->path(), delivered))
        return error;
    pulled.wanted.asset->setPath(delivered);
    const bool isKnown = trackOf(pulled)->existsInLibrary();
    _services.assets.assetSyncDidCompleteWithError(pulled.wanted.asset, std::nullopt);
    return isKnown ? readBackTrack(pulled, name) : recordRestore(pulled, name);
}

// A track that waits for a restore may have no sync id: the plug-in has moved its file to the
// folder of the identifier, and found no track for it.
OptionalError PulledAssetFiler::recordRestore(const PulledAsset& pulled, const std::string& name) {
    device::RootedFileSystem& files = _services.device.files;
    const std::string moved =
        MediaDirectory + destinationDirectory(pulled.wanted.syncID, {}) + "/" + name;
    const std::string purchases = std::string(MediaDirectory) + "Purchases";
    const std::string path = purchases + "/" + name;
    Leftovers leftovers(files);
    leftovers.add(moved);
    MediaLibraryFramework& framework = _services.device.mediaLibrary;
    const std::shared_ptr<KV3Korvane> library = framework.sharedLibrary();
    const std::shared_ptr<KV3Track> track =
        framework.trackWithPersistentID(pulled.wanted.syncID, library);
    if (!pulled.wanted.asset->isRestore() || !track->existsInLibrary())
        return Error(platform::POSIXErrorDomain, ENOENT, "the library has no such track any more");
    if (OptionalError error = files.createDirectory(purchases))
        return error;
    if (OptionalError error = files.renameReplacing(moved, path))
        return error;
    if (OptionalError error = files.syncDirectory(purchases))
        return error;
    const bool isRecorded =
        library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
            return track->populateLocationPropertiesWithPath(path) &&
                   track->setValue(false, KV3TrackPropertyNeedsRestore);
        });
    if (isRecorded)
        return std::nullopt;
    files.unlink(path);
    return Error(platform::POSIXErrorDomain, EIO,
                 "the library did not record where the restored file lies");
}

OptionalError PulledAssetFiler::readBackTrack(const PulledAsset& pulled, const std::string& name) {
    const std::shared_ptr<KV3Track> track = trackOf(pulled);
    if (!track->existsInLibrary())
        return Error(platform::POSIXErrorDomain, ENOENT, "the library has no such track any more");
    const std::optional<std::string> path = track->absoluteFilePath();
    if (!path || lastComponent(*path) != name || !_services.device.files.fileExists(*path) ||
        track->valueForProperty(KV3TrackPropertyNeedsRestore).boolValue()) {
        const auto free = _services.device.files.freeSpace(MediaDirectory, nullptr);
        return free && *free < ReservedSpace
                   ? Error(platform::POSIXErrorDomain, ENOSPC,
                           "the device is too full to take the file into its library")
                   : Error(platform::POSIXErrorDomain, EIO,
                           "the library did not record where the file lies");
    }
    // The library's commit came after the move and carries it on a journalling file system; others
    // are asked.
    return _services.device.files.syncDirectory(path->substr(0, path->rfind('/')));
}

OptionalError PulledAssetFiler::filePictures(PulledAsset& pulled) {
    const std::string identifier = pulled.wanted.asset->identifier();
    const std::shared_ptr<KV3Track> track = trackOf(pulled);
    if (!track->existsInLibrary())
        return Error(platform::POSIXErrorDomain, ENOENT, "the library has no such track any more");
    const std::string delivered = StagingArea::deliveredPath(identifier + ".artwork");
    Leftovers leftovers(_services.device.files);
    leftovers.add(delivered);
    leftovers.add(StagingArea::artworkPath(identifier));
    if (OptionalError error =
            _services.device.files.renameReplacing(pulled.file->path(), delivered))
        return error;
    std::vector<std::string> staged;
    const OptionalError chapters = stageChapters(pulled, *track, staged);
    for (std::string& path : staged)
        leftovers.add(std::move(path));
    if (chapters)
        return chapters;
    // Chapters may use the cover itself, so it is staged as a link.
    const Delivery delivery(_services.device.staging, identifier);
    pulled.wanted.asset->setPath(delivered);
    _services.assets.assetSyncDidCompleteWithError(pulled.wanted.asset, std::nullopt);
    const platform::Value token = track->valueForProperty(KV3TrackPropertyCloudArtworkToken);
    if (!token.string() || _services.peers.picturePath(*token.string()).empty())
        return Error(platform::POSIXErrorDomain, EBADMSG, "the library did not take the picture");
    return std::nullopt;
}

// The plug-in wants a picture of every chapter that names one before it takes the cover: where the
// other device has none, the cover stands in.
OptionalError PulledAssetFiler::stageChapters(PulledAsset& pulled, KV3Track& track,
                                              std::vector<std::string>& staged) {
    device::RootedFileSystem& files = _services.device.files;
    const std::string cover =
        StagingArea::deliveredPath(pulled.wanted.asset->identifier() + ".artwork");
    for (const ChapterPicture& chapter :
         chapterPictures(_services.device.mediaLibrary, _services.peers, track)) {
        const std::string target = StagingArea::artworkPath(chapter.cacheID);
        staged.push_back(target);
        files.unlink(target);
        const auto came = std::find_if(
            pulled.chapters.begin(), pulled.chapters.end(),
            [&](const PulledPicture& p) { return p.chapterCacheID == chapter.cacheID; });
        const OptionalError error = came == pulled.chapters.end() ? files.linkItem(cover, target)
                                                                  : came->file->moveTo(target);
        if (error)
            return error;
    }
    return std::nullopt;
}

std::shared_ptr<KV3Track> PulledAssetFiler::trackOf(const PulledAsset& pulled) {
    MediaLibraryFramework& library = _services.device.mediaLibrary;
    return library.anyTrack(library.sharedLibrary(),
                            KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(
                                KV3TrackPropertySyncID, pulled.wanted.syncID));
}

}  // namespace orlith
