#include "bench/bare_inserts.h"

#include <fmt/format.h>

#include "bench/bare_sqlite.h"
#include "device/korvane/schema.h"

namespace bench {
namespace {

// The rows that wait to be inserted, so that reading them is not measured.
constexpr std::size_t RowsPerBatch = 20'000;

constexpr const char* Tables[] = {"item",         "item_extra",      "item_store", "item_stats",
                                  "item_artwork", "entity_revision", "album",      "album_artist",
                                  "item_artist",  "sort_map"};

struct Cell {
    int type = SQLITE_NULL;
    std::int64_t integer = 0;
    std::string bytes;
};

// The columns of a table that can be inserted.
std::vector<std::string> columnsOf(sqlite3* connection, const std::string& table) {
    std::vector<std::string> names;
    const BareStatement columns =
        prepareBare(connection, fmt::format("PRAGMA table_info({})", table));
    while (sqlite3_step(columns.get()) == SQLITE_ROW)
        names.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(columns.get(), 1)));
    return names;
}

void readBatch(sqlite3_stmt* rows, std::size_t columns, std::vector<std::vector<Cell>>& batch) {
    batch.clear();
    while (batch.size() < RowsPerBatch && sqlite3_step(rows) == SQLITE_ROW) {
        std::vector<Cell>& row = batch.emplace_back(columns);
        for (std::size_t i = 0; i < columns; ++i) {
            const int column = static_cast<int>(i);
            row[i].type = sqlite3_column_type(rows, column);
            row[i].integer = row[i].type == SQLITE_INTEGER ? sqlite3_column_int64(rows, column) : 0;
            if (row[i].type == SQLITE_TEXT || row[i].type == SQLITE_BLOB)
                row[i].bytes.assign(static_cast<const char*>(sqlite3_column_blob(rows, column)),
                                    static_cast<std::size_t>(sqlite3_column_bytes(rows, column)));
        }
    }
}

void bindCell(sqlite3_stmt* insert, int index, const Cell& cell) {
    const int size = static_cast<int>(cell.bytes.size());
    switch (cell.type) {
        case SQLITE_INTEGER:
            sqlite3_bind_int64(insert, index, cell.integer);
            break;
        case SQLITE_TEXT:
            sqlite3_bind_text(insert, index, cell.bytes.data(), size, SQLITE_STATIC);
            break;
        case SQLITE_BLOB:
            sqlite3_bind_blob(insert, index, cell.bytes.data(), size, SQLITE_STATIC);
            break;
        default:
            sqlite3_bind_null(insert, index);
    }
}

void insertBatch(sqlite3_stmt* insert, const std::vector<std::vector<Cell>>& batch) {
    for (const std::vector<Cell>& row : batch) {
        int index = 0;
        for (const Cell& cell : row)
            bindCell(insert, ++index, cell);
        runBare(insert);
    }
}

}  // namespace

Cost copyWithInserts(const std::string& library, const std::string& copy) {
    const BareConnection source = openBare(library, ReaderCacheKiB);
    const BareConnection target = openBare(copy, WriterCacheKiB);
    executeBare(target.get(), korvane::firstSchemaTables());
    Cost cost = costOf([&] { executeBare(target.get(), "BEGIN IMMEDIATE"); });
    for (const std::string table : Tables) {
        const std::vector<std::string> columns = columnsOf(target.get(), table);
        std::string names, marks;
        for (const std::string& column : columns) {
            names += (names.empty() ? "" : ", ") + column;
            marks += marks.empty() ? "?" : ", ?";
        }
        const BareStatement rows =
            prepareBare(source.get(), fmt::format("SELECT {} FROM {}", names, table));
        const BareStatement insert = prepareBare(
            target.get(), fmt::format("INSERT INTO {} ({}) VALUES ({})", table, names, marks));
        std::vector<std::vector<Cell>> batch;
        do {
            readBatch(rows.get(), columns.size(), batch);
            cost += costOf([&] { insertBatch(insert.get(), batch); });
        } while (batch.size() == RowsPerBatch);
    }
    cost += costOf([&] { executeBare(target.get(), "COMMIT"); });
    return cost;
}

}  // namespace bench
