// Purpose: the records of tracks that changed few at a time, kept beside their revisions
//          (record_keeping.h says when).
// Calling thread: that of the connection, inside a transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <optional>

#include "common/sqlite/database.h"

namespace qorx {
class Track;
}

namespace korvane {

class KeptRecords {
public:
    explicit KeptRecords(common::Database& database);

    // Fills the record, which is clear, and leaves it so when there is none that can be read.
    bool find(std::int64_t pid, qorx::Track& record);

private:
    std::optional<common::Query> _find;  // absent: the library keeps none
};

}  // namespace korvane
