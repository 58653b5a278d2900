// Library's operations on pictures.
#include <cerrno>
#include <cstring>
#include <vector>

#include "common/sqlite/database.h"
#include "device/korvane/artwork_rows.h"
#include "device/korvane/library.h"
#include "device/korvane/wanted_pictures.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

bool Library::importExistingOriginalArtworkWithArtworkToken(const std::string& token,
                                                            std::int64_t artworkType,
                                                            std::int64_t sourceType,
                                                            std::uint32_t mediaType) {
    if (!_artwork.hasOriginal(artworkRelativePath(token)))
        return false;
    return change("importExistingOriginalArtworkWithArtworkToken:artworkType:sourceType:mediaType:",
                  [&](common::Database& database) {
                      recordArtwork(database, {token, artworkType, sourceType, mediaType});
                      return true;
                  });
}

bool Library::importOriginalArtworkFromFileURL(const std::string& path, const std::string& token,
                                               std::int64_t artworkType, std::int64_t sourceType,
                                               std::uint32_t mediaType) {
    constexpr char Operation[] =
        "importOriginalArtworkFromFileURL:withArtworkToken:artworkType:sourceType:mediaType:";
    if (token.empty() || !_configuration.artworkInspector.isShowablePicture(path))
        return false;
    // The file first: a row without a picture would be believed, a picture without a row is found
    // again by its token.
    if (const auto error = _artwork.takeFile(path, artworkRelativePath(token))) {
        _log.error(Operation, error->description());
        return false;
    }
    return change(Operation, [&](common::Database& database) {
        recordArtwork(database, {token, artworkType, sourceType, mediaType});
        return true;
    });
}

std::optional<KV3Artwork> Library::fetchItemArtworkForPersistentID(std::int64_t persistentID) {
    std::optional<KV3Artwork> artwork;
    read("fetchItemArtworkForPersistentID:", [&](common::Database& database) {
        auto row = database.query(
            "SELECT a.relative_path FROM item_artwork w JOIN artwork a ON a.artwork_token = "
            "w.best_artwork_token WHERE w.item_pid = ?",
            persistentID);
        if (row.step())
            artwork = KV3Artwork{ArtworkStore::originalPath(std::string(row->text(0)))};
        return true;
    });
    return artwork;
}

void Library::deleteOrphanedArtworkWithSearchOptions(std::int64_t searchOptions) {
    if (searchOptions != KV3ArtworkSearchRecorded)
        return;
    static constexpr char Operation[] = "deleteOrphanedArtworkWithSearchOptions:";
    change(Operation, [&](common::Database& database) {
        std::vector<std::string> orphans = forgetOrphanedArtwork(database);
        // A picture whose row comes back with a rollback must still be there.
        _connections->whenCommitted([this, orphans = std::move(orphans)] {
            for (const std::string& relativePath : orphans)
                removePicture(Operation, relativePath);
        });
        return true;
    });
}

void Library::removePicture(std::string_view operation, const std::string& relativePath) {
    if (const int error = _configuration.files.unlink(ArtworkStore::originalPath(relativePath));
        error != 0 && error != ENOENT)
        _log.warning(operation, relativePath + ": " + std::strerror(error));
}

void Library::recordFoundOriginals() {
    std::vector<OriginalArtwork> found;
    read("recordFoundOriginals", [&](common::Database& database) {
        auto missing = database.prepare(
            "SELECT w.sync_artwork_token, i.media_type FROM item_artwork w JOIN item i USING "
            "(item_id) WHERE w.sync_artwork_token <> '' AND NOT EXISTS (SELECT 1 FROM artwork a "
            "WHERE a.artwork_token = w.sync_artwork_token) GROUP BY w.sync_artwork_token");
        while (missing->step()) {
            OriginalArtwork original{std::string(missing->text(0)), ArtworkTypeCover,
                                     ArtworkSourceHost,
                                     static_cast<std::uint32_t>(missing->int64(1))};
            if (_artwork.hasOriginal(artworkRelativePath(original.token)))
                found.push_back(std::move(original));
        }
        return true;
    });
    if (found.empty())
        return;
    change("recordFoundOriginals", [&](common::Database& database) {
        for (const OriginalArtwork& original : found)
            recordArtwork(database, original);
        return true;
    });
}

void Library::discardChapterPictures(std::int64_t syncID,
                                     std::span<const std::uint64_t> milliseconds) {
    static constexpr char Operation[] = "discardChapterPictures";
    std::optional<std::int64_t> track;
    read(Operation, [&](common::Database& database) {
        auto row = database.query(
            "SELECT item_pid FROM item_store WHERE sync_id = ? AND sync_id <> 0", syncID);
        if (row.step())
            track = row->int64(0);
        return true;
    });
    if (!track)
        return;
    for (const std::uint64_t start : milliseconds)
        removePicture(Operation, chapterPicturePath(*track, start));
}

}  // namespace korvane
