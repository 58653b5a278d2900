// Purpose: the media library (Korvane): tracks, playlists, database, artwork and the import
//   service.
// Calling thread: any. A transaction belongs to the thread that began it; one begun inside another
//   on the same thread is part of it.
// Callback thread: enumeration and transaction blocks run on the calling thread, before the call
//   returns, and may block; import completions run on a thread of the import service's own.
// Ownership: the library, tracks, queries and connections' results are shared or unique references;
//   a connection and a row are borrowed for the block that they are handed to.
// Failure: operations return a boolean or say what absent means; an import answers success without
//   an error, or failure with one. A block that throws rolls its transaction back and the exception
//   goes on.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/errors.h"
#include "platform/media_library_properties.h"
#include "platform/operating_system.h"
#include "platform/values.h"

class KV3Korvane;

// The row that an enumeration stands on; columns count from 0.
class KV3QueryRow {
public:
    virtual ~KV3QueryRow() = default;
    // 0 for null.
    virtual std::int64_t int64ForColumnIndex(int column) const = 0;
    virtual std::int32_t intForColumnIndex(int column) const = 0;
    // Absent for null.
    virtual std::optional<std::string_view> stringForColumnIndex(int column) const = 0;
    virtual bool isNullForColumnIndex(int column) const = 0;
};

// Rows of a statement, read one after another.
class KV3QueryResult {
public:
    virtual ~KV3QueryResult() = default;
    // Each row once, before the call returns; a row is borrowed for its call.
    virtual void enumerateRowsWithBlock(const std::function<void(const KV3QueryRow&)>& block) = 0;
    // 0 when there is no row or the value is null.
    virtual std::int64_t int64ValueForFirstRowAndColumn() = 0;
};

class KV3DatabaseConnection {
public:
    virtual ~KV3DatabaseConnection() = default;
    // Never null; a statement that fails has no rows.
    virtual std::unique_ptr<KV3QueryResult> executeQuery(std::string_view sql) = 0;
    // executeUpdate:  Without parameters.
    virtual bool executeUpdate(std::string_view sql) = 0;
    // executeUpdate:withParameters:error:  Parameters are bound in order; a null Value is SQL NULL.
    virtual bool executeUpdateWithParameters(std::string_view sql,
                                             std::span<const platform::Value> parameters,
                                             platform::OptionalError* error) = 0;
};

// Names of the accounts that the library's items were bought with.
class KV3AccountCacheDatabase {
public:
    virtual ~KV3AccountCacheDatabase() = default;
    // Absent for an account that is not known.
    virtual std::optional<std::string> vantorIDForDSID(std::int64_t accountID) = 0;
};

// What is tracked by revision, and the kinds of change that are asked for.
inline constexpr std::int64_t KV3RevisionTrackingCodeTrack = 0;
inline constexpr std::int64_t KV3RevisionTrackingCodeContainer = 1;
inline constexpr std::int64_t KV3RevisionTypeAll = 3;

// Search options of orphaned artwork: the pictures that the library has recorded.
inline constexpr std::int64_t KV3ArtworkSearchRecorded = 2;

// The picture of an item.
struct KV3Artwork {
    std::string originalFileURL;  // absolute device path of the picture as it was received
};

class KV3Korvane {
public:
    // True commits, false rolls back.
    using TransactionBlock = std::function<bool(KV3DatabaseConnection&)>;
    // The latest change of an entry. Kind 0: added or changed, anything else: deleted. The fourth
    // value is the library's own. Setting `stop` ends the enumeration.
    using RevisionBlock =
        std::function<void(std::int64_t persistentID, std::int64_t revision,
                           std::int64_t changeKind, std::int64_t reserved, bool& stop)>;

    static std::shared_ptr<KV3Korvane> sharedLibrary();
    // An absolute device path.
    static std::string sharedLibraryDatabasePath();

    virtual ~KV3Korvane() = default;

    // Null when there is none.
    virtual platform::Value valueForDatabaseProperty(std::string_view key) = 0;
    // setValue:forDatabaseProperty:
    virtual bool setValueForDatabaseProperty(const platform::Value& value,
                                             std::string_view key) = 0;
    // deleteDatabaseProperty:  True also when there was none.
    virtual bool deleteDatabaseProperty(std::string_view key) = 0;

    // Whether the block returned true and, for the second, the changes are committed.
    virtual bool performReadOnlyDatabaseTransactionWithBlock(const TransactionBlock& block) = 0;
    virtual bool performDatabaseTransactionWithBlock(const TransactionBlock& block) = 0;
    // databaseConnectionAllowingWrites:withBlock:  No transaction of its own.
    virtual void databaseConnectionAllowingWrites(
        bool allowsWrites, const std::function<void(KV3DatabaseConnection&)>& block) = 0;
    // Drops and re-opens the connections, once running transactions have ended.
    virtual void reconnectToDatabase() = 0;

    // Grows with every change that travels; never goes back.
    virtual std::int64_t currentRevision() = 0;
    // Names the library whose revisions are meant; another one after a restore from a copy.
    virtual platform::Value libraryUID() = 0;
    // Entries whose latest change is after the revision; deletions that travel included.
    virtual std::uint64_t countOfChangedPersistentIdsAfterRevision(
        std::int64_t revision, std::int64_t revisionTrackingCode,
        std::int64_t maximumRevisionType) = 0;
    // The same entries, in ascending order of revision, each once. The set is fixed before the
    // first call, so the block may use and change the library.
    virtual void enumeratePersistentIDsAfterRevision(std::int64_t revision,
                                                     std::int64_t revisionTrackingCode,
                                                     std::int64_t maximumRevisionType,
                                                     const RevisionBlock& block) = 0;
    // ...forMediaTypes:usingBlock:  Only tracks whose media type has a bit in common with the
    // number, or with one of the array's numbers; null: all of them.
    virtual void enumeratePersistentIDsAfterRevisionForMediaTypes(std::int64_t revision,
                                                                  std::int64_t revisionTrackingCode,
                                                                  std::int64_t maximumRevisionType,
                                                                  const platform::Value& mediaTypes,
                                                                  const RevisionBlock& block) = 0;
    // Takes the source off the whole library: what only it brought in leaves, without being told
    // to others. Source 2 is change sync alone here.
    virtual bool removeSource(std::int64_t source) = 0;
    // Writes what changed after the revision (0: everything) for the host of this session. Writes
    // no database row: both run inside a read-only transaction.
    virtual void saveTrackMetadataSinceRevision(std::int64_t revision, std::uint32_t torvelID) = 0;
    virtual void savePlaylistsSinceRevision(std::int64_t revision, std::uint32_t torvelID) = 0;

    // Tell observers in this process; several changes may become one notification.
    virtual void notifyContentsDidChange() = 0;
    virtual void notifyDisplayValuesPropertyDidChange() = 0;

    // Looks for every track's file and clears the location of those that have none.
    virtual void updateTrackIntegrity() = 0;
    // removeSource:fromTracksWithPersistentIDs:  A track without a source and without another claim
    // to stay leaves the library. Source 2 stands for every sync source here.
    virtual bool removeSourceFromTracksWithPersistentIDs(
        std::int64_t source, const std::vector<std::int64_t>& persistentIDs) = 0;
    virtual void setSyncGenerationID(std::int64_t generationID) = 0;
    virtual void removeTombstonesForDeletedItems() = 0;

    // The original artwork of the token lies on disk already: makes the database agree with it.
    virtual bool importExistingOriginalArtworkWithArtworkToken(const std::string& token,
                                                               std::int64_t artworkType,
                                                               std::int64_t sourceType,
                                                               std::uint32_t mediaType) = 0;
    // importOriginalArtworkFromFileURL:withArtworkToken:...  Moves the file into the artwork store;
    // false, with the file left, when it is no picture that the library can show.
    virtual bool importOriginalArtworkFromFileURL(const std::string& path, const std::string& token,
                                                  std::int64_t artworkType, std::int64_t sourceType,
                                                  std::uint32_t mediaType) = 0;

    // deleteOrphanedArtworkWithSearchOptions:  Removes pictures that nothing in the library asks
    // for any more. The option says which are looked at: KV3ArtworkSearchRecorded; with any other
    // value nothing is done. In a transaction the files go once it is committed.
    virtual void deleteOrphanedArtworkWithSearchOptions(std::int64_t searchOptions) = 0;

    virtual KV3AccountCacheDatabase& accountCacheDatabase() = 0;
    // The item's best picture, or else none; its file may be missing.
    virtual std::optional<KV3Artwork> fetchItemArtworkForPersistentID(
        std::int64_t persistentID) = 0;
};

// The values of one track, in the order of the properties asked for; valid inside the callback.
using KV3TrackRow = std::span<const platform::ValueView>;

class KV3TrackQuery {
public:
    virtual ~KV3TrackQuery() = default;
    // enumeratePersistentIDsAndProperties:usingBlock:  In the query's order; the set of tracks is
    // fixed before the first call, so the block may change the library.
    virtual void enumeratePersistentIDsAndProperties(
        std::span<const KV3TrackProperty> properties,
        const std::function<void(std::int64_t persistentID, KV3TrackRow values)>& block) = 0;
    // All of them or none. They lost their claim: what is deleted here is not told to others, and
    // a track that comes back later is what it was.
    virtual bool deleteAllEntitiesFromLibrary() = 0;
};

// A handle on the track of an id, whether or not there is one.
class KV3Track {
public:
    // newWithPersistentID:inLibrary:  Never null.
    static std::shared_ptr<KV3Track> newWithPersistentID(
        std::int64_t persistentID, const std::shared_ptr<KV3Korvane>& library);
    // anyInLibrary:predicate:  Never null; existsInLibrary is false when nothing matches.
    static std::shared_ptr<KV3Track> anyInLibrary(const std::shared_ptr<KV3Korvane>& library,
                                                  const KV3Predicate& predicate);
    // queryWithLibrary:predicate:orderingTerms:  Ties keep an order of the library's own that is
    // the same each time.
    static std::shared_ptr<KV3TrackQuery> queryWithLibrary(
        const std::shared_ptr<KV3Korvane>& library, const KV3Predicate& predicate,
        const std::vector<KV3OrderingTerm>& orderingTerms);
    // queryWithLibrary:predicate:  In the library's own order.
    static std::shared_ptr<KV3TrackQuery> queryWithLibrary(
        const std::shared_ptr<KV3Korvane>& library, const KV3Predicate& predicate);
    // unlinkRedownloadableAssetsFromLibrary:persistentIDs:  Takes the cloud location off the
    // tracks.
    static bool unlinkRedownloadableAssetsFromLibrary(
        const std::shared_ptr<KV3Korvane>& library, const std::vector<std::int64_t>& persistentIDs);

    virtual ~KV3Track() = default;
    virtual std::int64_t persistentID() const = 0;
    virtual bool existsInLibrary() = 0;
    // Of the media file, absent without one; the file may be missing.
    virtual std::optional<std::string> absoluteFilePath() = 0;
    // As the owner's or the host's deletion: it travels to other devices. False when there is none.
    virtual bool deleteFromLibrary() = 0;
    // Null for an absent value and for a track that does not exist.
    virtual platform::Value valueForProperty(KV3TrackProperty property) = 0;
    // getValues:forProperties:count:
    virtual std::vector<platform::Value> getValues(
        std::span<const KV3TrackProperty> properties) = 0;
    // setValue:forProperty:
    virtual bool setValue(const platform::Value& value, KV3TrackProperty property) = 0;
    // setValues:forProperties:count:  All or none.
    virtual bool setValues(std::span<const platform::Value> values,
                           std::span<const KV3TrackProperty> properties) = 0;
    // Records base location and file name from an absolute path; location 0 when no file is there.
    virtual bool populateLocationPropertiesWithPath(const std::string& path) = 0;
    // A video with a file, an artwork token and no original artwork.
    virtual bool needsVideoSnapshot() = 0;
    // The frame at a time (seconds, clamped to the film) becomes the track's original artwork.
    virtual bool createVideoSnapshotAtTime(double seconds) = 0;
    virtual std::string description() const = 0;
};

class KV3Container {
public:
    // autoCreatedBuiltInSmartPlaylistsPIDs:  Those that the library made by itself.
    static std::vector<std::int64_t> autoCreatedBuiltInSmartPlaylistsPIDs(
        const std::shared_ptr<KV3Korvane>& library);
    // populateDynamicContainersInLibrary:createBuiltinSmartPlaylists:
    static bool populateDynamicContainersInLibrary(const std::shared_ptr<KV3Korvane>& library,
                                                   bool createBuiltinSmartPlaylists);
    // deleteAutoCreatedBuiltInSmartPlaylistsPIDs:inLibrary:
    static bool deleteAutoCreatedBuiltInSmartPlaylistsPIDs(
        const std::vector<std::int64_t>& persistentIDs, const std::shared_ptr<KV3Korvane>& library);
    // initWithPersistentID:inLibrary:  Never null, whether or not there is such a playlist.
    static std::shared_ptr<KV3Container> initWithPersistentID(
        std::int64_t persistentID, const std::shared_ptr<KV3Korvane>& library);

    virtual ~KV3Container() = default;
    // Also of one that has been deleted.
    virtual bool isBuiltInSmartPlaylist() = 0;
};

// Writes one section of a change stream, in the encoding "QORX".
class KV3QORXExportSession {
public:
    // initWithLibrary:outputStream:  Never null; both are kept until the session is released.
    static std::shared_ptr<KV3QORXExportSession> initWithLibrary(
        const std::shared_ptr<KV3Korvane>& library,
        const std::shared_ptr<platform::OutputStream>& outputStream);

    virtual ~KV3QORXExportSession() = default;
    // First and last; what they cannot write fails the next operation, or the stream is not whole.
    virtual bool begin() = 0;
    virtual bool end() = 0;
    // One record each. An entry that has gone meanwhile is left out and is no error.
    virtual platform::OptionalError exportPlaylist(std::int64_t persistentID) = 0;
    virtual platform::OptionalError exportPlaylistDeleted(std::int64_t persistentID) = 0;
    virtual platform::OptionalError exportTrack(std::int64_t persistentID) = 0;
    virtual platform::OptionalError exportTrackDeleted(std::int64_t persistentID) = 0;
};

struct KV3ArtworkSize {
    double width = 0;  // pixels
    double height = 0;
};

// The sizes in which a device shows pictures.
class KV3ArtworkConfiguration {
public:
    static KV3ArtworkConfiguration& systemConfiguration();

    virtual ~KV3ArtworkConfiguration() = default;
    virtual std::vector<KV3ArtworkSize> sizesToAutogenerateForMediaType(
        std::uint32_t mediaType, std::int64_t artworkType) = 0;
};

// Imports run one at a time in the order asked for.
class KVMediaLibraryService {
public:
    using Completion = std::function<void(bool success, const platform::OptionalError& error)>;

    static KVMediaLibraryService& sharedMediaLibraryService();

    virtual ~KVMediaLibraryService() = default;
    // performImportFromSource:intoDatabaseAtPath:withTrackData:withPlaylistData:options:completionHandler:
    // Called back exactly once. One import is one transaction: it is there whole or not at all.
    virtual void performImportFromSource(std::int64_t source, const std::string& databasePath,
                                         std::optional<platform::Data> trackData,
                                         std::optional<platform::Data> playlistData,
                                         const platform::Dictionary& options,
                                         Completion completionHandler) = 0;
    // cancelImportOperation:completionHandler:  Called back exactly once, when no import of the
    // kind runs any more; it may be the calling thread that calls back.
    virtual void cancelImportOperation(std::int64_t source,
                                       std::function<void()> completionHandler) = 0;
};

// The domain of the import service's errors and its codes.
inline constexpr std::string_view KVMediaLibraryServiceErrorDomain =
    "KVMediaLibraryServiceErrorDomain";
enum KVMediaLibraryServiceErrorCode : std::int64_t {
    KVMediaLibraryServiceErrorNoData = 1,       // neither track data nor a registered data file
    KVMediaLibraryServiceErrorDamagedData = 2,  // refused whole, nothing was changed
    KVMediaLibraryServiceErrorCancelled = 3,
    KVMediaLibraryServiceErrorDatabase = 4,           // the database would not take it
    KVMediaLibraryServiceErrorNoSpace = 5,            // the device's disk is full
    KVMediaLibraryServiceErrorUnsupportedSource = 6,  // no import of this kind exists here
    KVMediaLibraryServiceErrorRefusedUpdate = 7,      // of a track: what it asks for makes no sense
};

// Where an artwork token's files lie below the artwork directory; "" for an empty token.
std::string KV3ArtworkRelativePathFromToken(const std::string& token);
// Whether the original artwork of a relative path is on the device; false for "".
bool KV3ArtworkHasOriginalArtwork(const std::string& relativePath);
// The token of a chapter's picture; `seconds` is the chapter's start.
std::string KV3ArtworkTokenForChapterArtwork(std::int64_t persistentID, double seconds);
// A new random identifier.
std::int64_t KV3CreateIntegerUUID();

struct KVTSChapterTOC {
    // enumerateChapterTimesInFlattenedChapterData:usingBlock:  Start times in seconds, in order;
    // nothing for data that is no table of contents.
    static void enumerateChapterTimesInFlattenedChapterData(
        const platform::Data& data, const std::function<void(double seconds)>& block);
    // enumerateArtworkCacheIDsInFlattenedChapterData:usingBlock:  One per chapter, "" where it has
    // no picture; setting `stop` ends the enumeration.
    static void enumerateArtworkCacheIDsInFlattenedChapterData(
        const platform::Data& data,
        const std::function<void(const std::string& cacheID, bool& stop)>& block);
};

// The class operations above, as the library's owner implements them; installed in the Platform.
class MediaLibraryFramework {
public:
    virtual ~MediaLibraryFramework() = default;

    virtual std::shared_ptr<KV3Korvane> sharedLibrary() = 0;
    virtual std::string sharedLibraryDatabasePath() = 0;
    virtual KVMediaLibraryService& mediaLibraryService() = 0;

    virtual std::shared_ptr<KV3Track> trackWithPersistentID(
        std::int64_t persistentID, const std::shared_ptr<KV3Korvane>& library) = 0;
    virtual std::shared_ptr<KV3Track> anyTrack(const std::shared_ptr<KV3Korvane>& library,
                                               const KV3Predicate& predicate) = 0;
    virtual std::shared_ptr<KV3TrackQuery> trackQuery(
        const std::shared_ptr<KV3Korvane>& library, const KV3Predicate& predicate,
        const std::vector<KV3OrderingTerm>& orderingTerms) = 0;
    virtual bool unlinkRedownloadableAssets(const std::shared_ptr<KV3Korvane>& library,
                                            const std::vector<std::int64_t>& persistentIDs) = 0;

    virtual std::vector<std::int64_t> autoCreatedBuiltInSmartPlaylistsPIDs(
        const std::shared_ptr<KV3Korvane>& library) = 0;
    virtual bool populateDynamicContainers(const std::shared_ptr<KV3Korvane>& library,
                                           bool createBuiltinSmartPlaylists) = 0;
    virtual bool deleteAutoCreatedBuiltInSmartPlaylists(
        const std::vector<std::int64_t>& persistentIDs,
        const std::shared_ptr<KV3Korvane>& library) = 0;

    virtual std::string artworkRelativePathFromToken(const std::string& token) = 0;
    virtual bool artworkHasOriginalArtwork(const std::string& relativePath) = 0;
    virtual std::string artworkTokenForChapterArtwork(std::int64_t persistentID,
                                                      double seconds) = 0;
    virtual std::int64_t createIntegerUUID() = 0;
    virtual void enumerateChapterTimes(const platform::Data& data,
                                       const std::function<void(double seconds)>& block) = 0;
    virtual void enumerateChapterArtworkCacheIDs(
        const platform::Data& data,
        const std::function<void(const std::string& cacheID, bool& stop)>& block) = 0;

    virtual std::shared_ptr<KV3Container> containerWithPersistentID(
        std::int64_t persistentID, const std::shared_ptr<KV3Korvane>& library) = 0;
    virtual std::shared_ptr<KV3QORXExportSession> makeExportSession(
        const std::shared_ptr<KV3Korvane>& library,
        const std::shared_ptr<platform::OutputStream>& outputStream) = 0;
    virtual KV3ArtworkConfiguration& artworkConfiguration() = 0;
};
