#include "device/orlith/backup/restore_receipt.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/restored_database.h"
#include "device/korvane/schema.h"
#include "device/orlith/backup/device_identity.h"
#include "device/orlith/incoming_file.h"
#include "device/orlith/staging_area.h"
#include "device/system/rooted_file_system.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

OptionalError writeAll(const common::UniqueFd& file, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return Error::posix(errno);
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return std::nullopt;
}

// Of the small databases; nothing in them acts by itself.
std::optional<std::string> problemOfPlainDatabase(const std::string& realPath) {
    try {
        common::Database database(realPath, {.create = false});
        auto check = database.query("PRAGMA quick_check(1)");
        if (!check.step() || check->text(0) != "ok")
            return "the database is damaged";
        if (database.int64("SELECT count(*) FROM sqlite_schema WHERE type IN ('trigger', 'view')"))
            return "it has tables that none has";
    } catch (const common::SqliteError& error) {
        return error.what();
    }
    return std::nullopt;
}

}  // namespace

OptionalError RestoreReceipt::receive(BackupReader::Source source) {
    BackupReader reader(std::move(source));
    OptionalError error = receiveAll(reader);
    if (error)
        _area.drop();
    return error;
}

OptionalError RestoreReceipt::receiveAll(BackupReader& reader) {
    OptionalError error;
    const auto head = reader.readHead(error);
    if (!head)
        return error;
    error = check(*head);
    if (!error)
        error = _area.begin();
    RestorePlan plan{head->deviceID, asideName(), {}};
    for (std::size_t number = 0; !error && number < head->files.size(); ++number) {
        error = receiveFile(reader, head->files[number], number);
        plan.paths.push_back(head->files[number].path);
    }
    if (!error)
        error = reader.readEnd();
    for (std::size_t number = 0; !error && number < head->files.size(); ++number)
        error = checkDatabase(head->files[number], number);
    return error ? error : _area.commit(plan);
}

OptionalError RestoreReceipt::check(const BackupHead& head) {
    if (head.schemaVersion > static_cast<std::int64_t>(korvane::SchemaVersion::Newest))
        return Error(
            platform::POSIXErrorDomain, EPROTONOSUPPORT,
            fmt::format("This backup was made by a newer version of this program (schema "
                        "{}, this one knows {}).",
                        head.schemaVersion, static_cast<int>(korvane::SchemaVersion::Newest)));
    if (!_target.isEmpty && !_target.mayReplace &&
        knownDeviceIdentity(_target.files) != head.deviceID)
        return Error(platform::POSIXErrorDomain, EEXIST,
                     "This backup is of another device, and this one has tracks of its own. To "
                     "have the other one's library in place of it, say --replace.");
    const std::uint64_t needed = head.totalSize() + ReservedSpace;
    const auto free = _target.files.freeSpace(MediaDirectory, nullptr);
    if (free && *free < needed)
        return Error(platform::POSIXErrorDomain, ENOSPC,
                     fmt::format("The device is too full: the restore needs {} bytes, {} are free.",
                                 needed, *free));
    return std::nullopt;
}

OptionalError RestoreReceipt::receiveFile(BackupReader& reader, const BackupFile& file,
                                          std::size_t number) {
    OptionalError error;
    const common::UniqueFd staged = _area.createFile(number, &error);
    if (!staged)
        return error;
    error = reader.readFile(file, [&](std::span<const std::uint8_t> bytes) {
        _bytes += bytes.size();
        return writeAll(staged, bytes);
    });
    ++_files;
    return error;
}

OptionalError RestoreReceipt::checkDatabase(const BackupFile& file, std::size_t number) {
    if (!isBackupDatabase(file.path))
        return std::nullopt;
    const std::string realPath = _target.files.realPath(RestoreArea::incomingPath(number));
    try {
        const auto problem = file.path == BackupDatabases::Library
                                 ? korvane::adoptRestoredDatabase(realPath)
                                 : problemOfPlainDatabase(realPath);
        if (problem)
            return damagedBackup(fmt::format("\"{}\": {}", file.path, *problem));
    } catch (const common::SqliteError& failure) {
        return failure.platformError();
    }
    return std::nullopt;
}

OptionalError RestoreReceipt::acceptWhatIsThere() {
    if (_target.isWhole && !_target.isEmpty && !_target.mayReplace)
        return Error(
            platform::POSIXErrorDomain, EEXIST,
            "Every file of this device's library is there, so there is nothing to restore. "
            "To have all of them sent again, say --replace.");
    OptionalError error = _area.begin();
    if (!error)
        error = _area.commit({"", asideName(), {}});
    if (error)
        _area.drop();
    return error;
}

std::string RestoreReceipt::asideName() const {
    return fmt::format("{:.0f}-{}", _target.now, ::getpid());
}

}  // namespace orlith
