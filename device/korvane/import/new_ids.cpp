#include "device/korvane/import/new_ids.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <limits>
#include <system_error>

#include "common/sqlite/database.h"
#include "device/korvane/identifiers.h"

namespace korvane {

namespace {

constexpr std::size_t FewKnown = 1'000;
// Names take ids as well; there are far fewer than tracks.
constexpr std::size_t TracksPerName = 2;

}  // namespace

NewIDs::NewIDs(common::Database& database, std::size_t expected,
               const std::vector<std::int64_t>& reserved, RandomNumber random)
    : _database(database), _reserved(reserved), _random(std::move(random)) {
    readKnown();
    draw(expected + expected / TracksPerName);
}

void NewIDs::readKnown() {
    auto ids = _database.query(
        "SELECT item_pid FROM item"
        " UNION ALL SELECT sync_id FROM item_store WHERE sync_id <> 0"
        " UNION ALL SELECT container_pid FROM container"
        " UNION ALL SELECT sync_id FROM container WHERE sync_id <> 0"
        " UNION ALL SELECT pid FROM tombstone"
        " UNION ALL SELECT pid FROM entity_revision"
        " UNION ALL SELECT item_pid FROM removed_memory");
    while (_known.size() < FewKnown && ids.step()) {
        _known.push_back(ids->int64(0));
    }
    std::ranges::sort(_known);
    _knowsAll = _known.size() < FewKnown;
    _asksDatabase = !_knowsAll;
}

void NewIDs::draw(std::size_t count) {
    _ids.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        constexpr std::uint64_t Positive = std::numeric_limits<std::int64_t>::max();
        _ids.push_back(static_cast<std::int64_t>(_random() & Positive));
    }
    std::ranges::sort(_ids, std::greater());
    const auto twins = std::unique(_ids.begin(), _ids.end());
    _ids.erase(twins, _ids.end());
}

std::int64_t NewIDs::next() {
    for (;;) {
        if (_ids.empty()) {
            _asksDatabase = true;
            draw(1);
        }
        const std::int64_t id = _ids.back();
        _ids.pop_back();
        if (id != 0 && !isTaken(id)) {
            return id;
        }
    }
}

bool NewIDs::isTaken(std::int64_t id) {
    if (std::ranges::binary_search(_reserved, id) || std::ranges::binary_search(_known, id)) {
        return true;
    }
    return _asksDatabase && isTakenID(_database, id);
}

bool NewIDs::isKnownUnused(std::int64_t id) const {
    return _knowsAll && !std::ranges::binary_search(_known, id);
}

std::uint64_t systemRandomNumber() {
    // One call to the system for many numbers.
    thread_local std::array<std::uint64_t, 512> numbers;
    thread_local std::size_t left = 0;
    if (left == 0) {
        // The whole of at most 256 bytes cannot fail half way.
        constexpr std::size_t Piece = 256;
        auto* bytes = reinterpret_cast<std::uint8_t*>(numbers.data());
        for (std::size_t at = 0; at < sizeof numbers; at += Piece) {
            if (getrandom(bytes + at, Piece, 0) != static_cast<ssize_t>(Piece)) {
                throw std::system_error(errno, std::generic_category(), "getrandom");
            }
        }
        left = numbers.size();
    }
    return numbers[--left];
}

}  // namespace korvane
