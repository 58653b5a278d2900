// Purpose: the 128-bit content hash (XXH3) by which the host tells files and pictures apart.
// Thread: any; a ContentHasher belongs to one thread at a time.
// Failure: none.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace host {

struct ContentHash {
    std::uint64_t high = 0;
    std::uint64_t low = 0;

    auto operator<=>(const ContentHash&) const = default;
};

// 32 lower-case hexadecimal digits, the high half first.
std::string hexOfContentHash(const ContentHash& hash);

ContentHash contentHashOf(std::span<const std::uint8_t> bytes);

// The same over bytes that come in pieces, as a file that is read for sending does.
class ContentHasher {
public:
    ContentHasher();
    ~ContentHasher();
    ContentHasher(ContentHasher&&) noexcept;
    ContentHasher& operator=(ContentHasher&&) noexcept;

    void update(std::span<const std::uint8_t> bytes);
    // Of everything so far; more may follow.
    ContentHash digest() const;

private:
    struct State;
    std::unique_ptr<State> _state;
};

}  // namespace host
