// Purpose: persistent ids for new entries: random, positive, in ascending order, so that an index
//          on them grows in one sweep when an import makes many.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace common {
class Database;
}

namespace korvane {

class NewIDs {
public:
    // Any 64-bit number, all equally likely; tests choose their own.
    using RandomNumber = std::function<std::uint64_t()>;

    // `expected` ids are drawn at once. None of them is in `reserved` (sync ids that the import
    // brings, sorted), a sync id or persistent id of the database, or one that a deleted entry had.
    NewIDs(common::Database& database, std::size_t expected,
           const std::vector<std::int64_t>& reserved, RandomNumber random);

    std::int64_t next();
    // Before the first of these ids was given out, no entry had this one nor had had it. False also
    // when only the database could tell.
    bool isKnownUnused(std::int64_t id) const;

private:
    void readKnown();
    void draw(std::size_t count);
    bool isTaken(std::int64_t id);

    common::Database& _database;
    const std::vector<std::int64_t>& _reserved;
    RandomNumber _random;
    // A database with few entries is asked once for all ids that it knows; besides them there are
    // only those given out here, and the first draw has no twins.
    std::vector<std::int64_t> _known;  // sorted
    bool _knowsAll = false;            // _known holds all of them
    bool _asksDatabase = false;
    std::vector<std::int64_t> _ids;  // descending: the next one is the last
};

// Random numbers of the operating system.
std::uint64_t systemRandomNumber();

}  // namespace korvane
