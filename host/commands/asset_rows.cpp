#include "host/commands/asset_rows.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <vector>

#include "host/commands/list_rows.h"
#include "host/scan/file_names.h"
#include "link/orlith.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using Json = nlohmann::ordered_json;

struct Part {
    std::uint32_t bit;
    const char* key;    // in JSON
    const char* words;  // for people
};
constexpr Part Parts[] = {{link::Transfer::FILE, "file", "file"},
                          {link::Transfer::ARTWORK, "artwork", "cover"},
                          {link::Transfer::KENNING, "kenning", "recommendation data"}};

std::vector<const char*> namesOf(std::uint32_t parts, const char* Part::*name) {
    std::vector<const char*> names;
    for (const Part& part : Parts)
        if ((parts & part.bit) != 0)
            names.push_back(part.*name);
    return names;
}

constexpr std::size_t TitleColumns = 50;

}  // namespace

Json partsJson(std::uint32_t parts) {
    Json names = Json::array();
    for (const char* name : namesOf(parts, &Part::key))
        names.push_back(name);
    return names;
}

std::string partsText(std::uint32_t parts) {
    return fmt::format("{}", fmt::join(namesOf(parts, &Part::words), " and "));
}

Json jsonOf(const link::Asset& asset) {
    return {{"type", "asset"},
            {"identifier", asset.identifier()},
            {"title", asset.pretty_name()},
            {"parts", partsJson(asset.parts())}};
}

std::string assetLine(const link::Asset& asset) {
    return fmt::format("{:<16} {} {}", partsText(asset.parts()),
                       fitted(displayText(asset.pretty_name()), TitleColumns), asset.identifier());
}

}  // namespace host
