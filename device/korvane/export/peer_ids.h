// Purpose: a peer's own ids of entries that both have.
// Calling thread: that of the connection, inside a transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/sqlite/database.h"
#include "device/korvane/schema.h"

namespace korvane {

class PeerIds {
public:
    // `peerUID`: "" for no peer. Nothing is asked of the database for a peer without any.
    PeerIds(common::Database& database, const std::string& peerUID);

    // 0 where it is not known.
    std::int64_t of(EntityKind kind, std::int64_t pid);

private:
    std::int64_t _peerID = 0;
    std::optional<common::Query> _lookUp;
};

}  // namespace korvane
