#include "device/orlith/backup/restore_switch.h"

#include <array>
#include <set>
#include <string>
#include <string_view>

#include "common/sqlite/database.h"
#include "common/sqlite/database_copy.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/library_identity.h"
#include "device/orlith/backup/backup_format.h"
#include "device/orlith/backup/device_identity.h"
#include "device/orlith/backup/restore_area.h"
#include "device/system/rooted_file_system.h"

namespace orlith {
namespace {

using platform::OptionalError;

// What lies beside a database. Of the database that was here before, all of it has to go: a log
// would be taken for the new one's.
constexpr std::array<std::string_view, 4> Companions{"", "-wal", "-shm", ".identity"};

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

class Switch {
public:
    Switch(device::RootedFileSystem& files, RestoreArea& area, const RestorePlan& plan)
        : _files(files), _area(area), _plan(plan) {}

    OptionalError run() {
        if (OptionalError error = _area.makeAside(_plan))
            return error;
        if (_plan.paths.empty())
            return keepCopy();
        for (std::size_t number = 0; number < _plan.paths.size(); ++number)
            if (OptionalError error = place(number))
                return error;
        return syncFolders();
    }

private:
    // A file that is no longer among those that are ready has its place already.
    OptionalError place(std::size_t number) {
        const std::string ready = RestoreArea::readyPath(number);
        const std::string& target = _plan.paths[number];
        if (!_files.fileExists(ready))
            return std::nullopt;
        if (OptionalError error = _files.createDirectory(folderOf(target)))
            return error;
        if (OptionalError error = clear(target))
            return error;
        return _files.moveItem(ready, target);
    }

    OptionalError clear(const std::string& target) {
        if (!isBackupDatabase(target))
            return setAside(target);
        for (const std::string_view companion : Companions)
            if (OptionalError error = setAside(target + std::string(companion)))
                return error;
        // The new database must not be there before the old one's log has gone for good.
        return _files.syncDirectory(folderOf(target));
    }

    OptionalError setAside(const std::string& path) {
        if (!_files.fileExists(path))
            return std::nullopt;
        return _files.renameReplacing(path, RestoreArea::asidePath(_plan, nameOf(path)));
    }

    OptionalError syncFolders() {
        std::set<std::string> folders;
        for (const std::string& path : _plan.paths)
            folders.insert(folderOf(path));
        for (const std::string& folder : folders)
            if (OptionalError error = _files.syncDirectory(folder))
                return error;
        return std::nullopt;
    }

    // The library is in its place already, by whatever means; it goes on as another one.
    OptionalError keepCopy() {
        const std::string library = BackupDatabases::Library;
        if (!_files.fileExists(library))
            return std::nullopt;
        const std::string copy = RestoreArea::asidePath(_plan, nameOf(library));
        _files.unlink(copy);
        try {
            common::copyDatabase(_files.realPath(library), _files.realPath(copy));
            common::Database database(_files.realPath(library), {});
            korvane::disownFile(database);
        } catch (const common::SqliteError& failure) {
            // One that is damaged is set aside when it is opened.
            if (!failure.isDamage())
                return failure.platformError();
        }
        return std::nullopt;
    }

    device::RootedFileSystem& _files;
    RestoreArea& _area;
    const RestorePlan& _plan;
};

}  // namespace

OptionalError switchToRestored(device::RootedFileSystem& files) {
    RestoreArea area(files);
    area.drop();
    OptionalError error;
    const auto plan = area.ready(error);
    if (!plan)
        return error;
    error = Switch(files, area, *plan).run();
    if (!error && !plan->deviceID.empty())
        error = setDeviceIdentity(files, plan->deviceID);
    return error ? error : area.placed();
}

}  // namespace orlith
