#include "link/address.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace orlith::link {
namespace {

using common::UniqueFd;
using platform::Error;
using platform::OptionalError;

UniqueFd fail(int errorNumber, const std::string& what, OptionalError* error) {
    if (error)
        *error = Error(platform::POSIXErrorDomain, errorNumber,
                       fmt::format("{}: {}", what, std::generic_category().message(errorNumber)));
    return {};
}

// The directory of a socket, and the address of the socket by way of it.
struct Place {
    UniqueFd directory;
    std::string name;
    sockaddr_un address{};
};

// 0 or an errno value.
int findPlace(const std::string& path, Place& place) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "."
                                  : slash == 0               ? "/"
                                                             : path.substr(0, slash);
    place.name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (place.name.empty() || path.find('\0') != std::string::npos)
        return EINVAL;
    place.directory.reset(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!place.directory)
        return errno;
    const std::string shortPath =
        fmt::format("/proc/self/fd/{}/{}", place.directory.get(), place.name);
    if (shortPath.size() >= sizeof place.address.sun_path)
        return ENAMETOOLONG;
    place.address.sun_family = AF_UNIX;
    std::memcpy(place.address.sun_path, shortPath.c_str(), shortPath.size() + 1);
    return 0;
}

const sockaddr* plain(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

// 0 or an errno value: makes room for a socket of that name.
int removeStaleSocket(const Place& place) {
    struct stat status {};
    if (::fstatat(place.directory.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? 0 : errno;
    if (!S_ISSOCK(status.st_mode))
        return EEXIST;
    return ::unlinkat(place.directory.get(), place.name.c_str(), 0) == 0 ? 0 : errno;
}

}  // namespace

std::string socketPathOfDevice(const std::string& root) {
    return root + (root.ends_with('/') ? "" : "/") + "var/run/orlith.sock";
}

UniqueFd connectToSocket(const std::string& path, OptionalError* error) {
    const std::string what = fmt::format("cannot reach the device's daemon at {}", path);
    Place place;
    if (const int status = findPlace(path, place); status != 0)
        return fail(status, what, error);
    UniqueFd connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!connection)
        return fail(errno, what, error);
    int status = 0;
    do {
        status = ::connect(connection.get(), plain(place.address), sizeof place.address);
    } while (status != 0 && errno == EINTR);
    if (status != 0)
        return fail(errno, what, error);
    return connection;
}

UniqueFd listenOnSocket(const std::string& path, OptionalError* error) {
    const std::string what = fmt::format("cannot listen at {}", path);
    Place place;
    if (const int status = findPlace(path, place); status != 0)
        return fail(status, what, error);
    if (const int status = removeStaleSocket(place); status != 0)
        return fail(status, what, error);
    UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener)
        return fail(errno, what, error);
    // On Linux the mode of the socket's file becomes that of its descriptor, so there is no moment
    // at which others could connect.
    if (::fchmod(listener.get(), 0600) != 0 ||
        ::bind(listener.get(), plain(place.address), sizeof place.address) != 0 ||
        ::listen(listener.get(), 64) != 0)
        return fail(errno, what, error);
    return listener;
}

}  // namespace orlith::link
