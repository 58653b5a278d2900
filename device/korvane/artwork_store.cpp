#include "device/korvane/artwork_store.h"

#include <fmt/format.h>

#include <cmath>

#include "common/hash.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

namespace {

std::string parentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

}  // namespace

std::string artworkRelativePath(const std::string& token) {
    if (token.empty())
        return {};
    const std::string name = common::hexText(
        common::xxh3({reinterpret_cast<const std::uint8_t*>(token.data()), token.size()}));
    return fmt::format("{}/{}/{}", name.substr(0, 2), name.substr(2, 2), name);
}

std::string chapterArtworkToken(std::int64_t persistentID, double seconds) {
    return fmt::format("chapter-{}-{:.0f}", persistentID,
                       std::isfinite(seconds) ? seconds * 1000.0 : 0.0);
}

std::string chapterPicturePath(std::int64_t persistentID, std::uint64_t milliseconds) {
    return artworkRelativePath(
        chapterArtworkToken(persistentID, static_cast<double>(milliseconds) / 1000.0));
}

std::string ArtworkStore::originalPath(const std::string& relativePath) {
    return ArtworkOriginalsDirectory + relativePath;
}

bool ArtworkStore::hasOriginal(const std::string& relativePath) const {
    return !relativePath.empty() && _files.fileExists(originalPath(relativePath));
}

platform::OptionalError ArtworkStore::makeDirectory(const std::string& relativePath) {
    const std::string directory = parentOf(originalPath(relativePath));
    if (_files.fileExists(directory))
        return std::nullopt;
    if (auto error = _files.createDirectory(directory))
        return error;
    // The two folders that may be new lie in these.
    if (auto error = _files.syncDirectory(parentOf(directory)))
        return error;
    return _files.syncDirectory(parentOf(parentOf(directory)));
}

platform::OptionalError ArtworkStore::takeFile(const std::string& from,
                                               const std::string& relativePath) {
    const std::string to = originalPath(relativePath);
    if (auto error = makeDirectory(relativePath))
        return error;
    if (auto error = _files.syncFile(from))
        return error;
    if (auto error = _files.renameReplacing(from, to))
        return error;
    return _files.syncDirectory(parentOf(to));
}

platform::OptionalError ArtworkStore::write(const platform::Data& picture,
                                            const std::string& relativePath) {
    if (auto error = makeDirectory(relativePath))
        return error;
    return _files.writeFileDurably(originalPath(relativePath), picture);
}

}  // namespace korvane
