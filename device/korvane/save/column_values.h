// Purpose: columns as the values that records hold.
// Calling thread: that of the statement, while it stands on a row.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace common {
class Statement;
}

namespace korvane {

// Records hold UTF-8 only: each byte that is part of none becomes the replacement character. What
// the field held is replaced.
void setText(std::string_view raw, std::string& field);
void setText(const common::Statement& row, int column, std::string& field);
void setBytes(const common::Statement& row, int column, std::string& field);
// Fields without sign; they never get a larger or negative value but by other statements.
std::uint32_t small(const common::Statement& row, int column);
std::uint64_t large(const common::Statement& row, int column);

}  // namespace korvane
