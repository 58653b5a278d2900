// The downloads as kept on the device, in a database of their own.
//
// One thread at a time. Changes are on the disk when an operation returns. SqliteError is thrown by
// everything that can fail.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/sqlite/database.h"
#include "device/downloads/download.h"

namespace downloads {

class DownloadStore {
public:
    // `path` is a path of this machine; its directory exists. A new database begins to number above
    // `firstIdentifier`, and above every number that it ever gave.
    DownloadStore(const std::string& path, std::int64_t firstIdentifier);

    // Oldest first.
    std::vector<DownloadRecord> all();
    std::optional<DownloadRecord> find(std::int64_t persistentIdentifier);
    // Gives the record a number that was never used before, and returns it.
    std::int64_t add(const DownloadRecord& record);
    // Phase and properties of the record with that number; properties that are not named stay, null
    // removes one.
    void update(std::int64_t persistentIdentifier, const std::string& phase,
                const platform::Dictionary& properties);
    void remove(std::int64_t persistentIdentifier);

private:
    void storeProperties(std::int64_t persistentIdentifier, const platform::Dictionary& properties);
    platform::Dictionary propertiesOf(std::int64_t persistentIdentifier);

    common::Database _database;
};

}  // namespace downloads
