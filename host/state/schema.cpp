#include "host/state/schema.h"

#include <string>

#include "common/sqlite/database.h"
#include "common/sqlite/transaction.h"

namespace host {

namespace {

constexpr const char* FirstTables = R"(
CREATE TABLE host (key TEXT PRIMARY KEY, value) WITHOUT ROWID;
-- The media file itself is an encoded record, see host/scan/media_record.h.
CREATE TABLE files (
    sync_id INTEGER PRIMARY KEY,
    global_id INTEGER NOT NULL UNIQUE,
    date_added INTEGER NOT NULL,
    path BLOB NOT NULL,
    record BLOB NOT NULL,
    content_hash BLOB,
    removed_by_owner INTEGER NOT NULL,
    device_only INTEGER NOT NULL,  -- never seen in the folder
    failure TEXT NOT NULL,
    rating INTEGER, rating_changed INTEGER,
    bookmark INTEGER, bookmark_changed INTEGER);
CREATE TABLE plays (
    sync_id INTEGER NOT NULL, origin TEXT NOT NULL,
    plays INTEGER NOT NULL, skips INTEGER NOT NULL,
    last_played INTEGER NOT NULL, last_skipped INTEGER NOT NULL,
    PRIMARY KEY (sync_id, origin)) WITHOUT ROWID;
CREATE TABLE playlists (
    sync_id INTEGER PRIMARY KEY,
    global_id INTEGER NOT NULL,
    path BLOB NOT NULL, name TEXT NOT NULL,
    items BLOB NOT NULL,  -- sync ids, 8 bytes each, little-endian
    changed INTEGER NOT NULL,
    removed_by_owner INTEGER NOT NULL);
CREATE TABLE devices (
    device INTEGER PRIMARY KEY, uid TEXT NOT NULL UNIQUE, anchor TEXT NOT NULL, digest BLOB);
CREATE TABLE sent_tracks (
    device INTEGER NOT NULL, sync_id INTEGER NOT NULL,
    metadata BLOB NOT NULL, recommendation BLOB NOT NULL, owner BLOB NOT NULL, content BLOB, delivered INTEGER NOT NULL,
    PRIMARY KEY (device, sync_id)) WITHOUT ROWID;
CREATE TABLE sent_playlists (
    device INTEGER NOT NULL, sync_id INTEGER NOT NULL, fingerprint BLOB NOT NULL,
    PRIMARY KEY (device, sync_id)) WITHOUT ROWID;
)";

constexpr const char* FailedItemsTable = R"(
CREATE TABLE failed_items (
    device INTEGER NOT NULL, place INTEGER NOT NULL,
    path BLOB NOT NULL, reason TEXT NOT NULL, next_step TEXT NOT NULL,
    PRIMARY KEY (device, place)) WITHOUT ROWID;
)";

}  // namespace

bool migrateState(common::Database& database) {
    const std::int64_t version = database.int64("PRAGMA user_version");
    if (version > static_cast<int>(StateVersion::Current))
        return false;
    if (version == static_cast<int>(StateVersion::Current))
        return true;
    common::Transaction transaction(database, common::TransactionKind::Write);
    if (version < static_cast<int>(StateVersion::First))
        database.executeScript(FirstTables);
    if (version < static_cast<int>(StateVersion::FailedItems))
        database.executeScript(FailedItemsTable);
    database.executeScript("PRAGMA user_version = " +
                           std::to_string(static_cast<int>(StateVersion::Current)));
    transaction.commit();
    return true;
}

}  // namespace host
