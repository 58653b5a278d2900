// Purpose: one record of a "QORX" stream as a JSON object, written piece by piece: a playlist may
// have a million items.
// Thread: any.
// Failure: none; what is no UTF-8 becomes U+FFFD.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace qorx {
class Header;
class Record;
}  // namespace qorx

namespace host {

// Takes text in pieces of about 64 KiB.
using TextSink = std::function<void(std::string_view)>;

// A line: {"type":"track", ...}, "playlist" or "deletion" with the fields that are set, by their
// names in common/qorx/qorx.proto. Ids and revisions are decimal strings, hashes and other bytes
// lower-case hexadecimal, paths text.
void writeRecordJson(const qorx::Record& record, const TextSink& sink);
// {"type":"header","section":1, ...}; `section` counts the streams of a file from 1.
void writeHeaderJson(const qorx::Header& header, std::size_t section, const TextSink& sink);

}  // namespace host
