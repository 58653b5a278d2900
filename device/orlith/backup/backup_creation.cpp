#include "device/orlith/backup/backup_creation.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>

#include "common/sqlite/database_copy.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/schema.h"
#include "device/orlith/backup/device_identity.h"
#include "device/system/rooted_file_system.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

// Copies lie here while they are made.
constexpr char CopyDirectory[] = "/var/mobile/Media/Backup";

std::uint64_t sizeOf(const common::UniqueFd& file) {
    struct stat status {};
    return ::fstat(file.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

}  // namespace

BackupCreation::BackupCreation(const BackupParts& parts)
    : _parts(parts), _hold(parts.activities.holdForFiles()) {}

std::optional<BackupHead> BackupCreation::prepare(const std::string& libraryUID, double now,
                                                  OptionalError& error) {
    BackupHead head;
    head.libraryUID = libraryUID;
    head.schemaVersion = static_cast<std::int64_t>(korvane::SchemaVersion::Newest);
    head.created = now;
    head.deviceID = deviceIdentity(_parts.files, error);
    if (!error)
        error = _parts.files.createDirectory(CopyDirectory);
    for (const std::string_view database : BackupDatabases::All)
        if (!error)
            error = copyDatabase(std::string(database), head);
    if (!error)
        error = addFiles(head);
    if (!error)
        error = problemOf(head);
    return error ? std::nullopt : std::optional(std::move(head));
}

OptionalError BackupCreation::copyDatabase(const std::string& path, BackupHead& head) {
    OptionalError error;
    std::string copyPath;
    common::UniqueFd copy = _parts.files.openTemporary(CopyDirectory, copyPath, &error);
    if (!copy)
        return error;
    try {
        common::copyDatabase(_parts.files.realPath(path), _parts.files.realPath(copyPath));
    } catch (const common::SqliteError& failure) {
        error = failure.isDiskFull() ? Error(platform::POSIXErrorDomain, ENOSPC,
                                             "the device is too full for a copy of its databases")
                                     : failure.platformError();
    }
    _parts.files.unlink(copyPath);
    if (error)
        return error;
    head.files.push_back({path, sizeOf(copy)});
    _copies.emplace(path, std::move(copy));
    return std::nullopt;
}

// Asked once the library has been copied: a file that it tells of is there by now.
OptionalError BackupCreation::addFiles(BackupHead& head) {
    if (!_parts.client.respondsTo(ORClientOperation::pathsToBackup))
        return std::nullopt;
    std::vector<std::string> paths;
    _parts.client.pathsToBackup(&paths, nullptr);
    for (std::string& path : paths)
        if (const auto found = _parts.files.attributes(path, nullptr);
            found && found->isRegularFile)
            head.files.push_back({std::move(path), found->size});
    return std::nullopt;
}

OptionalError BackupCreation::write(const BackupHead& head, BackupWriter& writer) {
    OptionalError error = writer.begin(head);
    for (const BackupFile& file : head.files) {
        if (error)
            return error;
        if (const auto copy = _copies.find(file.path); copy != _copies.end()) {
            error = writer.file(file, copy->second.get());
            copy->second.reset();
            continue;
        }
        const common::UniqueFd opened = _parts.files.openFile(file.path, O_RDONLY, 0, &error);
        if (opened)
            error = writer.file(file, opened.get());
    }
    return error ? error : writer.end();
}

void removeBackupLeftovers(device::RootedFileSystem& files) {
    files.removeItem(CopyDirectory);
}

}  // namespace orlith
