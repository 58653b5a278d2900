// Purpose: brings another device's records of tracks into the library: tracks that are not here yet
//          become foreign ones, the others are merged with what is here.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "common/sqlite/database.h"
#include "device/korvane/import/entry_finder.h"
#include "device/korvane/import/names.h"
#include "device/korvane/import/play_merge.h"
#include "device/korvane/import/removed_tracks.h"
#include "device/korvane/import/track_merge.h"
#include "device/korvane/import/track_merge_statements.h"
#include "device/korvane/import/track_places.h"
#include "device/korvane/import/track_statements.h"

namespace qorx {
class Record;
class Track;
}  // namespace qorx

namespace korvane {

struct PeerImportContext;
struct IncomingTrack;

class PeerTrackImport {
public:
    explicit PeerTrackImport(PeerImportContext& context);

    // The records live as long as the call.
    void apply(std::span<const qorx::Record* const> batch);
    // After the last: entries of playlists that waited for the new tracks are resolved.
    void finish();

private:
    struct Inserted {
        std::int64_t pid = 0;
        bool isRecalled = false;
        bool recordLacksSomething = false;
    };

    std::optional<FoundEntry> find(const qorx::Track& record);
    bool isDeletedHere(const qorx::Track& record);
    IncomingTrack incoming(const qorx::Track& record);
    std::int64_t syncIDFor(std::int64_t persistentID);
    void insertPending();
    Inserted insert(const qorx::Track& record, const TrackPlace& place);
    void merge(const FoundEntry& found, const qorx::Track& record);

    PeerImportContext& _context;
    EntryFinder _finder;
    Names _names;
    TrackPlaces _places;
    TrackStatements _statements;
    TrackMergeStatements _merging;
    PlayMerge _plays;
    RemovedTracks _removed;
    // All tracks are of one stream: their ids differ, and no new persistent id is one of them.
    const bool _onlyPlaylistsUseIDs;
    common::Query _isUsedID;
    std::vector<const qorx::Track*> _pending;  // of the batch: new, not inserted yet
    bool _hasInserted = false;
};

}  // namespace korvane
