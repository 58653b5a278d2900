#include "device/orlith/backup/backup_format.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <unordered_set>

#include "common/property_list/property_list.h"
#include "common/utf8.h"

namespace orlith {
namespace {

using platform::OptionalError;

constexpr std::string_view PurchasesPrefix = "/var/mobile/Media/Purchases/";
constexpr std::string_view FileKind = "file";
constexpr std::size_t MaximumIdentitySize = 128;
constexpr std::size_t MaximumNameSize = 255;

// One component that names a file, not a directory on the way to it.
bool isFileName(std::string_view name) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    return !name.empty() && name.size() <= MaximumNameSize && name.front() != '.' &&
           name.find('/') == std::string_view::npos && std::ranges::none_of(name, isControl) &&
           common::isUtf8(name);
}

bool isPlace(std::string_view path) {
    return isBackupDatabase(path) ||
           (path.starts_with(PurchasesPrefix) && isFileName(path.substr(PurchasesPrefix.size())));
}

bool isIdentity(std::string_view text) {
    return !text.empty() && text.size() <= MaximumIdentitySize &&
           std::ranges::all_of(text, [](char c) { return c > 0x20 && c < 0x7F; });
}

// Names come from the file, so they are shown without what could steer a terminal.
std::string shown(std::string_view path) {
    std::string text(path.substr(0, MaximumNameSize));
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
    return text;
}

std::optional<BackupFile> decodeFile(const platform::Value& entry, OptionalError& error) {
    const std::string* path = entry["Path"].string();
    const std::string* kind = entry["Kind"].string();
    const platform::Value& size = entry["Size"];
    if (!path || !kind || !size.isNumber())
        error = damagedBackup("one of its entries is no file's");
    else if (*kind != FileKind)
        error = damagedBackup(
            fmt::format("\"{}\" is no plain file in it but a \"{}\"", shown(*path), shown(*kind)));
    else if (size.unsignedValue() > MaximumBackupFileSize || size.doubleValue() < 0)
        error = damagedBackup(fmt::format("\"{}\" is too large in it", shown(*path)));
    if (error)
        return std::nullopt;
    return BackupFile{*path, size.unsignedValue()};
}

}  // namespace

std::uint64_t BackupHead::totalSize() const {
    std::uint64_t total = 0;
    for (const BackupFile& file : files)
        total += file.size;
    return total;
}

bool isBackupDatabase(std::string_view path) {
    return std::ranges::find(BackupDatabases::All, path) != BackupDatabases::All.end();
}

platform::Error damagedBackup(std::string_view what) {
    return {platform::POSIXErrorDomain, EBADMSG,
            fmt::format("This is no backup that can be read: {}.", what)};
}

OptionalError problemOf(const BackupHead& head) {
    if (!isIdentity(head.deviceID) || !isIdentity(head.libraryUID))
        return damagedBackup("it does not say which device it is of");
    if (head.files.size() > MaximumBackupFiles)
        return damagedBackup("it names too many files");
    std::unordered_set<std::string_view> paths;
    for (const BackupFile& file : head.files) {
        if (!isPlace(file.path))
            return damagedBackup(
                fmt::format("\"{}\" is no place for a file of a backup", shown(file.path)));
        if (!paths.insert(file.path).second)
            return damagedBackup(fmt::format("it holds \"{}\" twice", shown(file.path)));
        if (file.size > MaximumBackupFileSize)
            return damagedBackup(fmt::format("\"{}\" is too large in it", shown(file.path)));
    }
    for (const std::string_view database : BackupDatabases::All)
        if (!paths.contains(database))
            return damagedBackup(fmt::format("it lacks \"{}\"", database));
    return std::nullopt;
}

std::optional<platform::Data> encodeHead(const BackupHead& head, OptionalError& error) {
    platform::Array files;
    for (const BackupFile& file : head.files)
        files.push_back(platform::Dictionary{
            {"Path", file.path}, {"Kind", std::string(FileKind)}, {"Size", file.size}});
    const platform::Dictionary root{{"DeviceID", head.deviceID},
                                    {"LibraryUID", head.libraryUID},
                                    {"SchemaVersion", head.schemaVersion},
                                    {"Created", platform::Date{head.created}},
                                    {"Files", std::move(files)}};
    return common::serializePropertyList(root, platform::PropertyListFormat::Binary, &error);
}

std::optional<BackupHead> decodeHead(std::span<const std::uint8_t> bytes, OptionalError& error) {
    OptionalError unreadable;
    const auto list = common::parsePropertyList(bytes, &unreadable);
    if (!list) {
        error = damagedBackup("its list of files is no property list: " + unreadable->text());
        return std::nullopt;
    }
    const std::string* deviceID = (*list)["DeviceID"].string();
    const std::string* libraryUID = (*list)["LibraryUID"].string();
    const platform::Value& schemaVersion = (*list)["SchemaVersion"];
    const platform::Date* created = (*list)["Created"].date();
    const platform::Array* files = (*list)["Files"].array();
    if (!deviceID || !libraryUID || !schemaVersion.isNumber() || !created || !files) {
        error = damagedBackup("its list of files lacks something");
        return std::nullopt;
    }
    BackupHead head{
        *deviceID, *libraryUID, schemaVersion.int64Value(), created->secondsSince1970, {}};
    for (const platform::Value& entry : *files) {
        auto file = decodeFile(entry, error);
        if (!file)
            return std::nullopt;
        head.files.push_back(std::move(*file));
    }
    error = problemOf(head);
    return error ? std::nullopt : std::optional(std::move(head));
}

}  // namespace orlith
