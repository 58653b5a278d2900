#include "host/state/identity_source.h"

#include <fmt/format.h>

namespace host {

namespace {

std::mt19937_64 seededGenerator() {
    std::random_device entropy;
    std::seed_seq seed{entropy(), entropy(), entropy(), entropy(),
                       entropy(), entropy(), entropy(), entropy()};
    return std::mt19937_64(seed);
}

}  // namespace

IdentitySource::IdentitySource() : _random(seededGenerator()) {}

std::int64_t IdentitySource::next() {
    for (;;) {
        const auto id = static_cast<std::int64_t>(_random() >> 1);
        if (id != 0 && _used.insert(id).second)
            return id;
    }
}

std::string IdentitySource::nextUid() {
    const std::uint64_t high = _random();
    return fmt::format("{:016x}{:016x}", high, _random());
}

}  // namespace host
