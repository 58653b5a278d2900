#include "device/korvane/database_properties.h"

#include "common/sqlite/database.h"

namespace korvane {

using platform::Value;

Value databaseProperty(common::Database& database, std::string_view key) {
    auto row = database.query("SELECT value, value_type FROM database_property WHERE key = ?", key);
    if (!row.step())
        return {};
    switch (static_cast<Value::Type>(row->int64(1))) {
        case Value::Type::Boolean:
            return row->int64(0) != 0;
        case Value::Type::Date:
            return platform::Date{row->real(0)};
        default:
            return row->value(0);
    }
}

void setDatabaseProperty(common::Database& database, std::string_view key, const Value& value) {
    if (value.isNull())
        return deleteDatabaseProperty(database, key);
    database.execute(
        "INSERT INTO database_property (key, value, value_type) VALUES (?1, ?2, ?3) ON CONFLICT "
        "(key) DO UPDATE SET value = ?2, value_type = ?3 WHERE value IS NOT ?2 OR value_type <> ?3",
        key, value, static_cast<int>(value.type()));
}

void deleteDatabaseProperty(common::Database& database, std::string_view key) {
    database.execute("DELETE FROM database_property WHERE key = ?", key);
}

}  // namespace korvane
