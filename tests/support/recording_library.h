// The media library: tracks as maps of properties, predicates evaluated for real, SQL recorded and
// answered as a test says. A fault gives what the operation gives on failure.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/media_library.h"
#include "tests/support/memory_file_system.h"
#include "tests/support/recorder.h"

namespace support {

using TrackProperties = std::map<KV3TrackProperty, platform::Value>;
// The columns of a row, in their order.
using QueryRow = std::vector<platform::Value>;

class RecordingAccountCache : public KV3AccountCacheDatabase {
public:
    explicit RecordingAccountCache(Recorder& recorder) : _recorder(recorder) {}
    std::optional<std::string> vantorIDForDSID(std::int64_t accountID) override;

    std::map<std::int64_t, std::string> names;

private:
    Recorder& _recorder;
};

struct RecordedChange {
    std::int64_t persistentID = 0;
    std::int64_t revision = 0;
    std::int64_t changeKind = 0;
};

class RecordingLibrary : public KV3Korvane, public std::enable_shared_from_this<RecordingLibrary> {
public:
    // A base location that is neither 0 nor the cloud's.
    static constexpr std::int64_t musicLocation = 200;

    RecordingLibrary(Recorder& recorder, MemoryFileSystem& files)
        : _recorder(recorder), _files(files), _accountCache(recorder) {}

    // What a test sets up and looks at.
    std::map<std::int64_t, TrackProperties> tracks;  // by persistent id
    std::map<std::int64_t, bool> needsVideoSnapshot;
    std::map<std::string, platform::Value, std::less<>> databaseProperties;
    std::map<std::string, std::int64_t, std::less<>> queryResults;        // by SQL text
    std::map<std::string, std::vector<QueryRow>, std::less<>> queryRows;  // by SQL text
    std::map<std::int64_t, std::string> itemArtworks;  // the pictures' files, by persistent id
    std::int64_t revision = 0;
    platform::Value uid = "library";
    // By revision-tracking code, in the order in which they are enumerated.
    std::map<std::int64_t, std::vector<RecordedChange>> changes;
    bool artworkCanBeImported = true;
    // The statements of the transactions that were committed, and those outside any.
    const std::vector<Call>& committedStatements() const { return _statements.front(); }
    RecordingAccountCache& accounts() { return _accountCache; }
    MemoryFileSystem& files() { return _files; }
    Recorder& recorder() { return _recorder; }

    platform::Value valueForDatabaseProperty(std::string_view key) override;
    bool setValueForDatabaseProperty(const platform::Value& value, std::string_view key) override;
    bool deleteDatabaseProperty(std::string_view key) override;
    bool performReadOnlyDatabaseTransactionWithBlock(const TransactionBlock& block) override;
    bool performDatabaseTransactionWithBlock(const TransactionBlock& block) override;
    void databaseConnectionAllowingWrites(
        bool allowsWrites, const std::function<void(KV3DatabaseConnection&)>& block) override;
    void reconnectToDatabase() override;
    std::int64_t currentRevision() override;
    platform::Value libraryUID() override;
    std::uint64_t countOfChangedPersistentIdsAfterRevision(
        std::int64_t afterRevision, std::int64_t revisionTrackingCode,
        std::int64_t maximumRevisionType) override;
    void enumeratePersistentIDsAfterRevision(std::int64_t afterRevision,
                                             std::int64_t revisionTrackingCode,
                                             std::int64_t maximumRevisionType,
                                             const RevisionBlock& block) override;
    // Every change, whatever the media types.
    void enumeratePersistentIDsAfterRevisionForMediaTypes(std::int64_t afterRevision,
                                                          std::int64_t revisionTrackingCode,
                                                          std::int64_t maximumRevisionType,
                                                          const platform::Value& mediaTypes,
                                                          const RevisionBlock& block) override;
    bool removeSource(std::int64_t source) override;
    void saveTrackMetadataSinceRevision(std::int64_t sinceRevision,
                                        std::uint32_t torvelID) override;
    void savePlaylistsSinceRevision(std::int64_t sinceRevision, std::uint32_t torvelID) override;
    void notifyContentsDidChange() override;
    void notifyDisplayValuesPropertyDidChange() override;
    void updateTrackIntegrity() override;
    bool removeSourceFromTracksWithPersistentIDs(
        std::int64_t source, const std::vector<std::int64_t>& persistentIDs) override;
    void setSyncGenerationID(std::int64_t generationID) override;
    void removeTombstonesForDeletedItems() override;
    bool importExistingOriginalArtworkWithArtworkToken(const std::string& token,
                                                       std::int64_t artworkType,
                                                       std::int64_t sourceType,
                                                       std::uint32_t mediaType) override;
    bool importOriginalArtworkFromFileURL(const std::string& path, const std::string& token,
                                          std::int64_t artworkType, std::int64_t sourceType,
                                          std::uint32_t mediaType) override;
    void deleteOrphanedArtworkWithSearchOptions(std::int64_t searchOptions) override;
    KV3AccountCacheDatabase& accountCacheDatabase() override { return _accountCache; }
    std::optional<KV3Artwork> fetchItemArtworkForPersistentID(std::int64_t persistentID) override;

private:
    class Connection;
    std::vector<RecordedChange> changesAfter(std::int64_t afterRevision,
                                             std::int64_t revisionTrackingCode) const;
    void enumerateChanges(std::int64_t afterRevision, std::int64_t revisionTrackingCode,
                          const RevisionBlock& block);
    bool performTransaction(std::string_view name, const TransactionBlock& block);

    Recorder& _recorder;
    MemoryFileSystem& _files;
    RecordingAccountCache _accountCache;
    // Those committed, then those of each running transaction, the innermost last.
    std::vector<std::vector<Call>> _statements{1};
};

// The handle on a track, and the first track that meets a predicate (the lowest id).
std::shared_ptr<KV3Track> makeTrack(std::int64_t persistentID,
                                    const std::shared_ptr<RecordingLibrary>& library);
std::shared_ptr<KV3Track> findTrack(const KV3Predicate& predicate,
                                    const std::shared_ptr<RecordingLibrary>& library);
std::shared_ptr<KV3TrackQuery> makeTrackQuery(const KV3Predicate& predicate,
                                              const std::vector<KV3OrderingTerm>& orderingTerms,
                                              const std::shared_ptr<RecordingLibrary>& library);

}  // namespace support
