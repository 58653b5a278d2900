// Feeds arbitrary bytes to both playlist parsers; the first byte chooses.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/playlists/playlists.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    host::ParsedPlaylist playlist;
    if (data[0] == 'X')
        host::parseXSPF(text, playlist);
    else
        host::parseM3U(text, playlist);
    return 0;
}
