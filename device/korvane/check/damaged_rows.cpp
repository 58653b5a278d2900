#include "device/korvane/check/damaged_rows.h"

#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <optional>

#include "common/sqlite/sqlite_error.h"

namespace korvane {

namespace {

constexpr std::int64_t Lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t Highest = std::numeric_limits<std::int64_t>::max();

class Reader {
public:
    Reader(common::Database& database, const DamagedTable& table)
        : _database(database),
          _sql(fmt::format("SELECT {} FROM {} NOT INDEXED WHERE {}{} >= ? ORDER BY {}",
                           table.columns, table.table,
                           table.condition.empty() ? "" : table.condition + " AND ", table.key,
                           table.key)) {}

    std::size_t read(const std::function<void(common::Statement&)>& row) {
        std::size_t gaps = 0;
        std::optional<std::int64_t> from = Lowest;
        while (from) {
            std::optional<std::int64_t> failed = readFrom(*from, row);
            if (!failed)
                break;
            ++gaps;
            const std::optional<std::int64_t> next = nextReadable(*failed);
            // Noise may pass for rows in another order; each step goes on.
            if (next && *next <= *from)
                break;
            from = next;
        }
        return gaps;
    }

private:
    // Nothing when the end was reached, else a key from which nothing can be read.
    std::optional<std::int64_t> readFrom(std::int64_t from,
                                         const std::function<void(common::Statement&)>& row) {
        std::int64_t next = from;
        try {
            auto rows = _database.query(_sql, from);
            while (rows.step()) {
                row(*rows);
                const std::int64_t key = rows->int64(0);
                if (key == Highest)
                    return std::nullopt;
                next = key + 1;
            }
            return std::nullopt;
        } catch (const common::SqliteError& error) {
            if (!error.isDamage())
                throw;
            return next;
        }
    }

    bool canRead(std::int64_t from) {
        try {
            _database.query(_sql, from).step();
            return true;
        } catch (const common::SqliteError& error) {
            if (!error.isDamage())
                throw;
            return false;
        }
    }

    // The lowest key above from which something can be read, or the end; found by doubling the
    // step, then by halves: one damaged page takes a whole range of keys.
    std::optional<std::int64_t> nextReadable(std::int64_t failed) {
        std::int64_t bad = failed;
        std::int64_t good = Highest;
        for (std::uint64_t step = 1;; step *= 2) {
            const auto room =
                static_cast<std::uint64_t>(Highest) - static_cast<std::uint64_t>(failed);
            if (step > room / 2) {
                if (!canRead(Highest))
                    return std::nullopt;
                break;
            }
            const auto probe = static_cast<std::int64_t>(static_cast<std::uint64_t>(failed) + step);
            if (canRead(probe)) {
                good = probe;
                break;
            }
            bad = probe;
        }
        while (static_cast<std::uint64_t>(good) - static_cast<std::uint64_t>(bad) > 1) {
            const auto middle = static_cast<std::int64_t>(
                static_cast<std::uint64_t>(bad) +
                (static_cast<std::uint64_t>(good) - static_cast<std::uint64_t>(bad)) / 2);
            (canRead(middle) ? good : bad) = middle;
        }
        return good;
    }

    common::Database& _database;
    const std::string _sql;
};

}  // namespace

std::size_t readAroundDamage(common::Database& database, const DamagedTable& table,
                             const std::function<void(common::Statement&)>& row) {
    return Reader(database, table).read(row);
}

}  // namespace korvane
