#include "host/scan/small_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/unique_fd.h"

namespace host {

std::string readSmallFile(const std::string& path, std::size_t limit, std::string& bytes,
                          bool* missing) {
    bytes.clear();
    const common::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (missing)
        *missing = !fd && errno == ENOENT;
    struct stat status {};
    if (!fd || ::fstat(fd.get(), &status) != 0)
        return fmt::format("it cannot be opened: {}", std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        return "it is no file";
    if (static_cast<std::uint64_t>(status.st_size) > limit)
        return fmt::format("it is larger than {} bytes", limit);
    // A file that grows meanwhile is read as far as it was.
    bytes.resize(static_cast<std::size_t>(status.st_size));
    std::size_t got = 0;
    while (got < bytes.size()) {
        const ssize_t count = ::read(fd.get(), bytes.data() + got, bytes.size() - got);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return fmt::format("it cannot be read: {}", std::strerror(errno));
        if (count == 0)
            break;
        got += static_cast<std::size_t>(count);
    }
    bytes.resize(got);
    return {};
}

}  // namespace host
