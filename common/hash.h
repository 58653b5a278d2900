// Hashes: XXH3 to tell changed from unchanged, SHA-256 to prove integrity.
//
// Any thread; an object of these classes is used by one thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace common {

using Hash128 = std::array<std::uint8_t, 16>;  // canonical order: the most significant byte first
using Hash256 = std::array<std::uint8_t, 32>;

Hash128 xxh3(std::span<const std::uint8_t> bytes);
// 64 bits, for tables; not the half of the above.
std::uint64_t xxh3Short(std::string_view text);
Hash256 sha256(std::span<const std::uint8_t> bytes);

// Lower-case, two digits a byte.
std::string hexText(std::span<const std::uint8_t> bytes);

// XXH3, 128 bits, over bytes that come in pieces.
class XXH3Stream {
public:
    XXH3Stream();
    ~XXH3Stream();
    void update(std::span<const std::uint8_t> bytes);
    // Of everything so far; more may follow.
    Hash128 digest() const;

private:
    struct State;
    std::unique_ptr<State> _state;
};

// SHA-256 over bytes that come in pieces.
class SHA256Stream {
public:
    SHA256Stream();
    ~SHA256Stream();
    void update(std::span<const std::uint8_t> bytes);
    // Of everything so far; more may follow.
    Hash256 digest() const;

private:
    struct State;
    std::unique_ptr<State> _state;
};

}  // namespace common
