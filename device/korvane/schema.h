// Purpose: the library database's schema: its versions, how a database gets to the newest, and the
//          numbers that its columns hold. docs/library-schema.md tells what is where and why.
// Calling thread: that of the writing connection.
// Failure: SqliteError, with the database as it was.
#pragma once

#include <cstdint>
#include <string>

namespace common {
class Database;
}

namespace korvane {

// Stored as the database's user_version. A database newer than the last is refused.
enum class SchemaVersion : int {
    Empty = 0,
    First = 1,
    PurchaseOrigins = 2,  // the table purchase
    KeptRecords = 3,      // the column entity_revision.record
    Newest = KeptRecords,
};

// The column entity_kind.
enum class EntityKind : int { Track = 0, Playlist = 1 };

// Bits of the columns "sources": which kinds of import brought an entry in (1 << source number),
// and whether the owner made it on this device.
constexpr std::int64_t sourceBit(std::int64_t sourceNumber) {
    return std::int64_t{1} << sourceNumber;
}
inline constexpr std::int64_t OwnerSourceBit = 1;

// The column container.kind.
enum class ContainerKind : int { Plain = 0, Smart = 1 };

// change_state.origin of what the owner does; any other text is the uid of the peer or host whose
// stream is being imported.
inline constexpr char OwnerOrigin[] = "";

// Creates or migrates, each step in a transaction with its version. Throws SqliteError
// (SQLITE_CANTOPEN) for a database of a newer version.
void bringSchemaUpToDate(common::Database& database);

// The statements of each version, for bringSchemaUpToDate.
std::string firstSchemaTables();
std::string firstSchemaTriggers();
std::string purchaseOriginsSchema();
std::string keptRecordsSchema();

}  // namespace korvane
