// The 128-bit content hash (XXH3) by which both ends tell contents apart and check what arrived. It
// finds accidents, not attackers.
//
// Any thread; a ContentHasher belongs to one thread at a time. Nothing here fails.
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace common {

struct ContentHash {
    std::uint64_t high = 0;
    std::uint64_t low = 0;

    // The form in which it travels and is stored: 16 bytes, the high half first, big-endian.
    std::string bytes() const;

    auto operator<=>(const ContentHash&) const = default;
};

ContentHash contentHashOf(std::span<const std::uint8_t> bytes);

// The same over bytes that come in pieces.
class ContentHasher {
public:
    ContentHasher();
    ~ContentHasher();
    ContentHasher(ContentHasher&&) noexcept;
    ContentHasher& operator=(ContentHasher&&) noexcept;

    void update(std::span<const std::uint8_t> bytes);
    void update(std::string_view bytes);
    // Of everything so far; more may follow.
    ContentHash digest() const;

private:
    struct State;
    std::unique_ptr<State> _state;
};

}  // namespace common
