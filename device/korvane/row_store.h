// Purpose: rows of a query kept in memory: their values, and the bytes of their texts and blobs.
// Calling thread: one at a time.
// Ownership: owns what the rows show; rows are valid while it lives.
#pragma once

#include <cstring>
#include <memory>
#include <span>
#include <vector>

#include "platform/values.h"

namespace korvane {

class RowStore {
public:
    explicit RowStore(std::size_t columns)
        : _columns(columns), _rowsPerBlock(columns == 0 ? 1 : ValuesPerBlock / columns + 1) {}

    std::size_t size() const { return _size; }
    // A new row of null values, to be filled in.
    std::span<platform::ValueView> add() {
        if (_size % _rowsPerBlock == 0)
            _blocks.push_back(std::make_unique<platform::ValueView[]>(_rowsPerBlock * _columns));
        return row(_size++);
    }
    std::span<platform::ValueView> row(std::size_t index) {
        return {_blocks[index / _rowsPerBlock].get() + (index % _rowsPerBlock) * _columns,
                _columns};
    }
    // A copy of a value that lives as long as the store.
    platform::ValueView keep(const platform::ValueView& value) {
        using Type = platform::Value::Type;
        if (value.type() != Type::String && value.type() != Type::Data)
            return value;
        const std::string_view bytes = value.string();
        const char* kept = keepBytes(bytes);
        if (value.type() == Type::String)
            return platform::ValueView(std::string_view(kept, bytes.size()));
        return {reinterpret_cast<const std::uint8_t*>(kept), bytes.size()};
    }

private:
    // Blocks of about a megabyte.
    static constexpr std::size_t ValuesPerBlock = 1u << 16;
    static constexpr std::size_t BytesPerBlock = 1u << 20;

    const char* keepBytes(std::string_view bytes) {
        if (bytes.empty())
            return "";
        if (bytes.size() > _bytesLeft) {
            const std::size_t size = std::max(bytes.size(), BytesPerBlock);
            _texts.push_back(std::make_unique_for_overwrite<char[]>(size));
            _next = _texts.back().get();
            _bytesLeft = size;
        }
        char* kept = _next;
        std::memcpy(kept, bytes.data(), bytes.size());
        _next += bytes.size();
        _bytesLeft -= bytes.size();
        return kept;
    }

    const std::size_t _columns;
    const std::size_t _rowsPerBlock;
    std::size_t _size = 0;
    std::vector<std::unique_ptr<platform::ValueView[]>> _blocks;
    std::vector<std::unique_ptr<char[]>> _texts;
    char* _next = nullptr;
    std::size_t _bytesLeft = 0;
};

}  // namespace korvane
