#include "device/artwork/image_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace artwork {

std::optional<std::vector<std::uint8_t>> readWholeFile(int fd, std::uint64_t limit,
                                                       platform::OptionalError& error) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        error = platform::Error::posix(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        error = platform::Error::posix(EINVAL);
        return std::nullopt;
    }
    if (static_cast<std::uint64_t>(status.st_size) > limit) {
        error = platform::Error::posix(EFBIG);
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(status.st_size));
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count =
            ::pread(fd, bytes.data() + filled, bytes.size() - filled, static_cast<off_t>(filled));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            error = platform::Error::posix(errno);
            return std::nullopt;
        }
        if (count == 0)
            break;  // it shrank meanwhile
        filled += static_cast<std::size_t>(count);
    }
    bytes.resize(filled);
    return bytes;
}

}  // namespace artwork
