#include "tests/support/recording_library.h"

#include <algorithm>
#include <iterator>

namespace support {
namespace {

// Records which of its columns are read, and as what.
class Row : public KV3QueryRow {
public:
    Row(Recorder& recorder, const QueryRow& columns) : _recorder(recorder), _columns(columns) {}

    std::int64_t int64ForColumnIndex(int column) const override {
        _recorder.record("KV3QueryRow.int64ForColumnIndex", {column});
        return at(column).int64Value();
    }
    std::int32_t intForColumnIndex(int column) const override {
        _recorder.record("KV3QueryRow.intForColumnIndex", {column});
        return static_cast<std::int32_t>(at(column).int64Value());
    }
    std::optional<std::string_view> stringForColumnIndex(int column) const override {
        _recorder.record("KV3QueryRow.stringForColumnIndex", {column});
        const std::string* text = at(column).string();
        return text ? std::optional<std::string_view>(*text) : std::nullopt;
    }

    bool isNullForColumnIndex(int column) const override {
        _recorder.record("KV3QueryRow.isNullForColumnIndex", {column});
        return at(column).isNull();
    }

private:
    const platform::Value& at(int column) const {
        return _columns.at(static_cast<std::size_t>(column));
    }

    Recorder& _recorder;
    const QueryRow& _columns;
};

class Result : public KV3QueryResult {
public:
    Result(Recorder& recorder, std::int64_t value, std::vector<QueryRow> rows)
        : _recorder(recorder), _value(value), _rows(std::move(rows)) {}

    void enumerateRowsWithBlock(const std::function<void(const KV3QueryRow&)>& block) override {
        for (const QueryRow& columns : _rows)
            block(Row(_recorder, columns));
    }
    std::int64_t int64ValueForFirstRowAndColumn() override { return _value; }

private:
    Recorder& _recorder;
    const std::int64_t _value;
    const std::vector<QueryRow> _rows;
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
        Recorder& recorder = _library._recorder;
        if (recorder.fails("KV3DatabaseConnection.executeQuery", {sql}))
            return std::make_unique<Result>(recorder, 0, std::vector<QueryRow>());
        const auto value = _library.queryResults.find(sql);
        const auto rows = _library.queryRows.find(sql);
        return std::make_unique<Result>(
            recorder, value == _library.queryResults.end() ? 0 : value->second,
            rows == _library.queryRows.end() ? std::vector<QueryRow>() : rows->second);
    }

    bool executeUpdate(std::string_view sql) override { return execute({sql}, nullptr); }

    bool executeUpdateWithParameters(std::string_view sql,
                                     std::span<const platform::Value> parameters,
                                     platform::OptionalError* error) override {
        return execute({sql, platform::Array(parameters.begin(), parameters.end())}, error);
    }

private:
    bool execute(Recorder::Arguments arguments, platform::OptionalError* error) {
        const Call statement{"KV3DatabaseConnection.executeUpdate", std::move(arguments)};
        if (_library._recorder.fails(statement.name, statement.arguments)) {
            if (error)
                *error = platform::Error("SQLite", 1);
            return false;
        }
        _library._statements.back().push_back(statement);
        return true;
    }

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

bool RecordingLibrary::deleteDatabaseProperty(std::string_view key) {
    if (_recorder.fails("KV3Korvane.deleteDatabaseProperty", {key}))
        return false;
    if (const auto found = databaseProperties.find(key); found != databaseProperties.end())
        databaseProperties.erase(found);
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

platform::Value RecordingLibrary::libraryUID() {
    _recorder.record("KV3Korvane.libraryUID");
    return uid;
}

std::uint64_t RecordingLibrary::countOfChangedPersistentIdsAfterRevision(
    std::int64_t afterRevision, std::int64_t revisionTrackingCode,
    std::int64_t maximumRevisionType) {
    _recorder.record("KV3Korvane.countOfChangedPersistentIds",
                     {afterRevision, revisionTrackingCode, maximumRevisionType});
    const auto& all = changes[revisionTrackingCode];
    return static_cast<std::uint64_t>(std::count_if(
        all.begin(), all.end(),
        [afterRevision](const RecordedChange& change) { return change.revision > afterRevision; }));
}

void RecordingLibrary::enumeratePersistentIDsAfterRevision(std::int64_t afterRevision,
                                                           std::int64_t revisionTrackingCode,
                                                           std::int64_t maximumRevisionType,
                                                           const RevisionBlock& block) {
    _recorder.record("KV3Korvane.enumeratePersistentIDs",
                     {afterRevision, revisionTrackingCode, maximumRevisionType});
    enumerateChanges(afterRevision, revisionTrackingCode, block);
}

void RecordingLibrary::enumeratePersistentIDsAfterRevisionForMediaTypes(
    std::int64_t afterRevision, std::int64_t revisionTrackingCode, std::int64_t maximumRevisionType,
    const platform::Value& mediaTypes, const RevisionBlock& block) {
    _recorder.record("KV3Korvane.enumeratePersistentIDsForMediaTypes",
                     {afterRevision, revisionTrackingCode, maximumRevisionType, mediaTypes});
    enumerateChanges(afterRevision, revisionTrackingCode, block);
}

std::vector<RecordedChange> RecordingLibrary::changesAfter(
    std::int64_t afterRevision, std::int64_t revisionTrackingCode) const {
    std::vector<RecordedChange> result;
    const auto tracked = changes.find(revisionTrackingCode);
    if (tracked != changes.end())
        std::copy_if(
            tracked->second.begin(), tracked->second.end(), std::back_inserter(result),
            [afterRevision](const RecordedChange& c) { return c.revision > afterRevision; });
    return result;
}

void RecordingLibrary::enumerateChanges(std::int64_t afterRevision,
                                        std::int64_t revisionTrackingCode,
                                        const RevisionBlock& block) {
    constexpr std::int64_t reserved = -1;
    for (const RecordedChange& change : changesAfter(afterRevision, revisionTrackingCode)) {
        bool stop = false;
        block(change.persistentID, change.revision, change.changeKind, reserved, stop);
        if (stop) {
            _recorder.record("KV3Korvane.stoppedEnumeration", {change.persistentID});
            return;
        }
    }
}

bool RecordingLibrary::removeSource(std::int64_t source) {
    return !_recorder.fails("KV3Korvane.removeSource", {source});
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

void RecordingLibrary::deleteOrphanedArtworkWithSearchOptions(std::int64_t searchOptions) {
    _recorder.record("KV3Korvane.deleteOrphanedArtwork", {searchOptions});
}

std::optional<KV3Artwork> RecordingLibrary::fetchItemArtworkForPersistentID(
    std::int64_t persistentID) {
    const bool isFault = _recorder.fails("KV3Korvane.fetchItemArtwork", {persistentID});
    const auto found = itemArtworks.find(persistentID);
    if (isFault || found == itemArtworks.end())
        return std::nullopt;
    return KV3Artwork{found->second};
}

}  // namespace support
