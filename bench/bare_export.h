// Purpose: the peers of exports: the same rows read with SQLite's own interface and encoded as the
//          same records, and a changeset of SQLite's session extension that holds the same tracks.
// Failure: ends the program.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "bench/bare_sqlite.h"
#include "bench/figures.h"

namespace bench {

// Reads tracks and encodes a record of each, in pieces as an export makes them; nothing is checked
// and nothing kept.
class BareTrackReader {
public:
    explicit BareTrackReader(sqlite3* connection);

    // Bytes of the records.
    std::uint64_t readAll();
    // By persistent id, in one transaction.
    std::uint64_t readSome(std::span<const std::int64_t> pids);

private:
    sqlite3* const _connection;
    BareStatement _all;
    BareStatement _one;
};

// Whose rows are recorded.
enum class RecordedTables {
    Tracks,              // those of tracks and their names
    TracksAndChangeLog,  // and their revisions
};

// Every row of the tracks, recorded as inserted.
class RecordedChanges {
public:
    // Copies a database's tracks to a new one while they are recorded. At `path` of this machine.
    RecordedChanges(const std::string& from, const std::string& path,
                    RecordedTables tables = RecordedTables::Tracks);
    ~RecordedChanges();
    RecordedChanges(const RecordedChanges&) = delete;
    RecordedChanges& operator=(const RecordedChanges&) = delete;

    // Makes the changeset in pieces; its bytes.
    std::uint64_t makeChangeset();
    // Makes it in one piece.
    std::vector<std::uint8_t> changeset();

private:
    struct State;
    const std::unique_ptr<State> _state;
};

// Applies a changeset to a new database with the tables and the indices that `library` has for
// them, in one transaction. The cost is that of applying.
Cost applyChangeset(std::span<const std::uint8_t> changeset, const std::string& library,
                    const std::string& path, RecordedTables tables);

}  // namespace bench
