// Purpose: what a track that was deleted gets back when it returns.
// Calling thread: that of the transaction.
#pragma once

#include <cstdint>
#include <optional>

#include "common/sqlite/database.h"

namespace korvane {

struct IncomingTrack;

class RemovedTracks {
public:
    explicit RemovedTracks(common::Database& database)
        : _database(database),
          _remembersAny(database.int64("SELECT EXISTS (SELECT 1 FROM removed_memory)") != 0) {}

    // Whether there is any to give back.
    bool remembersAny() const { return _remembersAny; }
    // The persistent id that a track with this global id had, with its date, rating and bookmark
    // put into `values`. Absent when none was removed, or when its old id is in use again.
    std::optional<std::int64_t> recall(std::int64_t globalID, IncomingTrack& values);
    // Once the recalled track's rows exist, before it gets a revision: its counts. Nothing says any
    // more that it was deleted. (Its places in playlists wait under its global id.)
    void giveBack(std::int64_t globalID, std::int64_t pid);

private:
    common::Database& _database;
    const bool _remembersAny;
};

}  // namespace korvane
