#include "device/orlith/device_lock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "device/orlith/names.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

std::string holderOf(int file) {
    std::array<char, 20> text;
    const ssize_t count = ::pread(file, text.data(), text.size(), 0);
    if (count <= 0)
        return "another process";
    return fmt::format("process {}", printable({text.data(), static_cast<std::size_t>(count)}));
}

}  // namespace

OptionalError DeviceLock::acquire(const std::string& path) {
    common::UniqueFd file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file)
        return Error(
            platform::POSIXErrorDomain, errno,
            fmt::format("cannot open {}: {}", path, std::generic_category().message(errno)));
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0)
        return Error(platform::POSIXErrorDomain, errno,
                     fmt::format("this device is served already, by {}", holderOf(file.get())));
    const std::string pid = std::to_string(::getpid());
    if (::ftruncate(file.get(), 0) != 0 ||
        ::pwrite(file.get(), pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size()))
        return Error::posix(errno);
    _file = std::move(file);
    return std::nullopt;
}

}  // namespace orlith
