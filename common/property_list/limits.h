// The bounds of every property list read or written, and how a refusal is put into words.
#pragma once

#include <cstddef>
#include <string_view>

#include "common/property_list/property_list.h"

namespace common::property_list {

// Arrays and dictionaries inside each other; stacks stay small.
inline constexpr int maxDepth = 64;
// Values, counted once for every place where they stand, so that references to a shared object
// cannot multiply: about 200 MB at the worst.
inline constexpr std::size_t maxValues = 1'000'000;
// Bytes of a document, and of all texts and data that are made of it.
inline constexpr std::size_t maxBytes = maxPropertyListBytes;

inline platform::Error malformed(std::string_view reason) {
    return {PropertyListErrorDomain, static_cast<std::int64_t>(PropertyListErrorCode::Malformed),
            reason};
}
inline platform::Error limitExceeded(std::string_view reason) {
    return {PropertyListErrorDomain,
            static_cast<std::int64_t>(PropertyListErrorCode::LimitExceeded), reason};
}
inline platform::Error notRepresentable(std::string_view reason) {
    return {PropertyListErrorDomain,
            static_cast<std::int64_t>(PropertyListErrorCode::NotRepresentable), reason};
}

inline platform::Error tooDeep() {
    return limitExceeded("nested too deeply");
}
inline platform::Error tooManyValues() {
    return limitExceeded("too many values");
}
inline platform::Error tooLarge() {
    return limitExceeded("too large");
}

}  // namespace common::property_list
