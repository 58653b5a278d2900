// Purpose: what path an entry of a playlist means.
// Thread: any.
// Failure: none.
#pragma once

#include <string_view>

#include "host/playlists/playlists.h"

namespace host {

// How a format writes its entries.
enum class EntryStyle {
    Path,  // M3U: a path, now and then an address
    Uri,   // XSPF: an address, now and then a bare path
};

PlaylistLine lineOfEntry(std::string_view entry, EntryStyle style);

}  // namespace host
