// Purpose: little-endian numbers and length-prefixed text in a buffer of bytes.
// Thread: an object belongs to one thread.
// Failure: a reader that runs past the end, or meets a length beyond its bound, fails for good and
// gives zeros and empty text from then on; ask ok() once at the end.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace host {

static_assert(std::endian::native == std::endian::little);

class ByteWriter {
public:
    template <typename T>
    void number(T value) {
        static_assert(std::is_integral_v<T>);
        _bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    // A 32-bit length, then the bytes.
    void text(std::string_view value) {
        number(static_cast<std::uint32_t>(value.size()));
        raw(value);
    }
    void raw(std::string_view bytes) { _bytes.append(bytes); }

    const std::string& bytes() const { return _bytes; }
    std::string take() { return std::move(_bytes); }

private:
    std::string _bytes;
};

class ByteReader {
public:
    explicit ByteReader(std::string_view bytes) : _rest(bytes) {}

    template <typename T>
    T number() {
        static_assert(std::is_integral_v<T>);
        T value{};
        if (const auto bytes = raw(sizeof value); bytes.size() == sizeof value)
            std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }
    // Borrowed from the buffer.
    std::string_view text(std::size_t limit = SIZE_MAX) {
        const auto size = number<std::uint32_t>();
        return size <= limit ? raw(size) : fail();
    }
    std::string_view raw(std::size_t size) {
        if (!_ok || size > _rest.size())
            return fail();
        const std::string_view bytes = _rest.substr(0, size);
        _rest.remove_prefix(size);
        return bytes;
    }

    std::size_t remaining() const { return _rest.size(); }
    bool ok() const { return _ok; }
    // Everything was read, and nothing is left.
    bool complete() const { return _ok && _rest.empty(); }
    std::string_view fail() {
        _ok = false;
        _rest = {};
        return {};
    }

private:
    std::string_view _rest;
    bool _ok = true;
};

}  // namespace host
