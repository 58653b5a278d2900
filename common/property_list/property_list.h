// Property lists, XML and binary ("bplist00"), read from untrusted bytes and written.
//
// Any thread; no state. What is read can be written again in the same format: null, references of
// archived objects and anything malformed are refused. Sets are read as arrays; of two equal keys
// the later wins; a number that fits is Signed, a larger one Unsigned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "platform/errors.h"
#include "platform/operating_system.h"
#include "platform/values.h"

namespace common {

inline constexpr std::string_view PropertyListErrorDomain = "PropertyListError";

// Larger documents are refused, and none is written.
inline constexpr std::size_t maxPropertyListBytes = 64u << 20;

enum class PropertyListErrorCode : std::int64_t {
    Malformed = 1,        // the bytes are no property list
    LimitExceeded = 2,    // too deep, too many values or too large; see limits.h
    NotRepresentable = 3  // the value has no form in the format
};

// Tells the formats apart by content. Absent on failure, with the reason in `error` unless null.
std::optional<platform::Value> parsePropertyList(std::span<const std::uint8_t> bytes,
                                                 platform::OptionalError* error);

// Absent, with a reason, when a value has no form in the format: null, text that is no UTF-8, in
// XML also control characters and dates outside the years 0 to 9999. XML keeps dates to the second.
std::optional<platform::Data> serializePropertyList(const platform::Value& value,
                                                    platform::PropertyListFormat format,
                                                    platform::OptionalError* error);

}  // namespace common
