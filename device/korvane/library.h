// Purpose: the shared media library.
// Calling thread: any, see platform/media_library.h.
// Ownership: shared; the daemon's framework holds it for as long as the process lives.
// Failure: as KV3Korvane says; database errors are logged and answered with false, null or 0.
//
// Defined in: library.cpp (opening, properties, transactions), library_tracks.cpp (tracks as a
// whole: integrity, sources, tombstones), library_playlists.cpp (smart playlists),
// library_changes.cpp (what changed after a revision), artwork_import.cpp (pictures).
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "device/korvane/artwork_store.h"
#include "device/korvane/configuration.h"
#include "device/korvane/connections.h"
#include "device/korvane/export/export_target.h"
#include "device/korvane/library_log.h"
#include "platform/media_library.h"

namespace korvane {

class AccountCache;
class Saver;

class Library final : public KV3Korvane, public std::enable_shared_from_this<Library> {
public:
    // Opens the database, or makes an empty one. Null, with an error of LibraryErrorDomain, when
    // the database is damaged or cannot be opened; nothing is changed then.
    static std::shared_ptr<Library> open(const Configuration& configuration,
                                         platform::OptionalError* error);
    ~Library() override;

    // --- KV3Korvane
    platform::Value valueForDatabaseProperty(std::string_view key) override;
    bool setValueForDatabaseProperty(const platform::Value& value, std::string_view key) override;
    bool deleteDatabaseProperty(std::string_view key) override;
    bool performReadOnlyDatabaseTransactionWithBlock(const TransactionBlock& block) override;
    bool performDatabaseTransactionWithBlock(const TransactionBlock& block) override;
    void databaseConnectionAllowingWrites(
        bool allowsWrites, const std::function<void(KV3DatabaseConnection&)>& block) override;
    void reconnectToDatabase() override;
    std::int64_t currentRevision() override;
    platform::Value libraryUID() override { return _uid; }
    std::uint64_t countOfChangedPersistentIdsAfterRevision(
        std::int64_t revision, std::int64_t revisionTrackingCode,
        std::int64_t maximumRevisionType) override;
    void enumeratePersistentIDsAfterRevision(std::int64_t revision,
                                             std::int64_t revisionTrackingCode,
                                             std::int64_t maximumRevisionType,
                                             const RevisionBlock& block) override;
    void enumeratePersistentIDsAfterRevisionForMediaTypes(std::int64_t revision,
                                                          std::int64_t revisionTrackingCode,
                                                          std::int64_t maximumRevisionType,
                                                          const platform::Value& mediaTypes,
                                                          const RevisionBlock& block) override;
    // Taking off the sync source also forgets what was exchanged with peers.
    bool removeSource(std::int64_t source) override;
    void saveTrackMetadataSinceRevision(std::int64_t revision, std::uint32_t torvelID) override;
    void savePlaylistsSinceRevision(std::int64_t revision, std::uint32_t torvelID) override;
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
    KV3AccountCacheDatabase& accountCacheDatabase() override;
    std::optional<KV3Artwork> fetchItemArtworkForPersistentID(std::int64_t persistentID) override;

    // --- beside the bundles' operations
    // What libraryUID answers. Stays while the database stays.
    const std::string& uid() const { return _uid; }
    // Records the hosts' covers that lie on disk without a row: a process was killed between the
    // two, or the database is a new one over the files of an old one.
    void recordFoundOriginals();
    // Removes the files of a track's chapter pictures by the chapters' starts; their rows stay for
    // those that come in their place.
    void discardChapterPictures(std::int64_t syncID, std::span<const std::uint64_t> milliseconds);
    // Takes the cloud location off the tracks that have it.
    bool unlinkRedownloadableAssets(const std::vector<std::int64_t>& persistentIDs);
    std::vector<std::int64_t> autoCreatedBuiltInSmartPlaylistsPIDs();
    // Fills the smart playlists; makes the built-in ones first if asked to and they are due.
    bool populateDynamicContainers(bool createsBuiltIns);
    bool deleteAutoCreatedBuiltInSmartPlaylists(const std::vector<std::int64_t>& persistentIDs);

    // --- for the library's own pieces
    Connections& connections() { return *_connections; }
    const LibraryLog& log() const { return _log; }
    const Configuration& configuration() const { return _configuration; }
    ArtworkStore& artwork() { return _artwork; }
    ExportTarget& exportTarget() { return _exportTarget; }
    AccountCache& accounts() { return *_accounts; }
    // Whoever writes saves; borrowed, set before the first session.
    void setSaver(Saver* saver) { _saver = saver; }
    // A write transaction (or a part of the one that this thread runs) whose database errors are
    // logged under the operation's name and answered with false.
    bool change(std::string_view operation, const Connections::Block& block);
    // As change, for reading.
    bool read(std::string_view operation, const Connections::Block& block);
    // As read, on a connection of its own: what the block does meanwhile, writing included, is no
    // part of the transaction, and sees and changes the database as it is. It does not reconnect.
    bool readApart(std::string_view operation, const std::function<void(common::Database&)>& block);
    // Milliseconds since 1970.
    std::int64_t nowMilliseconds() const;

private:
    Library(const Configuration& configuration, LibraryLog log, std::string uid);

    bool guarded(std::string_view operation, const std::function<bool()>& work) const;
    void writeIdentity(bool closedInOrder, std::int64_t revision);
    void removePicture(std::string_view operation, const std::string& relativePath);

    const Configuration _configuration;
    const LibraryLog _log;
    const std::string _uid;
    ArtworkStore _artwork;
    ExportTarget _exportTarget;
    std::unique_ptr<Connections> _connections;
    std::unique_ptr<AccountCache> _accounts;
    Saver* _saver = nullptr;
    // What was answered last, for when the database cannot be asked: revisions never go back.
    std::atomic<std::int64_t> _lastRevision = 0;
};

}  // namespace korvane
