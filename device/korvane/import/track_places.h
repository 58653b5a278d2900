// Purpose: the places of new tracks among all album artists and albums, given before their rows are
//          written: a track that has none is found and placed again at the end of the transaction.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace common {
class Database;
}
namespace qorx {
class Track;
}

namespace korvane {

struct TrackPlace {
    std::int64_t albumArtistOrder = 0;
    std::int64_t albumOrder = 0;
};

class TrackPlaces {
public:
    explicit TrackPlaces(common::Database& database) : _database(database) {}

    // One for each track. They hold until the next call, which may move all.
    std::vector<TrackPlace> of(std::span<const qorx::Track* const> tracks);

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>{}(text);
        }
    };
    using Orders = std::unordered_map<std::string, std::int64_t, Hash, std::equal_to<>>;

    void note(std::string_view name);
    void placeUnknown();

    common::Database& _database;
    Orders _orders;                             // by name
    std::vector<Orders::value_type*> _unknown;  // of _orders: not looked up yet
};

}  // namespace korvane
