#include "device/korvane/database_health.h"

#include <fmt/format.h>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/schema.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

namespace {

std::optional<std::string> countMismatch(common::Database& database, const char* table,
                                         std::int64_t expected) {
    // Through the table itself: an index may be whole where the table is not.
    const auto rows = database.int64(fmt::format("SELECT count(*) FROM {} NOT INDEXED", table));
    if (rows == expected)
        return std::nullopt;
    return fmt::format("the table {} has {} rows where {} belong", table, rows, expected);
}

std::unique_ptr<common::Database> openOnce(const std::string& realPath, bool thoroughly) {
    auto database = std::make_unique<common::Database>(realPath, common::DatabaseOptions{});
    bringSchemaUpToDate(*database);
    if (const auto damage = findDamage(*database, thoroughly))
        throw common::SqliteError(common::SqliteDamaged, *damage);
    return database;
}

}  // namespace

std::optional<std::string> findDamage(common::Database& database, bool thoroughly) {
    if (thoroughly) {
        auto check = database.query("PRAGMA quick_check(1)");
        if (!check.step() || check->text(0) != "ok")
            return "the database is damaged: " + std::string(check->text(0));
    }
    auto counts = database.query("SELECT items, containers FROM row_count");
    if (!counts.step())
        return "the library's own counts are missing";
    const auto items = counts->int64(0);
    for (const char* table : {"item", "item_extra", "item_store", "item_stats", "item_artwork"})
        if (auto mismatch = countMismatch(database, table, items))
            return mismatch;
    return countMismatch(database, "container", counts->int64(1));
}

std::unique_ptr<common::Database> openChecked(const std::string& realPath, bool thoroughly) {
    try {
        return openOnce(realPath, thoroughly);
    } catch (const common::SqliteError& error) {
        if (!error.isDamage())
            throw;
    }
    return openOnce(realPath, true);
}

platform::OptionalError setDatabaseAside(device::RootedFileSystem& files, const std::string& path,
                                         double now) {
    const std::string aside = fmt::format("{}.damaged-{:.0f}", path, now);
    // The database first: a log that is left without one is dropped by the engine, whereas a
    // database without its log would pass for whole.
    for (const char* companion : {"", "-wal", "-shm", ".identity"}) {
        if (!files.fileExists(path + companion))
            continue;
        if (auto error = files.moveItem(path + companion, aside + companion))
            return error;
    }
    return files.syncDirectory(path.substr(0, path.rfind('/')));
}

}  // namespace korvane
