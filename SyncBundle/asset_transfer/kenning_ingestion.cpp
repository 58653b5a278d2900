#include <array>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/log.h"

namespace {

constexpr std::string_view metadataKey = "kenning_metadata";
constexpr std::string_view similaritiesKey = "kenning_similarities";

constexpr std::string_view insertMetadata =
    "INSERT OR REPLACE INTO kenning_metadata (kenning_id, checksum, data) VALUES (?, ?, ?);";
constexpr std::string_view markPendingChecksum =
    "UPDATE item_extra SET pending_kenning_checksum = ? WHERE kenning_id = ?;";
constexpr std::string_view insertSimilarities =
    "INSERT OR REPLACE INTO kenning_similarities (kenning_id, data) VALUES (?, ?);";
constexpr std::string_view insertConfiguration =
    "INSERT OR REPLACE INTO kenning_config (id, data, default_num_results, min_num_results, "
    "version) VALUES (0,?,?,?,?)";

// The value of a key, null when it is missing or no byte data.
platform::Value blobForKey(const platform::Dictionary& plist, std::string_view key,
                           std::string_view unhandledFormatMessage) {
    const auto found = plist.find(key);
    if (found == plist.end() || found->second.isNull())
        return {};
    if (found->second.isData())
        return found->second;
    KVLog(Warning, "_processKenningPlist:kenningIDString:kenningChecksum:", unhandledFormatMessage,
          found->second);
    return {};
}

std::vector<std::string> keysOf(const platform::Dictionary& dictionary) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : dictionary)
        keys.push_back(key);
    return keys;
}

bool storeMetadata(KV3DatabaseConnection& connection, std::int64_t kenningID, std::int64_t checksum,
                   const platform::Value& metadata) {
    const std::array<platform::Value, 3> row{kenningID, checksum, metadata};
    if (!connection.executeUpdateWithParameters(insertMetadata, row, nullptr))
        return false;
    const std::array<platform::Value, 2> pending{checksum, kenningID};
    return connection.executeUpdateWithParameters(markPendingChecksum, pending, nullptr);
}

bool storeSimilarities(KV3DatabaseConnection& connection, std::int64_t kenningID,
                       const platform::Value& similarities) {
    const std::array<platform::Value, 2> row{kenningID, similarities};
    return connection.executeUpdateWithParameters(insertSimilarities, row, nullptr);
}

}  // namespace

void KVSyncClient::_processKenningPlist(const platform::Dictionary& plist,
                                        const std::string& kenningIDString,
                                        std::int64_t kenningChecksum) {
    constexpr std::string_view operation = "_processKenningPlist:kenningIDString:kenningChecksum:";
    bool success = true;
    const platform::Value metadata =
        blobForKey(plist, metadataKey, "Unhandled kenning metadata format: %@");
    const platform::Value similarities =
        blobForKey(plist, similaritiesKey, "Unhandled kenning similarities format: %@");
    _library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection& connection) {
        const std::int64_t kenningID = platform::Value(kenningIDString).int64Value();
        if (!metadata.isNull())
            success = storeMetadata(connection, kenningID, kenningChecksum, metadata);
        if (success && !similarities.isNull())
            success = storeSimilarities(connection, kenningID, similarities);
        return success;
    });
    if (success)
        KVLog(Debug, operation, "Updated kenning metadata for %@", kenningIDString);
    else
        KVLog(Error, operation, "Could not update kenning metadata: %@", keysOf(plist));
}

void KVSyncClient::_processKenningConfigPlist(const platform::Value& configPlist) {
    constexpr std::string_view operation = "_processKenningConfigPlist:";
    if (!configPlist.isDictionary()) {
        KVLog(Error, operation, "No valid kenning_config found in: %@", configPlist);
        return;
    }
    // A missing key reads as null, which is stored as NULL.
    const std::array<platform::Value, 4> row{
        configPlist["data"], configPlist["default_num_results"], configPlist["min_num_results"],
        configPlist["version"]};
    bool success = false;
    _library->databaseConnectionAllowingWrites(true, [&](KV3DatabaseConnection& connection) {
        success = connection.executeUpdateWithParameters(insertConfiguration, row, nullptr);
    });
    if (success)
        KVLog(Debug, operation, "Updated Kenning configuration: %@", configPlist);
    else
        KVLog(Error, operation, "Failed to update Kenning configuration: %@", configPlist);
}
