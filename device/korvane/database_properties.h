// Purpose: the library's key-value store.
// Calling thread: that of the connection.
// Failure: SqliteError; an array or dictionary has no form here.
#pragma once

#include <string_view>

#include "platform/values.h"

namespace common {
class Database;
}

namespace korvane {

// Null when there is none. Booleans and dates come back as such.
platform::Value databaseProperty(common::Database& database, std::string_view key);
// A null value deletes the property.
void setDatabaseProperty(common::Database& database, std::string_view key,
                         const platform::Value& value);
void deleteDatabaseProperty(common::Database& database, std::string_view key);

// Keys of the library's own, beside those that bundles use.
inline constexpr std::string_view SyncGenerationProperty = "KV3SyncGenerationID";
// Whether a host or another device has ever filled the library with tracks; absent: not seen yet.
inline constexpr std::string_view WasFilledProperty = "KV3LibraryWasFilled";
// When every smart playlist was last filled by its rules, seconds since 1970, to the hour; and the
// revision and number of tracks that all of them follow, as text.
inline constexpr std::string_view SmartPlaylistsFilledProperty = "KV3SmartPlaylistsFilled";
inline constexpr std::string_view SmartPlaylistsStateProperty = "KV3SmartPlaylistsState";

// Keys that say where the sync with the host stands.
inline constexpr std::string_view SyncAnchorProperty = "KVSyncClientSyncAnchor";
inline constexpr std::string_view LastSyncedRevisionProperty = "KVSyncClientLastSyncedRevision";
// Whether the library has made its own smart playlists, and whether they have gone again.
inline constexpr std::string_view CreatedBuiltInSmartPlaylistsProperty =
    "createdBuiltInSmartPlaylists";
inline constexpr std::string_view AutoCreatedSmartPlaylistsDeletedProperty =
    "autoCreatedSmartPlaylistsDeleted";

}  // namespace korvane
