// Purpose: a peer's ids of entries beside ours, and which entries it claims.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "common/sqlite/database.h"
#include "device/korvane/schema.h"

namespace korvane {

class PeerIdentities {
public:
    // `peerID`: the key in the table peer.
    PeerIdentities(common::Database& database, std::int64_t peerID);

    // The peer has this id for the entry, and it; written only where that is new.
    void claim(EntityKind kind, std::int64_t peerPID, std::int64_t pid);
    // Takes the peer's claim off every entry that is not among `named` (its ids, ascending).
    // Answers with ours of those that no peer claims any more.
    std::vector<std::int64_t> dropClaims(EntityKind kind, std::span<const std::int64_t> named);

private:
    common::Database& _database;
    const std::int64_t _peerID;
    common::Query _claim;
};

}  // namespace korvane
