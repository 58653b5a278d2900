#include "common/hash/content_hash.h"

#include <xxhash.h>

#include <new>

namespace common {
namespace {

ContentHash fromXXH(const XXH128_hash_t& hash) {
    return {hash.high64, hash.low64};
}

}  // namespace

std::string ContentHash::bytes() const {
    XXH128_canonical_t canonical;
    XXH128_canonicalFromHash(&canonical, XXH128_hash_t{low, high});
    return std::string(reinterpret_cast<const char*>(canonical.digest), sizeof canonical.digest);
}

ContentHash contentHashOf(std::span<const std::uint8_t> bytes) {
    return fromXXH(XXH3_128bits(bytes.data(), bytes.size()));
}

struct ContentHasher::State {
    struct Free {
        void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
    };
    std::unique_ptr<XXH3_state_t, Free> xxh{XXH3_createState()};
};

ContentHasher::ContentHasher() : _state(std::make_unique<State>()) {
    if (!_state->xxh)
        throw std::bad_alloc();
    XXH3_128bits_reset(_state->xxh.get());
}

ContentHasher::~ContentHasher() = default;
ContentHasher::ContentHasher(ContentHasher&&) noexcept = default;
ContentHasher& ContentHasher::operator=(ContentHasher&&) noexcept = default;

void ContentHasher::update(std::span<const std::uint8_t> bytes) {
    XXH3_128bits_update(_state->xxh.get(), bytes.data(), bytes.size());
}

void ContentHasher::update(std::string_view bytes) {
    XXH3_128bits_update(_state->xxh.get(), bytes.data(), bytes.size());
}

ContentHash ContentHasher::digest() const {
    return fromXXH(XXH3_128bits_digest(_state->xxh.get()));
}

}  // namespace common
