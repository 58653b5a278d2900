// Purpose: the forms of what a device wants: JSON objects and lines for people.
// Thread: any.
// Failure: none.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace orlith::link {
class Asset;
}

namespace host {

nlohmann::ordered_json jsonOf(const orlith::link::Asset& asset);
std::string assetLine(const orlith::link::Asset& asset);

// Of the bits of an asset's parts: ["file","artwork"], and "file and cover".
nlohmann::ordered_json partsJson(std::uint32_t parts);
std::string partsText(std::uint32_t parts);

}  // namespace host
