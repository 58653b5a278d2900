// Purpose: what the steps of one import share.
// Calling thread: that of the import, inside its transaction.
// Ownership: lives for one import; the database is borrowed.
#pragma once

#include <cstdint>
#include <string>

#include "device/korvane/import/change_origin.h"
#include "device/korvane/import/named_entries.h"
#include "device/korvane/import/new_ids.h"
#include "device/korvane/import/unreported_changes.h"

namespace korvane {

struct ImportContext {
    common::Database& database;
    ChangeOrigin& origin;
    NewIDs& newIDs;
    const UnreportedChanges& unreported;
    // The peer whose ids the records carry, as a key of the table peer; 0 for one that is unknown.
    std::int64_t peerID = 0;
    // The bit of "sources" that the entries get.
    std::int64_t sourceBit = 0;
    // Milliseconds since 1970.
    std::int64_t nowMs = 0;
    // There was no track before: nothing needs to be looked up but what this import made.
    bool hadNoTracks = false;
    // Some track comes twice, so what this import made may be meant again.
    bool hasTwins = false;

    NamedEntries namedTracks = {};     // by item_id
    NamedEntries namedPlaylists = {};  // by container_id
    // An album or artist may have lost its last track.
    bool namesMayBeUnused = false;
};

}  // namespace korvane
