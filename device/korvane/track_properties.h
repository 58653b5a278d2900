// Purpose: where each property of a track stands in the database.
// Calling thread: any; constants.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/media_library_properties.h"

namespace korvane {

enum class ColumnType : std::uint8_t {
    Integer,  // never null: a null value is stored as 0
    NullableInteger,
    Text,  // never null: a null value is stored as ""; "" is read as null
    NullableText,
    Blob,  // nullable
};

// Tables of a track under the names that queries give them, as bits. item is always there.
enum TrackTableBit : unsigned {
    JoinsExtra = 1,             // e
    JoinsStore = 2,             // s
    JoinsStats = 4,             // st
    JoinsArtwork = 8,           // w
    JoinsAlbum = 16,            // al
    JoinsAlbumArtist = 32,      // aa
    JoinsItemArtist = 64,       // ar
    JoinsBaseLocation = 128,    // bl
    JoinsKenningMetadata = 256  // km
};

struct TrackColumn {
    KV3TrackProperty property;
    ColumnType type;
    unsigned joins;          // what the expression needs
    const char* expression;  // in a query over trackTables()
    const char* table;       // where it is set; null for what cannot be set as a column
    const char* column;
};

const TrackColumn& trackColumn(KV3TrackProperty property);

// "item i JOIN ..." with the tables of `joins`. `scansTable`: the tracks are read in table order,
// which is the fastest way to read many of them; otherwise the engine may use an index to find few.
std::string trackTables(unsigned joins, bool scansTable);

}  // namespace korvane
