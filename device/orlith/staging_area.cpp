#include "device/orlith/staging_area.h"

#include <fmt/format.h>

#include "device/orlith/names.h"

namespace orlith {
namespace {

constexpr char Dataclass[] = "Media";
constexpr char ReceivedDirectory[] = "/var/mobile/Media/Stagehold/Media";
constexpr char ArtworkDirectory[] = "/var/mobile/Media/Stagehold/Media/Artwork";
constexpr char KenningDirectory[] = "/var/mobile/Media/Stagehold/Media/Kenning";
constexpr char DeliveredDirectory[] = "/var/mobile/Media/Stagehold/Media/Delivered";
constexpr char ChangesDirectory[] = "/var/mobile/Media/Stagehold/Media/Changes";
constexpr char PartialDirectory[] = "/var/mobile/Media/Stagehold/Partial";

}  // namespace

void StagingArea::processCompletedAsset(ORAsset& asset) {
    const std::scoped_lock lock(_mutex);
    const auto found = _restores.find(asset.identifier());
    if (!asset.isRestore() || found == _restores.end())
        return;
    Restore& restore = found->second;
    restore.installed = !_files.moveItem(restore.received, restore.destination);
}

std::optional<std::string> StagingArea::artworkPathForDataclass(
    const std::string& dataclass, const std::optional<std::string>& artworkIdentifier) {
    if (dataclass != Dataclass)
        return std::nullopt;
    if (!artworkIdentifier)
        return ArtworkDirectory;
    if (!isArtworkIdentifier(*artworkIdentifier) && !isArtworkCacheID(*artworkIdentifier))
        return std::nullopt;
    std::string path = artworkPath(*artworkIdentifier);
    const std::scoped_lock lock(_mutex);
    if (_deliveries.contains(*artworkIdentifier))
        return path;
    return existing(std::move(path));
}

std::optional<std::string> StagingArea::kenningPathForDataclass(
    const std::string& dataclass, const std::string& kenningIdentifier) {
    if (dataclass != Dataclass || !parseIdentifier(kenningIdentifier))
        return std::nullopt;
    return existing(kenningPath(kenningIdentifier));
}

std::string StagingArea::artworkPath(const std::string& artworkIdentifier) {
    return fmt::format("{}/{}", ArtworkDirectory, artworkIdentifier);
}

std::string StagingArea::kenningPath(const std::string& kenningIdentifier) {
    return fmt::format("{}/{}", KenningDirectory, kenningIdentifier);
}

std::string StagingArea::deliveredPath(const std::string& name) {
    return fmt::format("{}/{}", DeliveredDirectory, name);
}

std::string StagingArea::changesDirectory() {
    return ChangesDirectory;
}

std::string StagingArea::partialPath(const std::string& identifier, std::uint32_t part,
                                     std::optional<std::uint64_t> chapterMilliseconds) {
    std::string path = fmt::format("{}/{}-{}", PartialDirectory, identifier, part);
    if (chapterMilliseconds)
        path += fmt::format("-{}", *chapterMilliseconds);
    return path;
}

platform::OptionalError StagingArea::makeDirectories() {
    for (const char* directory :
         {ArtworkDirectory, KenningDirectory, DeliveredDirectory, PartialDirectory})
        if (auto error = _files.createDirectory(directory))
            return error;
    return std::nullopt;
}

void StagingArea::sweep(bool partialFilesToo) {
    _files.removeItem(ReceivedDirectory);
    if (partialFilesToo)
        _files.removeItem(PartialDirectory);
    const std::scoped_lock lock(_mutex);
    _restores.clear();
}

void StagingArea::beginDelivery(const std::string& artworkIdentifier) {
    const std::scoped_lock lock(_mutex);
    _deliveries.insert(artworkIdentifier);
}

void StagingArea::endDelivery(const std::string& artworkIdentifier) {
    const std::scoped_lock lock(_mutex);
    _deliveries.erase(artworkIdentifier);
}

void StagingArea::keepForRestore(const std::string& identifier, std::string received,
                                 std::string destination) {
    const std::scoped_lock lock(_mutex);
    _restores.insert_or_assign(identifier,
                               Restore{std::move(received), std::move(destination), false});
}

std::optional<std::string> StagingArea::takeRestored(const std::string& identifier) {
    const std::scoped_lock lock(_mutex);
    const auto node = _restores.extract(identifier);
    if (node.empty() || !node.mapped().installed)
        return std::nullopt;
    return node.mapped().destination;
}

std::optional<std::string> StagingArea::existing(std::string path) const {
    if (!_files.fileExists(path))
        return std::nullopt;
    return path;
}

}  // namespace orlith
