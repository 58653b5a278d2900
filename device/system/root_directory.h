// The one place where a device path becomes a place on the real disk. Every path is resolved by the
// kernel (openat2 with RESOLVE_IN_ROOT) as if the device directory were "/": "..", absolute links
// and links that are swapped during the look-up all stay inside.
//
// Immutable after construction, so every operation may be called from any thread. Operations give 0
// or an errno value: EINVAL for a path that is not absolute or holds a NUL.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "common/unique_fd.h"

namespace device {

class RootDirectory {
public:
    // Makes `realPath` and its missing parents. Throws std::system_error when it cannot be made or
    // opened.
    explicit RootDirectory(std::string realPath);

    // Opens what a device path leads to, following links inside the root. O_CLOEXEC is added.
    int open(const std::string& devicePath, int flags, mode_t mode, common::UniqueFd& out) const;

    // The directory that holds an entry, and the entry's name in it. The entry itself need not
    // exist and is not followed when it is a link.
    struct Place {
        common::UniqueFd parent;  // O_PATH
        std::string name;         // no slash; neither "." nor ".."
    };
    // EBUSY for the root itself, EINVAL for a path that ends in "." or "..".
    int place(const std::string& devicePath, Place& out) const;

    // Makes a directory and its missing parents; one that exists is no error.
    int createDirectory(const std::string& devicePath) const;

    // Where a path of the device's own making lies on the real disk, by its text alone: links are
    // not resolved, so this is never for a name that came from a host. Empty for a path that is
    // not absolute, holds a NUL, or has a ".." in it.
    std::string realPath(const std::string& devicePath) const;

private:
    int openRelative(const char* relative, int flags, mode_t mode, common::UniqueFd& out) const;
    int makeOne(std::string_view relative) const;

    std::string _realPath;   // without a slash at its end
    common::UniqueFd _root;  // O_PATH
};

}  // namespace device
