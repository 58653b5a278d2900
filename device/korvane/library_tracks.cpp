// Library's operations on tracks as a whole.
#include "common/sqlite/database.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/import/names.h"
#include "device/korvane/library.h"
#include "device/korvane/schema.h"
#include "device/korvane/track_deletion.h"
#include "device/korvane/track_location.h"

namespace korvane {

void Library::updateTrackIntegrity() {
    change("updateTrackIntegrity", [&](common::Database& database) {
        for (const std::int64_t item : tracksWithoutTheirFile(database, _configuration.files)) {
            database.execute("UPDATE item SET base_location_id = 0 WHERE item_id = ?", item);
            database.execute("UPDATE item_extra SET location_file_name = '' WHERE item_id = ?",
                             item);
        }
        return true;
    });
}

bool Library::removeSourceFromTracksWithPersistentIDs(
    std::int64_t source, const std::vector<std::int64_t>& persistentIDs) {
    const std::int64_t mask = source == KV3SourceSync
                                  ? sourceBit(KV3SourceSync) | sourceBit(KV3SourceHostData)
                                  : sourceBit(source);
    return change("removeSource:fromTracksWithPersistentIDs:", [&](common::Database& database) {
        removeTrackSources(database, mask, persistentIDs);
        return true;
    });
}

bool Library::removeSource(std::int64_t source) {
    return change("removeSource:", [&](common::Database& database) {
        removeSourcesFromAll(database, sourceBit(source));
        removeUnusedNames(database);
        // The next exchange with each peer begins from nothing.
        if (source == KV3SourceSync)
            database.execute("UPDATE peer SET acknowledged_revision = 0, received_revision = 0");
        return true;
    });
}

bool Library::unlinkRedownloadableAssets(const std::vector<std::int64_t>& persistentIDs) {
    return change(
        "unlinkRedownloadableAssetsFromLibrary:persistentIDs:", [&](common::Database& database) {
            for (const std::int64_t pid : persistentIDs) {
                const bool wasLinked =
                    database.execute(
                        "UPDATE item SET base_location_id = 0 WHERE item_pid = ? AND "
                        "base_location_id = ?",
                        pid, CloudAssetsLocation) != 0;
                if (wasLinked)
                    database.execute(
                        "UPDATE item_extra SET location_file_name = '' WHERE item_pid = ?", pid);
            }
            return true;
        });
}

void Library::setSyncGenerationID(std::int64_t generationID) {
    setValueForDatabaseProperty(generationID, SyncGenerationProperty);
}

void Library::removeTombstonesForDeletedItems() {
    change("removeTombstonesForDeletedItems", [](common::Database& database) {
        database.execute("DELETE FROM tombstone");
        return true;
    });
}

}  // namespace korvane
