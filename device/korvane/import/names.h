// Purpose: the rows of albums and artists that an import's tracks name.
// Calling thread: that of the import, inside its transaction.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace common {
class Database;
}

namespace korvane {

class NewIDs;

// Finds names, and makes the rows of those that are not there yet. An empty name has id 0.
class Names {
public:
    Names(common::Database& database, NewIDs& newIDs) : _database(database), _newIDs(newIDs) {}

    std::int64_t album(std::string_view name, std::int64_t albumArtistPID);
    std::int64_t albumArtist(std::string_view name);
    std::int64_t itemArtist(std::string_view name);

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>{}(text);
        }
    };
    using Cache = std::unordered_map<std::string, std::int64_t, Hash, std::equal_to<>>;

    std::int64_t artist(Cache& cache, std::string_view name, const char* find, const char* insert);

    common::Database& _database;
    NewIDs& _newIDs;
    Cache _albums;  // name, NUL, album artist's id
    Cache _albumArtists;
    Cache _itemArtists;
};

// Removes the albums and artists that no track names any more.
void removeUnusedNames(common::Database& database);

}  // namespace korvane
