// Where a restore gets ready: everything is received and looked at first, then takes its place in
// steps that a start of the daemon goes on with wherever they were broken off, and last the library
// is reconciled.
//
//   Restore/Incoming/   what is being received: the files by number; removed at every start
//   Restore/Ready/      all of it, with the plan; from here on the restore happens
//   Restore/Pending/    all is in place; the plug-in has still to reconcile
//   Replaced/<name>/    what lay in the way; never removed
//
// All below /var/mobile/Media. Each step from one directory to the next is one rename.
//
// One thread at a time.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "platform/errors.h"

namespace device {
class RootedFileSystem;
}

namespace orlith {

// What lay in the way of restores, each in a directory of its own.
inline constexpr char ReplacedDirectory[] = "/var/mobile/Media/Replaced/";

struct RestorePlan {
    std::string deviceID;  // that the device has from then on; "" leaves it
    std::string aside;     // the name of the directory for what lies in the way
    // Where the staged files belong, absolute device paths; file N of the area belongs to the Nth.
    // None: the library is where it belongs, and a copy of it is kept.
    std::vector<std::string> paths;
};

class RestoreArea {
public:
    explicit RestoreArea(device::RootedFileSystem& files) : _files(files) {}

    // ---- Receiving. Begins with nothing; what an earlier attempt left goes.
    platform::OptionalError begin();
    static std::string incomingPath(std::size_t number);
    // Opened for writing; empty on failure.
    common::UniqueFd createFile(std::size_t number, platform::OptionalError* error);
    // Everything is on the disk when it returns; only then the restore will happen.
    platform::OptionalError commit(const RestorePlan& plan);
    // Gives up what was received.
    void drop();

    // ---- At the daemon's start.
    // Absent when none is ready. An error when there is one and its plan cannot be read.
    std::optional<RestorePlan> ready(platform::OptionalError& error);
    static std::string readyPath(std::size_t number);
    // Everything is in place: what remains is to reconcile.
    platform::OptionalError placed();
    // Absent when nothing is to be reconciled.
    std::optional<RestorePlan> pending();
    // The restore is over.
    platform::OptionalError finish();

    // A directory for what lies in the way, made when it is missing.
    platform::OptionalError makeAside(const RestorePlan& plan);
    static std::string asidePath(const RestorePlan& plan, const std::string& name);

private:
    std::optional<RestorePlan> readPlan(const std::string& directory,
                                        platform::OptionalError& error);
    platform::OptionalError step(const std::string& from, const std::string& to);

    device::RootedFileSystem& _files;
};

}  // namespace orlith
