#include "device/downloads/manifest_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "common/property_list/property_list.h"
#include "common/utf8.h"

namespace downloads {
namespace {

constexpr std::int64_t Version = 1;
constexpr std::string_view VersionKey = "Version";
constexpr std::string_view FilesKey = "Files";
constexpr std::string_view NameKey = "Name";
constexpr std::string_view ClassKey = "Class";
constexpr std::size_t MaximumNameSize = 255;

platform::Error damaged(std::string_view what) {
    return {platform::POSIXErrorDomain, EBADMSG, what};
}

std::optional<FileClass> classOf(const platform::Value& value) {
    for (const FileClass known : {FileClass::Unowned, FileClass::Fetchable, FileClass::Backup})
        if (value.isNumber() && value.int64Value() == static_cast<std::int64_t>(known))
            return known;
    return std::nullopt;
}

}  // namespace

bool isPurchaseFileName(std::string_view name) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    return !name.empty() && name.size() <= MaximumNameSize && name.front() != '.' &&
           name.find('/') == std::string_view::npos && std::ranges::none_of(name, isControl) &&
           common::isUtf8(name);
}

std::optional<std::map<std::string, FileClass>> parseManifest(std::span<const std::uint8_t> bytes,
                                                              platform::OptionalError& error) {
    const auto list = common::parsePropertyList(bytes, &error);
    if (!list)
        return std::nullopt;
    const platform::Value& version = (*list)[VersionKey];
    const platform::Value& files = (*list)[FilesKey];
    if (!version.isNumber() || !files.isArray())
        error = damaged("it is no manifest of files");
    else if (version.int64Value() != Version)
        error = damaged(fmt::format("it is of version {}", version.int64Value()));
    if (error)
        return std::nullopt;
    std::map<std::string, FileClass> classes;
    for (const platform::Value& entry : *files.array()) {
        const std::string* name = entry[NameKey].string();
        const auto fileClass = classOf(entry[ClassKey]);
        if (!name || !fileClass)
            error = damaged("one of its entries is no file's");
        else if (!isPurchaseFileName(*name))
            error = damaged("it names what no file may be called");
        else if (!classes.emplace(*name, *fileClass).second)
            error = damaged("it names a file twice");
        if (error)
            return std::nullopt;
    }
    return classes;
}

std::optional<platform::Data> serializeManifest(const std::map<std::string, FileClass>& classes,
                                                platform::OptionalError& error) {
    platform::Array files;
    for (const auto& [name, fileClass] : classes)
        files.push_back(
            platform::Dictionary{{std::string(NameKey), name},
                                 {std::string(ClassKey), static_cast<std::int64_t>(fileClass)}});
    const platform::Dictionary root{{std::string(VersionKey), Version},
                                    {std::string(FilesKey), std::move(files)}};
    return common::serializePropertyList(root, platform::PropertyListFormat::Binary, &error);
}

}  // namespace downloads
