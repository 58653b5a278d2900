// Purpose: random identities for tracks and playlists.
// Thread: one at a time.
// Failure: none.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <unordered_set>

namespace host {

// Hands out positive 63-bit numbers that are not in use.
class IdentitySource {
public:
    // Seeded from the system's entropy.
    IdentitySource();
    // For tests: the same seed gives the same numbers.
    explicit IdentitySource(std::uint64_t seed) : _random(seed) {}

    // Never handed out from now on.
    void reserve(std::int64_t id) { _used.insert(id); }
    std::int64_t next();
    // 32 hexadecimal digits.
    std::string nextUid();

private:
    std::mt19937_64 _random;
    std::unordered_set<std::int64_t> _used;
};

}  // namespace host
