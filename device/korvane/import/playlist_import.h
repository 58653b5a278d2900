// Purpose: brings playlist records into the library, after the tracks that they name.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <vector>

#include "common/sqlite/database.h"
#include "device/korvane/import/entry_finder.h"

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
    // An entry in its place: a track of ours, or the ids that it came with.
    struct Entry {
        std::int64_t itemPID = 0;
        std::int64_t foreignPID = 0;
        std::int64_t foreignSyncID = 0;
        std::int64_t foreignGlobalID = 0;
        bool operator==(const Entry&) const = default;
    };

    std::optional<FoundEntry> find(const qorx::Playlist& record);
    std::int64_t insert(const qorx::Playlist& record);
    void update(const FoundEntry& found, const qorx::Playlist& record);
    void claim(std::int64_t containerID, std::int64_t syncID);
    std::vector<Entry> resolve(const qorx::Playlist& record);
    std::vector<Entry> held(std::int64_t containerID);
    void writeEntries(std::int64_t containerID, const std::vector<Entry>& entries);

    ImportContext& _context;
    EntryFinder _playlists;
    EntryFinder _tracks;
};

}  // namespace korvane
