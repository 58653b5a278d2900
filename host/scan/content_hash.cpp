#include "host/scan/content_hash.h"

#include <xxhash.h>

#include <cstdio>

namespace host {

namespace {

ContentHash fromXXH(const XXH128_hash_t& hash) {
    return {hash.high64, hash.low64};
}

}  // namespace

std::string hexOfContentHash(const ContentHash& hash) {
    char text[33];
    std::snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(hash.high),
                  static_cast<unsigned long long>(hash.low));
    return text;
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
    XXH3_128bits_reset(_state->xxh.get());
}

ContentHasher::~ContentHasher() = default;
ContentHasher::ContentHasher(ContentHasher&&) noexcept = default;
ContentHasher& ContentHasher::operator=(ContentHasher&&) noexcept = default;

void ContentHasher::update(std::span<const std::uint8_t> bytes) {
    XXH3_128bits_update(_state->xxh.get(), bytes.data(), bytes.size());
}

ContentHash ContentHasher::digest() const {
    return fromXXH(XXH3_128bits_digest(_state->xxh.get()));
}

}  // namespace host
