#include "common/random_id.h"

#include <sys/random.h>

#include <cerrno>
#include <system_error>

namespace common {

std::int64_t randomPositiveId() {
    std::uint64_t bits = 0;
    while (bits >> 1 == 0) {
        // So few bytes come whole; a signal interrupts only the wait for the system's first seed.
        if (::getrandom(&bits, sizeof bits, 0) < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    return static_cast<std::int64_t>(bits >> 1);
}

}  // namespace common
