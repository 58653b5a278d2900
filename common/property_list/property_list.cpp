#include "common/property_list/property_list.h"

#include <utility>

#include "common/property_list/formats.h"
#include "common/property_list/limits.h"

namespace common {

using namespace property_list;

std::optional<platform::Value> parsePropertyList(std::span<const std::uint8_t> bytes,
                                                 platform::OptionalError* error) {
    platform::Error reason;
    std::optional<platform::Value> value;
    if (bytes.size() > maxBytes)
        reason = tooLarge();
    else
        value = isBinary(bytes) ? readBinary(bytes, reason) : readXml(bytes, reason);
    if (error)
        *error = value ? platform::OptionalError() : std::move(reason);
    return value;
}

std::optional<platform::Data> serializePropertyList(const platform::Value& value,
                                                    platform::PropertyListFormat format,
                                                    platform::OptionalError* error) {
    platform::Error reason;
    std::optional<platform::Data> bytes = format == platform::PropertyListFormat::Binary
                                              ? writeBinary(value, reason)
                                              : writeXml(value, reason);
    if (error)
        *error = bytes ? platform::OptionalError() : std::move(reason);
    return bytes;
}

}  // namespace common
