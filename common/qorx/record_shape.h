// What keeps a small record from becoming a large object. For the use of reader and writer.
#pragma once

#include <cstdint>
#include <span>

namespace common {

// Whether the elements and fields of an encoded record stay within their bounds: at most
// QorxElementLimit elements, and in a large record four bytes to a field. Bytes that are no record
// may pass; the parser refuses them.
bool hasBoundedShape(std::span<const std::uint8_t> record);

}  // namespace common
