#include "device/orlith/backup/restore_area.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "common/property_list/property_list.h"
#include "device/system/rooted_file_system.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr char Area[] = "/var/mobile/Media/Restore";
constexpr char Incoming[] = "/var/mobile/Media/Restore/Incoming";
constexpr char Ready[] = "/var/mobile/Media/Restore/Ready";
constexpr char Pending[] = "/var/mobile/Media/Restore/Pending";
constexpr char PlanName[] = "/Plan.plist";

bool isAsideName(const std::string& name) {
    return !name.empty() &&
           std::ranges::all_of(name, [](char c) { return (c >= '0' && c <= '9') || c == '-'; });
}

std::string numbered(const char* directory, std::size_t number) {
    return fmt::format("{}/{}", directory, number);
}

}  // namespace

OptionalError RestoreArea::begin() {
    drop();
    return _files.createDirectory(Incoming);
}

std::string RestoreArea::incomingPath(std::size_t number) {
    return numbered(Incoming, number);
}

std::string RestoreArea::readyPath(std::size_t number) {
    return numbered(Ready, number);
}

common::UniqueFd RestoreArea::createFile(std::size_t number, OptionalError* error) {
    return _files.openFile(incomingPath(number), O_WRONLY | O_CREAT | O_EXCL, 0600, error);
}

OptionalError RestoreArea::commit(const RestorePlan& plan) {
    platform::Array paths(plan.paths.begin(), plan.paths.end());
    const platform::Dictionary root{
        {"DeviceID", plan.deviceID}, {"Aside", plan.aside}, {"Paths", std::move(paths)}};
    OptionalError error;
    const auto bytes =
        common::serializePropertyList(root, platform::PropertyListFormat::Binary, &error);
    if (!bytes)
        return error;
    const std::string planPath = std::string(Incoming) + PlanName;
    error = _files.writeFileDurably(planPath, *bytes);
    if (error)
        return error;
    // One wait for all files together.
    const common::UniqueFd onDisk = _files.openFile(planPath, O_RDONLY, 0, &error);
    if (error)
        return error;
    if (::syncfs(onDisk.get()) != 0)
        return Error::posix(errno);
    _files.removeItem(Ready);
    return step(Incoming, Ready);
}

void RestoreArea::drop() {
    _files.removeItem(Incoming);
}

std::optional<RestorePlan> RestoreArea::ready(OptionalError& error) {
    return readPlan(Ready, error);
}

OptionalError RestoreArea::placed() {
    // Of an earlier restore, which this one has overtaken.
    _files.removeItem(Pending);
    return step(Ready, Pending);
}

std::optional<RestorePlan> RestoreArea::pending() {
    OptionalError ignored;
    return readPlan(Pending, ignored);
}

OptionalError RestoreArea::finish() {
    if (OptionalError error = _files.removeItem(Pending))
        return error;
    return _files.syncDirectory(Area);
}

OptionalError RestoreArea::makeAside(const RestorePlan& plan) {
    return _files.createDirectory(fmt::format("{}{}", ReplacedDirectory, plan.aside));
}

std::string RestoreArea::asidePath(const RestorePlan& plan, const std::string& name) {
    return fmt::format("{}{}/{}", ReplacedDirectory, plan.aside, name);
}

std::optional<RestorePlan> RestoreArea::readPlan(const std::string& directory,
                                                 OptionalError& error) {
    const std::string path = directory + PlanName;
    if (!_files.fileExists(path))
        return std::nullopt;
    const auto bytes = _files.readFile(path, common::maxPropertyListBytes, &error);
    const auto root = bytes ? common::parsePropertyList(*bytes, &error) : std::nullopt;
    if (!root)
        return std::nullopt;
    const std::string* deviceID = (*root)["DeviceID"].string();
    const std::string* aside = (*root)["Aside"].string();
    const platform::Array* paths = (*root)["Paths"].array();
    if (!deviceID || !aside || !isAsideName(*aside) || !paths) {
        error = Error(platform::POSIXErrorDomain, EBADMSG,
                      fmt::format("{} is damaged; remove {} and restore again", path, directory));
        return std::nullopt;
    }
    RestorePlan plan{*deviceID, *aside, {}};
    for (const platform::Value& place : *paths)
        plan.paths.push_back(place.description());
    return plan;
}

OptionalError RestoreArea::step(const std::string& from, const std::string& to) {
    if (OptionalError error = _files.moveItem(from, to))
        return error;
    return _files.syncDirectory(Area);
}

}  // namespace orlith
