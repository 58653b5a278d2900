// Receives a backup for a restore: everything is looked at before anything of the device changes.
//
// One thread; nobody else restores meanwhile.
#pragma once

#include <cstdint>

#include "device/orlith/backup/backup_format.h"
#include "device/orlith/backup/backup_reader.h"
#include "device/orlith/backup/restore_area.h"
#include "platform/errors.h"

namespace device {
class RootedFileSystem;
}

namespace orlith {

struct RestoreTarget {
    device::RootedFileSystem& files;  // outlives the receipt
    bool isEmpty = false;             // the device has no tracks
    bool isWhole = false;             // the library has every file that it knows of
    bool mayReplace = false;          // what the device has may be given up
    double now = 0;                   // seconds since 1970
};

class RestoreReceipt {
public:
    explicit RestoreReceipt(const RestoreTarget& target) : _target(target), _area(target.files) {}

    // None: the restore happens at the daemon's next start. Otherwise nothing will. EBADMSG for a
    // backup that is damaged, EPROTONOSUPPORT for one of a newer version, EEXIST for one of another
    // device, ENOSPC, or what the source said.
    platform::OptionalError receive(BackupReader::Source source);
    // The same for a library that lies in its place already. EEXIST for one that lacks nothing.
    platform::OptionalError acceptWhatIsThere();

    // Of what was received.
    std::uint64_t files() const { return _files; }
    std::uint64_t bytes() const { return _bytes; }

private:
    platform::OptionalError receiveAll(BackupReader& reader);
    platform::OptionalError check(const BackupHead& head);
    platform::OptionalError receiveFile(BackupReader& reader, const BackupFile& file,
                                        std::size_t number);
    platform::OptionalError checkDatabase(const BackupFile& file, std::size_t number);
    std::string asideName() const;

    const RestoreTarget _target;
    RestoreArea _area;
    std::uint64_t _files = 0;
    std::uint64_t _bytes = 0;
};

}  // namespace orlith
