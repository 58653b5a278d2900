// What every property list that is read must allow: being written, and read again as the same.
#pragma once

#include <cstdlib>
#include <span>

#include "common/property_list/property_list.h"

namespace fuzz {

inline void checkPropertyList(std::span<const std::uint8_t> bytes,
                              platform::PropertyListFormat format) {
    platform::OptionalError error;
    const auto value = common::parsePropertyList(bytes, &error);
    if (value.has_value() == error.has_value())
        std::abort();
    if (!value)
        return;
    const auto written = common::serializePropertyList(*value, format, &error);
    if (!written)
        std::abort();
    const auto again = common::parsePropertyList(*written, &error);
    if (!again || common::serializePropertyList(*again, format, &error) != written)
        std::abort();
}

}  // namespace fuzz
