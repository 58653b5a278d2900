#include "host/commands/asset_rows.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <vector>

#include "host/scan/file_names.h"
#include "link/orlith.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using Json = nlohmann::ordered_json;

std::vector<const char*> partNames(std::uint32_t parts) {
    struct Part {
        std::uint32_t bit;
        const char* name;
    };
    static constexpr Part known[] = {{link::Transfer::FILE, "file"},
                                     {link::Transfer::ARTWORK, "artwork"},
                                     {link::Transfer::KENNING, "kenning"}};
    std::vector<const char*> names;
    for (const Part& part : known)
        if ((parts & part.bit) != 0)
            names.push_back(part.name);
    return names;
}

}  // namespace

Json partsJson(std::uint32_t parts) {
    Json names = Json::array();
    for (const char* name : partNames(parts))
        names.push_back(name);
    return names;
}

std::string partsText(std::uint32_t parts) {
    return fmt::format("{}", fmt::join(partNames(parts), " and "));
}

Json jsonOf(const link::Asset& asset) {
    return {{"type", "asset"},
            {"identifier", asset.identifier()},
            {"title", asset.pretty_name()},
            {"asset_type", asset.asset_type()},
            {"parts", partsJson(asset.parts())}};
}

std::string assetLine(const link::Asset& asset) {
    return fmt::format("{:<18} {:<12} {}  ({})", partsText(asset.parts()), asset.asset_type(),
                       displayText(asset.pretty_name()), asset.identifier());
}

}  // namespace host
