#include "device/system/property_list_service.h"

#include <utility>

#include "common/property_list/property_list.h"

namespace device {

using platform::Data;
using platform::OptionalError;
using platform::Value;

std::optional<Value> PropertyListService::parse(const Data& bytes, OptionalError* error) {
    return common::parsePropertyList(bytes, error);
}

std::optional<Value> PropertyListService::parse(platform::InputStream& stream,
                                                OptionalError* error) {
    constexpr std::size_t chunk = 64 * 1024;
    Data bytes;
    std::size_t before;
    do {
        before = bytes.size();
        if (OptionalError failed = stream.read(bytes, chunk)) {
            if (error)
                *error = std::move(failed);
            return std::nullopt;
        }
        // What is too large already need not be read to its end to be refused.
    } while (bytes.size() > before && bytes.size() <= common::maxPropertyListBytes);
    return parse(bytes, error);
}

std::optional<Data> PropertyListService::serialize(const Value& value,
                                                   platform::PropertyListFormat format,
                                                   OptionalError* error) {
    return common::serializePropertyList(value, format, error);
}

}  // namespace device
