#include "device/system/root_directory.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace device {
namespace {

constexpr mode_t directoryMode = 0755;
// The kernel answers EAGAIN when a rename elsewhere disturbs a look-up that has ".." in it.
constexpr int attemptsPerOpen = 64;

// Null for what is no device path; otherwise the rest of it, relative to the root, without the
// leading "/private". The result points into `devicePath`, and is "." for the root.
const char* relativePath(const std::string& devicePath) {
    if (devicePath.empty() || devicePath.front() != '/' ||
        devicePath.find('\0') != std::string::npos)
        return nullptr;
    constexpr std::string_view privatePrefix = "private";
    const auto skipSlashes = [&](std::size_t at) {
        const std::size_t next = devicePath.find_first_not_of('/', at);
        return next == std::string::npos ? devicePath.size() : next;
    };
    std::size_t start = skipSlashes(0);
    if (devicePath.compare(start, privatePrefix.size(), privatePrefix) == 0) {
        const std::size_t end = start + privatePrefix.size();
        if (end == devicePath.size() || devicePath[end] == '/')
            start = skipSlashes(end);
    }
    return start == devicePath.size() ? "." : devicePath.c_str() + start;
}

bool isDotOrDotDot(std::string_view name) {
    return name == "." || name == "..";
}

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.ends_with('/'))
        path.remove_suffix(1);
    return path;
}

// The part before the last component, "." when there is none.
std::string_view parentOf(std::string_view relative) {
    const std::size_t slash = relative.rfind('/');
    return slash == std::string_view::npos ? std::string_view(".")
                                           : withoutTrailingSlashes(relative.substr(0, slash));
}

std::string_view nameOf(std::string_view relative) {
    return relative.substr(relative.rfind('/') + 1);
}

}  // namespace

RootDirectory::RootDirectory(std::string realPath)
    : _realPath(withoutTrailingSlashes(std::filesystem::absolute(realPath).native())) {
    std::filesystem::create_directories(_realPath + "/");
    _root.reset(::open((_realPath + "/").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!_root)
        throw std::system_error(errno, std::generic_category(), _realPath);
}

int RootDirectory::openRelative(const char* relative, int flags, mode_t mode,
                                common::UniqueFd& out) const {
    open_how how{};
    how.flags = static_cast<unsigned>(flags | O_CLOEXEC);
    const bool creates = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
    how.mode = creates ? mode : 0;
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    int attempts = attemptsPerOpen;
    for (;;) {
        const long fd = ::syscall(SYS_openat2, _root.get(), relative, &how, sizeof how);
        if (fd >= 0) {
            out.reset(static_cast<int>(fd));
            return 0;
        }
        if ((errno != EAGAIN && errno != EINTR) || --attempts == 0)
            return errno;
    }
}

int RootDirectory::open(const std::string& devicePath, int flags, mode_t mode,
                        common::UniqueFd& out) const {
    const char* relative = relativePath(devicePath);
    return relative ? openRelative(relative, flags, mode, out) : EINVAL;
}

int RootDirectory::place(const std::string& devicePath, Place& out) const {
    const char* start = relativePath(devicePath);
    if (!start)
        return EINVAL;
    const std::string_view relative = withoutTrailingSlashes(start);
    if (relative == ".")
        return EBUSY;
    const std::string_view name = nameOf(relative);
    if (isDotOrDotDot(name))
        return EINVAL;
    out.name = name;
    return openRelative(std::string(parentOf(relative)).c_str(), O_PATH | O_DIRECTORY, 0,
                        out.parent);
}

// Makes the last component of a path whose parents exist.
int RootDirectory::makeOne(std::string_view relative) const {
    common::UniqueFd parent;
    if (const int failed =
            openRelative(std::string(parentOf(relative)).c_str(), O_PATH | O_DIRECTORY, 0, parent))
        return failed;
    const std::string_view name = nameOf(relative);
    if (::mkdirat(parent.get(), std::string(name).c_str(), directoryMode) == 0)
        return 0;
    if (errno != EEXIST)
        return errno;
    common::UniqueFd existing;
    return openRelative(std::string(relative).c_str(), O_PATH | O_DIRECTORY, 0, existing);
}

int RootDirectory::createDirectory(const std::string& devicePath) const {
    const char* start = relativePath(devicePath);
    if (!start)
        return EINVAL;
    const std::string_view whole = withoutTrailingSlashes(start);

    // From the end backwards to the deepest parent that exists, then forwards making each.
    std::string_view existing = whole;
    for (;;) {
        common::UniqueFd found;
        const int failed =
            openRelative(std::string(existing).c_str(), O_PATH | O_DIRECTORY, 0, found);
        if (!failed)
            break;
        if (failed != ENOENT || existing == ".")
            return failed;
        existing = parentOf(existing);
    }
    std::size_t made = existing == "." ? 0 : existing.size();
    while (made < whole.size()) {
        const std::size_t next = whole.find_first_not_of('/', made);
        made = std::min(whole.find('/', next), whole.size());
        if (const int failed = makeOne(whole.substr(0, made)))
            return failed;
    }
    return 0;
}

std::string RootDirectory::realPath(const std::string& devicePath) const {
    const char* start = relativePath(devicePath);
    if (!start)
        return {};
    const std::string_view relative = withoutTrailingSlashes(start);
    if (relative == ".")
        return _realPath + "/";
    for (std::string_view rest = relative; rest != "."; rest = parentOf(rest)) {
        if (nameOf(rest) == "..")
            return {};
    }
    return _realPath + "/" + std::string(relative);
}

}  // namespace device
