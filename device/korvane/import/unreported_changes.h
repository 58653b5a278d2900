// Purpose: what the owner changed after the last save, here or on another device: an import neither
// overwrites nor forgets it.
#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "device/korvane/schema.h"

namespace common {
class Database;
}

namespace korvane {

class UnreportedChanges {
public:
    // The owner's changes with a revision above the one that the last save covered.
    UnreportedChanges(common::Database& database, std::int64_t coveredRevision);

    // Whether the owner deleted the entry that a record names, which no host knows yet: the record
    // is not to bring it back.
    bool isDeleted(EntityKind kind, std::int64_t syncID, std::int64_t globalID) const;
    bool isChanged(EntityKind kind, std::int64_t pid) const;
    // An import's own changes have replaced the mark; the next save is to find the owner's.
    void markAgain(common::Database& database) const;

private:
    struct Kind {
        std::unordered_set<std::int64_t> deletedSyncIDs;
        std::unordered_set<std::int64_t> deletedGlobalIDs;
        std::unordered_set<std::int64_t> changed;
    };
    const Kind& of(EntityKind kind) const { return _kinds[static_cast<int>(kind)]; }

    Kind _kinds[2];
};

}  // namespace korvane
