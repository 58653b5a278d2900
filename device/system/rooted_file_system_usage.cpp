// How much room things take on the disk.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <set>
#include <utility>

#include "device/system/directory_listing.h"
#include "device/system/rooted_file_system.h"

namespace device {
namespace {

// The unit of st_blocks, whatever the file system's own.
constexpr std::uint64_t BytesPerBlock = 512;

class Usage {
public:
    std::uint64_t bytes() const { return _bytes; }
    // An entry of an open directory.
    void add(int directory, const DirectoryEntry& entry) {
        struct stat status {};
        if (::fstatat(directory, entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            return;
        const bool hasSeveralNames = !S_ISDIR(status.st_mode) && status.st_nlink > 1;
        if (hasSeveralNames && !_counted.emplace(status.st_dev, status.st_ino).second)
            return;
        _bytes += static_cast<std::uint64_t>(status.st_blocks) * BytesPerBlock;
    }

private:
    std::uint64_t _bytes = 0;
    std::set<std::pair<dev_t, ino_t>> _counted;  // of the files with several names
};

}  // namespace

std::uint64_t RootedFileSystem::blockSize(const std::string& path) {
    common::UniqueFd item;
    struct statvfs status {};
    if (_root.open(path, O_PATH, 0, item) || ::fstatvfs(item.get(), &status) != 0)
        return 0;
    return status.f_frsize;
}

std::uint64_t RootedFileSystem::diskUsage(const std::string& path) {
    Usage usage;
    walk(path, [&](int directory, const std::string&, const DirectoryEntry& entry) {
        usage.add(directory, entry);
    });
    return usage.bytes();
}

}  // namespace device
