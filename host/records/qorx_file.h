// Purpose: reads the streams of a "QORX" file one after another (a change stream has two:
// playlists, then tracks). Thread: one at a time. Failure: a file that is cut, changed or split
// elsewhere than its parameters say is refused with the byte where that showed; a reason in plain
// words.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/errors.h"

namespace qorx {
class Header;
class Record;
}  // namespace qorx

namespace host {

struct QorxTotals {
    std::size_t sections = 0;
    std::uint64_t tracks = 0;
    std::uint64_t playlists = 0;
    std::uint64_t deletions = 0;
    std::uint64_t bytes = 0;
};

// Hears of a file's contents in order.
struct QorxListener {
    std::function<void(const qorx::Header& header, std::size_t section)> header;
    std::function<void(const qorx::Record& record)> record;
};

// The whole file is checked before the listener hears of anything. `playlistBytes` is where the
// first stream is to end when that is known (PlaylistDataLen); 0: there is one stream only.
platform::OptionalError readQorxFile(const std::string& path,
                                     std::optional<std::uint64_t> playlistBytes,
                                     const QorxListener& listener, QorxTotals& totals);

}  // namespace host
