#include "device/orlith/purchase_installer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <span>
#include <utility>

#include "common/unique_fd.h"
#include "device/downloads/address.h"
#include "device/downloads/media_content.h"
#include "device/downloads/media_name.h"
#include "device/korvane/purchase_files.h"
#include "device/korvane/purchases.h"
#include "platform/media_library_properties.h"
#include "platform/store_downloads.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::array MediaTypes = std::to_array<std::pair<std::string_view, std::uint32_t>>(
    {{VDDownloadKindAudiobook, KV3MediaTypeAudiobook},
     {VDDownloadKindMovie, KV3MediaTypeMovie},
     {VDDownloadKindMusicVideo, KV3MediaTypeMusicVideo},
     {VDDownloadKindTelevisionEpisode, KV3MediaTypeTVEpisode},
     {VDDownloadKindVideoPodcast, KV3MediaTypeVideoPodcast},
     {VDDownloadKindPodcast, KV3MediaTypePodcast}});

std::uint32_t mediaTypeOf(std::string_view kind) {
    for (const auto& [known, mediaType] : MediaTypes)
        if (known == kind)
            return mediaType;
    return KV3MediaTypeMusic;
}

// A file of this machine may go with the machine; a store stays.
bool isFetchable(const korvane::PurchaseFile& file) {
    OptionalError ignored;
    const auto address = downloads::parseAddress(file.source, ignored);
    return file.isFromHost || (address && address->scheme != downloads::Scheme::File);
}

// The track is gone; nothing is wrong with the library.
bool isRefusal(const Error& error) {
    return error.domain == korvane::LibraryErrorDomain &&
           error.code == korvane::LibraryErrorRefused;
}

bool isMissing(const Error& error) {
    return error.domain == korvane::LibraryErrorDomain &&
           error.code == korvane::LibraryErrorNotFound;
}

}  // namespace

std::optional<downloads::PreparedItem> PurchaseInstaller::prepare(
    const downloads::DownloadItem& item, OptionalError* error) {
    OptionalError problem;
    const korvane::Purchase purchase{
        item.storeItem,
        item.storeAccount,
        mediaTypeOf(item.kind),
        item.title.empty() ? downloads::nameStem(item.fileName) : item.title,
        downloads::nameExtension(item.fileName),
        item.isTemporary,
        item.libraryItem};
    const auto track = korvane::findOrMakePurchase(_library, purchase, problem);
    if (track && track->hasFile)
        problem = Error(platform::POSIXErrorDomain, EEXIST,
                        fmt::format("\"{}\" is on the device already.", purchase.title));
    if (problem && isMissing(*problem))
        problem = Error(platform::POSIXErrorDomain, ESRCH, problem->text());
    if (problem && error)
        *error = problem;
    if (problem)
        return std::nullopt;
    return downloads::PreparedItem{track->persistentID, track->isNew};
}

OptionalError PurchaseInstaller::install(const downloads::DownloadItem& item,
                                         const std::string& stagedPath) {
    const korvane::ActivityLock::Hold hold = _activities.holdForFiles();
    if (OptionalError error = checkContent(stagedPath))
        return error;
    const std::lock_guard filing(_filing);
    const std::string extension = downloads::nameExtension(item.fileName);
    const std::string path =
        fmt::format("{}/{}.{}", korvane::PurchasesDirectory, item.libraryItem, extension);
    if (OptionalError error = moveIntoPlace(stagedPath, path))
        return error;
    const std::string title = item.title.empty() ? downloads::nameStem(item.fileName) : item.title;
    const OptionalError error = korvane::recordPurchasedFile(
        _library, item.libraryItem, {path, title, extension, item.source, item.kind});
    if (error && isRefusal(*error)) {
        _files.unlink(path);
        return Error(platform::POSIXErrorDomain, ESRCH, error->text());
    }
    if (error)
        return error;
    _library.notifyContentsDidChange();
    return std::nullopt;
}

// A file that was moved already, by an attempt that was killed, has been checked.
OptionalError PurchaseInstaller::checkContent(const std::string& stagedPath) {
    if (!_files.fileExists(stagedPath))
        return std::nullopt;
    OptionalError error;
    const common::UniqueFd file = _files.openFile(stagedPath, O_RDONLY, 0, &error);
    if (!file)
        return error;
    std::array<std::uint8_t, downloads::TellingBytes> head{};
    const ssize_t size = ::read(file.get(), head.data(), head.size());
    if (size < 0)
        return Error::posix(errno);
    if (!downloads::beginsAsMedia(std::span(head).first(static_cast<std::size_t>(size))))
        return Error(platform::POSIXErrorDomain, EBADMSG,
                     "What the address gives is no media file.");
    return std::nullopt;
}

// The bytes are on the disk; afterwards their name is too.
OptionalError PurchaseInstaller::moveIntoPlace(const std::string& stagedPath,
                                               const std::string& path) {
    if (OptionalError error = _files.createDirectory(korvane::PurchasesDirectory))
        return error;
    // An attempt that was killed may have moved it already.
    if (!_files.fileExists(stagedPath) && _files.fileExists(path))
        return std::nullopt;
    if (OptionalError error = _files.renameReplacing(stagedPath, path))
        return error;
    return _files.syncDirectory(korvane::PurchasesDirectory);
}

void PurchaseInstaller::abandon(std::int64_t libraryItem) {
    korvane::removeUnfinishedPurchase(_library, libraryItem);
}

bool PurchaseInstaller::sourceIsGone(std::int64_t libraryItem) {
    const auto title = korvane::giveUpRestore(_library, libraryItem);
    if (title && _gaveUp)
        _gaveUp(*title);
    return title.has_value();
}

std::optional<std::vector<downloads::FileClass>> PurchaseInstaller::settleFiles(
    const std::vector<std::string>& names, OptionalError* error) {
    const std::lock_guard filing(_filing);
    OptionalError problem;
    const auto files = korvane::settlePurchaseFiles(_library, names, problem);
    if (problem && error)
        *error = problem;
    if (!files)
        return std::nullopt;
    std::vector<downloads::FileClass> classes;
    for (const korvane::PurchaseFile& file : *files)
        classes.push_back(file.track == 0     ? downloads::FileClass::Unowned
                          : isFetchable(file) ? downloads::FileClass::Fetchable
                                              : downloads::FileClass::Backup);
    return classes;
}

}  // namespace orlith
