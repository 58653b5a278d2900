#include "device/korvane/schema.h"

#include <fmt/format.h>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "common/sqlite/transaction.h"

namespace korvane {

namespace {

// Where a file may lie. 200 to 249 and 251 to 299 are the music folders, by the remainder of the
// sync id, which keeps its sign; what lies from 300 on a store or cloud can give again.
void fillBaseLocations(common::Database& database) {
    constexpr char Insert[] = "INSERT INTO base_location (base_location_id, path) VALUES (?, ?)";
    database.execute(Insert, 0, "");
    for (int folder = 0; folder < 50; ++folder)
        database.execute(Insert, 200 + folder, fmt::format("Tessel_Control/Music/F{:02}", folder));
    for (int folder = 1; folder < 50; ++folder)
        database.execute(Insert, 250 + folder, fmt::format("Tessel_Control/Music/F-{}", folder));
    database.execute(Insert, 300, "Purchases");
    database.execute(Insert, 310, "Podcasts");
    database.execute(Insert, 400, "CloudAssets");
}

void createFirstVersion(common::Database& database) {
    database.executeScript(firstSchemaTables());
    database.executeScript(firstSchemaTriggers());
    fillBaseLocations(database);
}

}  // namespace

void bringSchemaUpToDate(common::Database& database) {
    const auto newest = static_cast<int>(SchemaVersion::Newest);
    const auto found = database.int64("PRAGMA user_version");
    if (found == newest)
        return;
    common::Transaction transaction(database, common::TransactionKind::Write);
    // Asked again: another process may have been first.
    const auto version = database.int64("PRAGMA user_version");
    if (version > newest)
        throw common::SqliteError(
            common::SqliteCannotOpen,
            fmt::format("the library was made by a newer version of this program "
                        "(schema {}, this one knows {})",
                        version, newest));
    if (version < static_cast<int>(SchemaVersion::First))
        createFirstVersion(database);
    if (version < static_cast<int>(SchemaVersion::PurchaseOrigins))
        database.executeScript(purchaseOriginsSchema());
    if (version < static_cast<int>(SchemaVersion::KeptRecords))
        database.executeScript(keptRecordsSchema());
    database.executeScript(fmt::format("PRAGMA user_version = {}", newest));
    transaction.commit();
}

}  // namespace korvane
