#include "device/downloads/download_store.h"

#include "common/sqlite/sqlite_error.h"
#include "common/sqlite/transaction.h"

namespace downloads {
namespace {

enum SchemaVersion : std::int64_t { Empty = 0, FirstVersion = 1 };

// AUTOINCREMENT: the number of a removed download is not given again.
constexpr char Schema[] = R"sql(
    CREATE TABLE download(
        persistent_id INTEGER PRIMARY KEY AUTOINCREMENT,
        kind TEXT NOT NULL,
        phase TEXT NOT NULL,
        library_item_identifier TEXT NOT NULL);
    CREATE TABLE download_property(
        persistent_id INTEGER NOT NULL,
        name TEXT NOT NULL,
        value NOT NULL,
        PRIMARY KEY(persistent_id, name)) WITHOUT ROWID;
    PRAGMA user_version = 1;
)sql";

constexpr char Columns[] =
    "SELECT persistent_id, kind, phase, library_item_identifier FROM download";

DownloadRecord readRecord(common::Statement& row) {
    DownloadRecord record;
    record.persistentIdentifier = row.int64(0);
    record.kind = row.text(1);
    record.phase = row.text(2);
    record.libraryItemIdentifier = row.text(3);
    return record;
}

}  // namespace

DownloadStore::DownloadStore(const std::string& path, std::int64_t firstIdentifier)
    : _database(path, {}) {
    common::Transaction transaction(_database, common::TransactionKind::Write);
    if (_database.int64("PRAGMA user_version") == Empty) {
        _database.executeScript(Schema);
        _database.execute("INSERT INTO sqlite_sequence(name, seq) VALUES ('download', ?)",
                          firstIdentifier);
    }
    transaction.commit();
}

std::vector<DownloadRecord> DownloadStore::all() {
    std::vector<DownloadRecord> records;
    auto rows = _database.query(std::string(Columns) + " ORDER BY persistent_id");
    while (rows.step())
        records.push_back(readRecord(*rows));
    for (DownloadRecord& record : records)
        record.properties = propertiesOf(record.persistentIdentifier);
    return records;
}

std::optional<DownloadRecord> DownloadStore::find(std::int64_t persistentIdentifier) {
    auto rows =
        _database.query(std::string(Columns) + " WHERE persistent_id = ?", persistentIdentifier);
    if (!rows.step())
        return std::nullopt;
    DownloadRecord record = readRecord(*rows);
    record.properties = propertiesOf(persistentIdentifier);
    return record;
}

std::int64_t DownloadStore::add(const DownloadRecord& record) {
    common::Transaction transaction(_database, common::TransactionKind::Write);
    _database.execute("INSERT INTO download(kind, phase, library_item_identifier) VALUES (?, ?, ?)",
                      record.kind, record.phase, record.libraryItemIdentifier);
    const std::int64_t persistentIdentifier = _database.lastInsertedRow();
    storeProperties(persistentIdentifier, record.properties);
    transaction.commit();
    return persistentIdentifier;
}

void DownloadStore::update(std::int64_t persistentIdentifier, const std::string& phase,
                           const platform::Dictionary& properties) {
    common::Transaction transaction(_database, common::TransactionKind::Write);
    _database.execute("UPDATE download SET phase = ? WHERE persistent_id = ?", phase,
                      persistentIdentifier);
    storeProperties(persistentIdentifier, properties);
    transaction.commit();
}

void DownloadStore::remove(std::int64_t persistentIdentifier) {
    common::Transaction transaction(_database, common::TransactionKind::Write);
    _database.execute("DELETE FROM download_property WHERE persistent_id = ?",
                      persistentIdentifier);
    _database.execute("DELETE FROM download WHERE persistent_id = ?", persistentIdentifier);
    transaction.commit();
}

void DownloadStore::storeProperties(std::int64_t persistentIdentifier,
                                    const platform::Dictionary& properties) {
    for (const auto& [name, value] : properties) {
        if (value.isNull())
            _database.execute("DELETE FROM download_property WHERE persistent_id = ? AND name = ?",
                              persistentIdentifier, name);
        else
            _database.execute(
                "INSERT OR REPLACE INTO download_property(persistent_id, name, value) "
                "VALUES (?, ?, ?)",
                persistentIdentifier, name, value);
    }
}

platform::Dictionary DownloadStore::propertiesOf(std::int64_t persistentIdentifier) {
    platform::Dictionary properties;
    auto rows = _database.query("SELECT name, value FROM download_property WHERE persistent_id = ?",
                                persistentIdentifier);
    while (rows.step())
        properties.emplace(rows->text(0), rows->value(1));
    return properties;
}

}  // namespace downloads
