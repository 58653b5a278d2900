// Purpose: which columns a track record fills, table by table, and with what. The one list from
//          which an import's statements and its comparison of old and new are made.
// Ownership: values are views of the record; they live as long as it does.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/values.h"

namespace qorx {
class Track;
}

namespace korvane {

// A record, and what of its row does not come from it alone.
struct IncomingTrack {
    const qorx::Track* record = nullptr;
    std::int64_t syncID = 0;
    // Of a new track: the picture that is to be pulled from a peer; empty: none is.
    std::string_view cloudArtworkToken = {};
    // A host sends the recommendation data that its records name; a peer does not.
    bool bringsKenningData = true;
    std::int64_t globalID = 0;
    std::int64_t sources = 0;
    std::int64_t dateAdded = 0;  // seconds since 1970
    std::int64_t addedMs = 0;    // milliseconds since 1970, as all that follow
    std::int64_t metadataChangedMs = 0;
    std::int64_t albumPID = 0;
    std::int64_t albumArtistPID = 0;
    std::int64_t itemArtistPID = 0;
    std::int64_t rating = 0;  // 0 to 100
    std::int64_t ratingChangedMs = 0;
    std::int64_t bookmarkMs = 0;
    std::int64_t bookmarkChangedMs = 0;
};

struct RecordColumn {
    const char* name;
    platform::ValueView (*value)(const IncomingTrack&);
    // The number of the field of a record (device/korvane/field_times.h) that it belongs to; 0 for
    // what has no moment of change, or one of its own.
    int field = 0;
};

struct RecordTable {
    const char* name;
    std::span<const RecordColumn> columns;
};

// item first, as it must be inserted; item_artwork last.
std::span<const RecordTable> recordTables();

// A number of a record as a column holds it: what is beyond 63 bits becomes the largest.
std::int64_t columnNumber(std::uint64_t value);

}  // namespace korvane
