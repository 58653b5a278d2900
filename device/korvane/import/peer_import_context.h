// Purpose: what the steps of the import of a peer's changes share.
// Calling thread: that of the import, inside its transaction.
// Ownership: lives for one import; the database is borrowed.
#pragma once

#include <cstdint>

#include "device/korvane/import/change_origin.h"
#include "device/korvane/import/deleted_entries.h"
#include "device/korvane/import/entry_finder.h"
#include "device/korvane/import/named_entries.h"
#include "device/korvane/import/new_ids.h"
#include "device/korvane/import/peer_identities.h"

namespace korvane {

struct PeerImportContext {
    common::Database& database;
    ChangeOrigin& origin;
    NewIDs& newIDs;
    DeletedEntries& deleted;
    PeerIdentities& identities;
    std::int64_t peerID = 0;  // the key in the table peer
    // The own ids that records name are this library's.
    bool knowsOwnIDs = false;
    // There was no track before, so no record means one.
    bool hadNoTracks = false;

    NamedEntries namedTracks = {};     // by item_id
    NamedEntries namedPlaylists = {};  // by container_id
    // What is here for the first time, or again.
    std::int64_t newTracks = 0;
    std::int64_t newPlaylists = 0;
    // An album or artist may have lost its last track.
    bool namesMayBeUnused = false;

    // The ids of a record that mean something here.
    template <typename Record>
    RecordIDs idsOf(const Record& record) const {
        RecordIDs ids = RecordIDs::of(record);
        ids.ownID = knowsOwnIDs ? ids.ownID : 0;
        return ids;
    }
};

}  // namespace korvane
