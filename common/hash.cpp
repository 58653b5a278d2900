#include "common/hash.h"

#include <openssl/evp.h>
#include <xxhash.h>

#include <algorithm>
#include <iterator>
#include <new>

namespace common {
namespace {

Hash128 canonical(XXH128_hash_t hash) {
    XXH128_canonical_t bytes;
    XXH128_canonicalFromHash(&bytes, hash);
    Hash128 result;
    std::copy(std::begin(bytes.digest), std::end(bytes.digest), result.begin());
    return result;
}

struct ContextDeleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_MD_CTX, ContextDeleter>;

// The engine's functions fail for lack of memory only.
Context newContext() {
    Context context(EVP_MD_CTX_new());
    if (!context)
        throw std::bad_alloc();
    return context;
}
void require(int succeeded) {
    if (!succeeded)
        throw std::bad_alloc();
}

}  // namespace

Hash128 xxh3(std::span<const std::uint8_t> bytes) {
    return canonical(XXH3_128bits(bytes.data(), bytes.size()));
}

std::uint64_t xxh3Short(std::string_view text) {
    return XXH3_64bits(text.data(), text.size());
}

Hash256 sha256(std::span<const std::uint8_t> bytes) {
    Hash256 result;
    require(EVP_Digest(bytes.data(), bytes.size(), result.data(), nullptr, EVP_sha256(), nullptr));
    return result;
}

std::string hexText(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

struct XXH3Stream::State {
    struct Deleter {
        void operator()(XXH3_state_t* xxh) const { XXH3_freeState(xxh); }
    };
    const std::unique_ptr<XXH3_state_t, Deleter> xxh{XXH3_createState()};
};

XXH3Stream::XXH3Stream() : _state(std::make_unique<State>()) {
    if (!_state->xxh)
        throw std::bad_alloc();
    XXH3_128bits_reset(_state->xxh.get());
}
XXH3Stream::~XXH3Stream() = default;

void XXH3Stream::update(std::span<const std::uint8_t> bytes) {
    XXH3_128bits_update(_state->xxh.get(), bytes.data(), bytes.size());
}

Hash128 XXH3Stream::digest() const {
    return canonical(XXH3_128bits_digest(_state->xxh.get()));
}

struct SHA256Stream::State {
    Context context = newContext();
};

SHA256Stream::SHA256Stream() : _state(std::make_unique<State>()) {
    require(EVP_DigestInit_ex(_state->context.get(), EVP_sha256(), nullptr));
}
SHA256Stream::~SHA256Stream() = default;

void SHA256Stream::update(std::span<const std::uint8_t> bytes) {
    require(EVP_DigestUpdate(_state->context.get(), bytes.data(), bytes.size()));
}

Hash256 SHA256Stream::digest() const {
    // Ending a digest spoils its context, so a copy is ended.
    const Context copy = newContext();
    Hash256 result;
    require(EVP_MD_CTX_copy_ex(copy.get(), _state->context.get()));
    require(EVP_DigestFinal_ex(copy.get(), result.data(), nullptr));
    return result;
}

}  // namespace common
