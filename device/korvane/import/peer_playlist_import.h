// Purpose: brings another device's records of playlists into the library: new ones become foreign,
//          the others are merged with what is here, name and items each as a whole.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/sqlite/database.h"
#include "device/korvane/import/entry_finder.h"
#include "device/korvane/import/playlist_entries.h"

namespace qorx {
class Playlist;
}

namespace korvane {

struct PeerImportContext;

class PeerPlaylistImport {
public:
    explicit PeerPlaylistImport(PeerImportContext& context);

    void apply(const qorx::Playlist& record);

private:
    // What of a playlist has one moment of change, in a form that is the same on every device.
    struct Items {
        std::int64_t changedMs = 0;
        std::int64_t kind = 0;
        std::int64_t builtInKind = 0;
        std::string rules;
        std::vector<std::uint64_t> tracks;  // global ids; 0: it has none
        auto operator<=>(const Items&) const = default;
    };
    struct Name {
        std::int64_t changedMs = 0;
        std::string text;
        auto operator<=>(const Name&) const = default;
    };
    // As of a record, or as the library has it.
    struct State {
        Name name;
        Items items;
        std::int64_t addedMs = 0;
        std::uint64_t globalID = 0;
        auto operator<=>(const State&) const = default;
    };

    bool isDeletedHere(const qorx::Playlist& record);
    State stateOf(const qorx::Playlist& record, const std::vector<PlaylistEntry>& entries);
    State held(std::int64_t containerID);
    std::uint64_t globalIDOf(const PlaylistEntry& entry);
    std::vector<PlaylistEntry> resolve(const qorx::Playlist& record);
    FoundEntry insert(const qorx::Playlist& record, const State& state);
    void merge(const FoundEntry& found, const State& sent,
               const std::vector<PlaylistEntry>& entries);
    void write(const FoundEntry& found, const State& state);
    void writeEntries(std::int64_t containerID, const std::vector<PlaylistEntry>& entries);

    PeerImportContext& _context;
    EntryFinder _playlists;
    EntryFinder _tracks;
    common::Query _globalID;
};

}  // namespace korvane
