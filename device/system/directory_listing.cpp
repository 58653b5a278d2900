#include "device/system/directory_listing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <string_view>

namespace device {
namespace {

// One descriptor is open per level; this keeps well within the usual limit of 1024.
constexpr int maxRemovalDepth = 256;

bool isDirectoryAt(int parent, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_DIR;
    struct stat status {};
    return ::fstatat(parent, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

int removeTree(int parent, const std::string& name, int depth) {
    if (::unlinkat(parent, name.c_str(), 0) == 0)
        return 0;
    if (errno != EISDIR)
        return errno;
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0)
        return 0;
    if (errno != ENOTEMPTY && errno != EEXIST)
        return errno;
    if (depth == maxRemovalDepth)
        return ENAMETOOLONG;

    const common::UniqueFd directory(
        ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!directory)
        return errno;
    std::vector<DirectoryEntry> entries;
    if (const int failed =
            readDirectory(common::UniqueFd(::fcntl(directory.get(), F_DUPFD_CLOEXEC, 0)), entries))
        return failed;
    for (const DirectoryEntry& entry : entries) {
        const int failed = removeTree(directory.get(), entry.name, depth + 1);
        if (failed && failed != ENOENT)
            return failed;
    }
    return ::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
}

}  // namespace

int readDirectory(common::UniqueFd directory, std::vector<DirectoryEntry>& entries) {
    if (!directory)
        return EBADF;
    const auto close = [](DIR* stream) { ::closedir(stream); };
    const std::unique_ptr<DIR, decltype(close)> stream(::fdopendir(directory.get()), close);
    if (!stream)
        return errno;
    directory.release();
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(stream.get());
        if (!entry)
            return errno;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            entries.push_back({std::string(name), isDirectoryAt(::dirfd(stream.get()), *entry)});
    }
}

int removeTree(int parent, const std::string& name) {
    return removeTree(parent, name, 0);
}

}  // namespace device
