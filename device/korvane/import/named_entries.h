// Purpose: which rows an import's records have named so far.
#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

namespace korvane {

// Row ids are given in order of arrival, so they are dense: a bit each. Those far out are kept one
// by one.
class NamedEntries {
public:
    void add(std::int64_t rowID) {
        if (!isDense(rowID)) {
            _farOut.insert(rowID);
            return;
        }
        const auto index = static_cast<std::size_t>(rowID);
        if (index >= _bits.size()) {
            _bits.resize(index + index / 2 + 1024);
        }
        _bits[index] = true;
    }
    bool contains(std::int64_t rowID) const {
        return isDense(rowID) ? static_cast<std::size_t>(rowID) < _bits.size() &&
                                    _bits[static_cast<std::size_t>(rowID)]
                              : _farOut.contains(rowID);
    }

private:
    static constexpr std::int64_t DenseLimit = 100'000'000;
    static bool isDense(std::int64_t rowID) { return rowID >= 0 && rowID < DenseLimit; }

    std::vector<bool> _bits;
    std::unordered_set<std::int64_t> _farOut;
};

}  // namespace korvane
