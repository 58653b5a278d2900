// Database properties that say where the sync with the host stands. The library's import writes
// them; the plug-in reads and deletes them.
#pragma once

#include <string_view>

// The anchor of the last completed sync, a string.
inline constexpr std::string_view KVSyncAnchorProperty = "KVSyncClientSyncAnchor";
// The library's revision then, an integer.
inline constexpr std::string_view KVLastSyncedRevisionProperty = "KVSyncClientLastSyncedRevision";
