// Purpose: brings playlist records into the library, after the tracks that they name.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <vector>

#include "common/sqlite/database.h"
#include "device/korvane/import/deleted_entries.h"
#include "device/korvane/import/entry_finder.h"
#include "device/korvane/import/playlist_entries.h"

namespace qorx {
class Playlist;
}

namespace korvane {

struct ImportContext;

class PlaylistImport {
public:
    explicit PlaylistImport(ImportContext& context);

    void apply(const qorx::Playlist& record);

private:
    std::optional<FoundEntry> find(const qorx::Playlist& record);
    std::int64_t insert(const qorx::Playlist& record);
    void update(const FoundEntry& found, const qorx::Playlist& record);
    void claim(std::int64_t containerID, std::int64_t syncID);
    std::vector<PlaylistEntry> resolve(const qorx::Playlist& record);
    void setItemsChanged(std::int64_t containerID, const qorx::Playlist& record);
    // The moment of a change that the host makes: the one that it names, or now.
    std::int64_t changedMs(const qorx::Playlist& record, std::int64_t heldMs) const;

    ImportContext& _context;
    EntryFinder _playlists;
    EntryFinder _tracks;
    DeletedEntries _deleted;
};

}  // namespace korvane
