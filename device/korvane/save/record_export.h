// Purpose: the library's tracks and playlists as "QORX" records.
// Calling thread: that of the connection, inside a transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <string_view>

#include "common/sqlite/database.h"
#include "device/korvane/save/kept_records.h"
#include "device/korvane/save/track_rows.h"
#include "device/korvane/schema.h"
#include "platform/errors.h"

namespace qorx {
class Deletion;
class Playlist;
class Track;
}  // namespace qorx

namespace korvane {

class Library;

class RecordExport {
public:
    explicit RecordExport(common::Database& database);

    // Fills the record, which is cleared first, with all that travels. False: there is no such
    // entry, or no such deletion.
    bool track(std::int64_t pid, qorx::Track& record);
    // As track(), whether or not the library keeps its record.
    bool trackOfRows(std::int64_t pid, qorx::Track& record);
    bool playlist(std::int64_t pid, qorx::Playlist& record);
    bool deletion(EntityKind kind, std::int64_t pid, qorx::Deletion& record);

private:
    void fill(std::int64_t pid, qorx::Track& record);
    void plays(std::int64_t pid, qorx::Track& record);
    void fieldChanges(std::int64_t pid, qorx::Track& record);
    void items(std::int64_t containerID, qorx::Playlist& record);

    KeptRecords _kept;
    TrackRows _tracks;
    common::Query _plays;
    bool _hasFieldChanges;  // whether any track has one
    common::Query _fieldChanges;
    common::Query _playlist;
    common::Query _items;
    common::Query _deletion;
};

// What became of writing the record of an entry: one that no reader would take is left out, which
// the log says, so that it does not keep all others from travelling.
platform::OptionalError leaveOutIfTooLarge(const platform::OptionalError& written,
                                           const Library& library, std::string_view kind,
                                           std::int64_t pid);

}  // namespace korvane
