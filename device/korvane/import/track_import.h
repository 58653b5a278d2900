// Purpose: brings track records into the library: finds the track that a record means, compares,
//          and writes only what differs; owners' values are merged, never just replaced.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "common/sqlite/database.h"
#include "device/korvane/field_times.h"
#include "device/korvane/import/deleted_entries.h"
#include "device/korvane/import/entry_finder.h"
#include "device/korvane/import/names.h"
#include "device/korvane/import/play_merge.h"
#include "device/korvane/import/removed_tracks.h"
#include "device/korvane/import/track_places.h"
#include "device/korvane/import/track_statements.h"

namespace qorx {
class Record;
class Track;
}  // namespace qorx

namespace korvane {

struct ImportContext;
struct IncomingTrack;

class TrackImport {
public:
    explicit TrackImport(ImportContext& context);

    // Ascending by sync id; batches come in that order too where possible, that is fastest. The
    // records live as long as the call.
    void apply(std::span<const qorx::Record* const> batch);
    // After the last: entries of playlists that waited for the new tracks are resolved.
    void finish();

private:
    bool findRow(const qorx::Track& record);
    IncomingTrack incoming(const qorx::Track& record);
    void update(const qorx::Track& record);
    void insertPending();
    std::int64_t insert(const qorx::Track& record, const TrackPlace& place);

    ImportContext& _context;
    EntryFinder _finder;
    Names _names;
    TrackPlaces _places;
    TrackStatements _statements;
    PlayMerge _plays;
    RemovedTracks _removed;
    DeletedEntries _deleted;
    FieldTimes _fieldTimes;
    std::vector<const qorx::Track*> _pending;  // of the batch: new, not inserted yet
    bool _hasInserted = false;
};

}  // namespace korvane
