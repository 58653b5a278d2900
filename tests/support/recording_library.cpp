#include "tests/support/recording_library.h"

namespace support {
namespace {

class Result : public KV3QueryResult {
public:
    explicit Result(std::int64_t value) : _value(value) {}
    std::int64_t int64ValueForFirstRowAndColumn() override { return _value; }

private:
    const std::int64_t _value;
};

}  // namespace

std::optional<std::string> RecordingAccountCache::vantorIDForDSID(std::int64_t accountID) {
    if (_recorder.fails("KV3AccountCacheDatabase.vantorIDForDSID", {accountID}))
        return std::nullopt;
    const auto found = names.find(accountID);
    return found == names.end() ? std::nullopt : std::optional(found->second);
}

class RecordingLibrary::Connection : public KV3DatabaseConnection {
public:
    explicit Connection(RecordingLibrary& library) : _library(library) {}

    std::unique_ptr<KV3QueryResult> executeQuery(std::string_view sql) override {
        const bool isFault = _library._recorder.fails("KV3DatabaseConnection.executeQuery", {sql});
        const auto found = _library.queryResults.find(sql);
        const bool hasRow = !isFault && found != _library.queryResults.end();
        return std::make_unique<Result>(hasRow ? found->second : 0);
    }

    bool executeUpdateWithParameters(std::string_view sql,
                                     std::span<const platform::Value> parameters,
                                     platform::OptionalError* error) override {
        const Call statement{"KV3DatabaseConnection.executeUpdate",
                             {sql, platform::Array(parameters.begin(), parameters.end())}};
        if (_library._recorder.fails(statement.name, statement.arguments)) {
            if (error)
                *error = platform::Error("SQLite", 1);
            return false;
        }
        _library._statements.back().push_back(statement);
        return true;
    }

private:
    RecordingLibrary& _library;
};

platform::Value RecordingLibrary::valueForDatabaseProperty(std::string_view key) {
    if (_recorder.fails("KV3Korvane.valueForDatabaseProperty", {key}))
        return {};
    const auto found = databaseProperties.find(key);
    return found == databaseProperties.end() ? platform::Value() : found->second;
}

bool RecordingLibrary::setValueForDatabaseProperty(const platform::Value& value,
                                                   std::string_view key) {
    if (_recorder.fails("KV3Korvane.setValueForDatabaseProperty", {value, key}))
        return false;
    databaseProperties[std::string(key)] = value;
    return true;
}

bool RecordingLibrary::performTransaction(std::string_view name, const TransactionBlock& block) {
    if (_recorder.fails(name))
        return false;
    _statements.emplace_back();
    Connection connection(*this);
    bool commits = false;
    try {
        commits = block(connection);
    } catch (...) {
        _recorder.record("KV3Korvane.rollback");
        _statements.pop_back();
        throw;
    }
    const std::vector<Call> statements = std::move(_statements.back());
    _statements.pop_back();
    _recorder.record(commits ? "KV3Korvane.commit" : "KV3Korvane.rollback");
    if (commits)
        _statements.back().insert(_statements.back().end(), statements.begin(), statements.end());
    return commits;
}

bool RecordingLibrary::performReadOnlyDatabaseTransactionWithBlock(const TransactionBlock& block) {
    return performTransaction("KV3Korvane.performReadOnlyDatabaseTransaction", block);
}

bool RecordingLibrary::performDatabaseTransactionWithBlock(const TransactionBlock& block) {
    return performTransaction("KV3Korvane.performDatabaseTransaction", block);
}

void RecordingLibrary::databaseConnectionAllowingWrites(
    bool allowsWrites, const std::function<void(KV3DatabaseConnection&)>& block) {
    _recorder.record("KV3Korvane.databaseConnectionAllowingWrites", {allowsWrites});
    Connection connection(*this);
    block(connection);
}

void RecordingLibrary::reconnectToDatabase() {
    _recorder.record("KV3Korvane.reconnectToDatabase");
}

std::int64_t RecordingLibrary::currentRevision() {
    _recorder.record("KV3Korvane.currentRevision");
    return revision;
}

void RecordingLibrary::saveTrackMetadataSinceRevision(std::int64_t sinceRevision,
                                                      std::uint32_t torvelID) {
    _recorder.record("KV3Korvane.saveTrackMetadata", {sinceRevision, torvelID});
}

void RecordingLibrary::savePlaylistsSinceRevision(std::int64_t sinceRevision,
                                                  std::uint32_t torvelID) {
    _recorder.record("KV3Korvane.savePlaylists", {sinceRevision, torvelID});
}

void RecordingLibrary::notifyContentsDidChange() {
    _recorder.record("KV3Korvane.notifyContentsDidChange");
}

void RecordingLibrary::notifyDisplayValuesPropertyDidChange() {
    _recorder.record("KV3Korvane.notifyDisplayValuesPropertyDidChange");
}

void RecordingLibrary::updateTrackIntegrity() {
    _recorder.record("KV3Korvane.updateTrackIntegrity");
}

bool RecordingLibrary::removeSourceFromTracksWithPersistentIDs(
    std::int64_t source, const std::vector<std::int64_t>& persistentIDs) {
    return !_recorder.fails("KV3Korvane.removeSource",
                            {source, platform::Array(persistentIDs.begin(), persistentIDs.end())});
}

void RecordingLibrary::setSyncGenerationID(std::int64_t generationID) {
    _recorder.record("KV3Korvane.setSyncGenerationID", {generationID});
}

void RecordingLibrary::removeTombstonesForDeletedItems() {
    _recorder.record("KV3Korvane.removeTombstonesForDeletedItems");
}

bool RecordingLibrary::importExistingOriginalArtworkWithArtworkToken(const std::string& token,
                                                                     std::int64_t artworkType,
                                                                     std::int64_t sourceType,
                                                                     std::uint32_t mediaType) {
    return !_recorder.fails("KV3Korvane.importExistingOriginalArtwork",
                            {token, artworkType, sourceType, mediaType}) &&
           artworkCanBeImported;
}

bool RecordingLibrary::importOriginalArtworkFromFileURL(const std::string& path,
                                                        const std::string& token,
                                                        std::int64_t artworkType,
                                                        std::int64_t sourceType,
                                                        std::uint32_t mediaType) {
    return !_recorder.fails("KV3Korvane.importOriginalArtwork",
                            {path, token, artworkType, sourceType, mediaType}) &&
           artworkCanBeImported;
}

}  // namespace support
