#include "device/korvane/restored_database.h"

#include <unistd.h>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/database_health.h"
#include "device/korvane/library_identity.h"
#include "device/korvane/schema.h"

namespace korvane {
namespace {

// The engine's own tables, of statistics for one, may be there or not.
std::string schemaOf(common::Database& database) {
    std::string schema;
    auto rows = database.query(
        "SELECT type, name, ifnull(sql, '') FROM sqlite_schema WHERE name NOT LIKE 'sqlite\\_%' "
        "ESCAPE '\\' ORDER BY type, name");
    while (rows.step())
        for (int column = 0; column < 3; ++column)
            schema += std::string(rows->text(column)) + '\0';
    return schema;
}

}  // namespace

std::optional<std::string> adoptRestoredDatabase(const std::string& realPath) {
    try {
        const auto database = openChecked(realPath, true);
        common::Database fresh(":memory:", {});
        bringSchemaUpToDate(fresh);
        if (schemaOf(*database) != schemaOf(fresh))
            return "it has tables that no library has";
        disownFile(*database);
    } catch (const common::SqliteError& error) {
        if (error.isDamage() || error.code() == common::SqliteCannotOpen)
            return error.what();
        throw;
    }
    if (::access((realPath + "-wal").c_str(), F_OK) == 0)
        return "its log could not be put into it";
    return std::nullopt;
}

}  // namespace korvane
