// What goes into a backup: copies of the databases, each of one moment, and the files that no
// store can give again, as the plug-in names them.
//
// One thread. Works beside sessions, downloads and edits; only the sweep of orphaned files is held
// off until it is released, so that nothing that the copies tell of goes away meanwhile.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "common/unique_fd.h"
#include "device/korvane/activity_lock.h"
#include "device/orlith/backup/backup_format.h"
#include "device/orlith/backup/backup_writer.h"
#include "platform/errors.h"
#include "platform/sync_daemon.h"

namespace device {
class RootedFileSystem;
}

namespace orlith {

// All of it outlives the backup.
struct BackupParts {
    ORClient& client;
    device::RootedFileSystem& files;
    korvane::ActivityLock& activities;
};

class BackupCreation {
public:
    explicit BackupCreation(const BackupParts& parts);

    // Takes the copies. `libraryUID` and `now` (seconds since 1970) are for the head.
    std::optional<BackupHead> prepare(const std::string& libraryUID, double now,
                                      platform::OptionalError& error);
    platform::OptionalError write(const BackupHead& head, BackupWriter& writer);

private:
    platform::OptionalError copyDatabase(const std::string& path, BackupHead& head);
    platform::OptionalError addFiles(BackupHead& head);

    const BackupParts _parts;
    const korvane::ActivityLock::Hold _hold;
    std::map<std::string, common::UniqueFd> _copies;  // by the database's path; without a name
};

// Removes what a backup left that was broken off.
void removeBackupLeftovers(device::RootedFileSystem& files);

}  // namespace orlith
