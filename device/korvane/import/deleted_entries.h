// Purpose: until when the incarnations of an entry are deleted, wherever they come from.
// Calling thread: that of the transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <string_view>

#include "common/sqlite/database.h"
#include "device/korvane/schema.h"

namespace korvane {

class NewIDs;

class DeletedEntries {
public:
    explicit DeletedEntries(common::Database& database);

    // The moment of the latest deletion, milliseconds since 1970; 0: there was none.
    std::int64_t deletedMs(EntityKind kind, std::int64_t globalID);
    // The birth of an incarnation that begins now: after the latest deletion.
    std::int64_t birthMs(EntityKind kind, std::int64_t globalID, std::int64_t nowMs);
    // A trigger has written a deletion since.
    void noteDeletion() { _remembersAny = true; }
    // Incarnations born until then are deleted from now on, also where there is none, and others
    // are told so with this origin. Nothing lives under the global id.
    struct Deletion {
        EntityKind kind = EntityKind::Track;
        std::int64_t globalID = 0;
        std::int64_t deletedMs = 0;
        std::int64_t mediaType = 0;  // 0: a playlist's, or not known
    };
    void tell(const Deletion& deletion, std::string_view origin, NewIDs& newIDs);

private:
    // The persistent id that the log tells the deletion by.
    std::int64_t pidOf(const Deletion& deletion, NewIDs& newIDs);

    common::Database& _database;
    bool _remembersAny;
    common::Query _find;
};

}  // namespace korvane
