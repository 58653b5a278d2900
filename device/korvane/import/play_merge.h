// Purpose: merges counts and owner's values that came with a record.
// Calling thread: that of the import, inside its transaction.
#pragma once

#include <cstdint>

#include "common/sqlite/database.h"

namespace qorx {
class PlayStatistics;
class Track;
}  // namespace qorx

namespace korvane {

class ChangeOrigin;
struct IncomingTrack;

// Rating and bookmark: the later one wins, equal times the larger. What is there already stands in
// the incoming track.
void mergeOwnerValues(const qorx::Track& record, IncomingTrack& into);

// Whether a track has another rating or bookmark than its record.
bool holdsMoreOwnerValues(const IncomingTrack& track, const qorx::Track& record);

// Absolute counts per origin: the larger wins.
class PlayMerge {
public:
    PlayMerge(common::Database& database, ChangeOrigin& origin);
    // Writes only what grows. The track's rows exist.
    void merge(std::int64_t pid, const qorx::Track& record);
    // The same for a new track, which has no counts yet.
    void add(std::int64_t pid, const qorx::Track& record);

    // After merging: whether the track has counts that the record does not.
    bool holdsMore(std::int64_t pid, const qorx::Track& record);

private:
    bool grows(std::int64_t pid, const qorx::PlayStatistics& plays);
    void write(std::int64_t pid, const qorx::PlayStatistics& plays);

    ChangeOrigin& _origin;
    common::Query _grows;
    common::Query _write;
    common::Query _rows;
};

}  // namespace korvane
