#include <unordered_set>
#include <vector>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/change_sync/sync_params.h"
#include "SyncBundle/log.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view getChangesOperation =
    "getChangesForSyncType:endpointType:afterRevision:upToRevision:withSyncParams:"
    "intoOutputStream:withStartHandler:withProgressHandler:withCompletionHandler:";
constexpr std::string_view exportTracksOperation =
    "_exportTrackChangesForSyncType:endpointType:afterRevision:upToRevision:withSyncParams:"
    "intoOutputStream:withProgressHandler:withCompletionHandler:";

// The one type of endpoint that gets anything.
constexpr std::uint32_t exportingEndpointType = 1;

// A reset sync starts from nothing: it has nothing to delete.
bool exportsDeletions(std::uint32_t syncType) {
    return syncType != ORSyncReset;
}

// What is said when an entry that was added or changed cannot be exported, track or playlist.
constexpr std::string_view addFailedMessage = "failed to export track %lld. err=%@";

// Playlists and tracks, as the library counts them: also what the export will leave out.
std::uint64_t countOfChanges(KV3Korvane& library, std::uint32_t endpointType,
                             std::int64_t afterRevision) {
    std::uint64_t playlists = 0;
    if (endpointType == exportingEndpointType)
        playlists = library.countOfChangedPersistentIdsAfterRevision(
            afterRevision, KV3RevisionTrackingCodeContainer, KV3RevisionTypeAll);
    return playlists + library.countOfChangedPersistentIdsAfterRevision(
                           afterRevision, KV3RevisionTrackingCodeTrack, KV3RevisionTypeAll);
}

// The first section: playlists that changed, then at most one that was deleted. It has no upper
// revision.
class PlaylistSection {
public:
    PlaylistSection(const std::shared_ptr<KV3Korvane>& library,
                    const std::shared_ptr<platform::OutputStream>& stream, std::uint32_t syncType)
        : _library(library),
          _session(KV3QORXExportSession::initWithLibrary(library, stream)),
          _exportsDeletions(exportsDeletions(syncType)) {}

    // Absent when all could be exported.
    platform::OptionalError write(std::int64_t afterRevision) {
        _session->begin();
        _library->enumeratePersistentIDsAfterRevision(
            afterRevision, KV3RevisionTrackingCodeContainer, KV3RevisionTypeAll,
            [this](std::int64_t persistentID, std::int64_t, std::int64_t changeKind, std::int64_t,
                   bool& stop) { stop = !writeChange(persistentID, changeKind); });
        if (!_error && _firstDeleted)
            writeDeletion(*_firstDeleted);
        _session->end();
        return _error;
    }

private:
    // False ends the enumeration.
    bool writeChange(std::int64_t persistentID, std::int64_t changeKind) {
        if (KV3Container::initWithPersistentID(persistentID, _library)->isBuiltInSmartPlaylist())
            return true;
        if (changeKind != 0) {
            // One deletion travels per export; the daemon asks again for the others.
            if (_exportsDeletions && !_firstDeleted)
                _firstDeleted = persistentID;
            return true;
        }
        KVLog(Info, getChangesOperation, "[add playlist] pid=%lld", persistentID);
        _error = _session->exportPlaylist(persistentID);
        if (_error)
            KVLog(Warning, getChangesOperation, addFailedMessage, persistentID, _error);
        return !_error;
    }

    void writeDeletion(std::int64_t persistentID) {
        KVLog(Info, getChangesOperation, "[delete playlist] pid=%@", persistentID);
        _error = _session->exportPlaylistDeleted(persistentID);
        if (_error)
            KVLog(Warning, getChangesOperation, "failed to export delete for playlist %@. err=%@",
                  persistentID, _error);
    }

    const std::shared_ptr<KV3Korvane>& _library;
    const std::shared_ptr<KV3QORXExportSession> _session;
    const bool _exportsDeletions;
    std::optional<std::int64_t> _firstDeleted;
    platform::OptionalError _error;
};

// The second section: tracks that changed, each once, then those that were deleted.
class TrackSection {
public:
    TrackSection(const std::shared_ptr<KV3Korvane>& library,
                 const std::shared_ptr<platform::OutputStream>& stream, std::uint32_t syncType,
                 std::int64_t upToRevision)
        : _library(*library),
          _session(KV3QORXExportSession::initWithLibrary(library, stream)),
          _exportsDeletions(exportsDeletions(syncType)),
          _upToRevision(static_cast<std::uint64_t>(upToRevision)) {}

    // Absent when all could be exported.
    platform::OptionalError write(std::int64_t afterRevision, const platform::Value& mediaTypes) {
        _session->begin();
        _library.enumeratePersistentIDsAfterRevisionForMediaTypes(
            afterRevision, KV3RevisionTrackingCodeTrack, KV3RevisionTypeAll, mediaTypes,
            [this](std::int64_t persistentID, std::int64_t revision, std::int64_t changeKind,
                   std::int64_t, bool& stop) {
                stop = isBeyondUpperBound(revision) || !writeChange(persistentID, changeKind);
            });
        for (auto id = _deleted.begin(); !_error && id != _deleted.end(); ++id)
            writeDeletion(*id);
        _session->end();
        return _error;
    }

private:
    // Entries come in ascending order of revision, so that all the later ones are beyond it too.
    bool isBeyondUpperBound(std::int64_t revision) const {
        return _upToRevision < static_cast<std::uint64_t>(revision);
    }

    // False ends the enumeration.
    bool writeChange(std::int64_t persistentID, std::int64_t changeKind) {
        if (changeKind != 0) {
            if (_exportsDeletions)
                _deleted.push_back(persistentID);
            return true;
        }
        if (!_exported.insert(persistentID).second)
            return true;
        KVLog(Info, exportTracksOperation, "[add track] pid=%lld", persistentID);
        _error = _session->exportTrack(persistentID);
        if (_error)
            KVLog(Warning, exportTracksOperation, addFailedMessage, persistentID, _error);
        return !_error;
    }

    void writeDeletion(std::int64_t persistentID) {
        KVLog(Info, exportTracksOperation, "[deleted track] pid=%@", persistentID);
        _error = _session->exportTrackDeleted(persistentID);
        if (_error)
            KVLog(Warning, exportTracksOperation, "failed to export delete for track %@. err=%@",
                  persistentID, _error);
    }

    KV3Korvane& _library;
    const std::shared_ptr<KV3QORXExportSession> _session;
    const bool _exportsDeletions;
    const std::uint64_t _upToRevision;
    std::unordered_set<std::int64_t> _exported;
    std::vector<std::int64_t> _deleted;
    platform::OptionalError _error;
};

}  // namespace

void KVSyncClient::getChangesForSyncType(std::uint32_t syncType, std::uint32_t endpointType,
                                         std::int64_t afterRevision, std::int64_t upToRevision,
                                         const platform::Dictionary& syncParams,
                                         std::shared_ptr<platform::OutputStream> outputStream,
                                         const StartHandler& startHandler,
                                         const ProgressHandler& progressHandler,
                                         const ErrorHandler& completionHandler) {
    KVLog(Info, getChangesOperation,
          "gathering changes for sync. fromRevision=%lld, toRevision=%lld", afterRevision,
          upToRevision);
    const std::uint64_t total = countOfChanges(*_library, endpointType, afterRevision);
    progressHandler(0, total);

    // In memory, because its length must be known before its first byte goes out.
    const std::shared_ptr<platform::MemoryOutputStream> playlistStream =
        platform::Platform::current().operatingSystem().fileSystem().makeMemoryOutputStream();
    playlistStream->open();
    if (endpointType == exportingEndpointType) {
        const platform::OptionalError error =
            PlaylistSection(_library, playlistStream, syncType).write(afterRevision);
        if (error) {
            completionHandler(error);
            return;
        }
    }
    platform::Data playlistData = playlistStream->takeData();
    KVLog(Info, getChangesOperation, "writing %lu bytes of playlist data", playlistData.size());
    startHandler(exportParams(endpointType, playlistData.size(), total));

    const auto exportTracks = [client = shared_from_this(), syncType, endpointType, afterRevision,
                               upToRevision, syncParams, outputStream, progressHandler,
                               completionHandler] {
        client->_exportTrackChangesForSyncType(syncType, endpointType, afterRevision, upToRevision,
                                               syncParams, outputStream, progressHandler,
                                               completionHandler);
    };
    if (playlistData.empty())
        exportTracks();
    else
        writePlaylistData(std::move(playlistData), outputStream, exportTracks);
}

platform::Dictionary KVSyncClient::exportParams(std::uint32_t endpointType,
                                                std::size_t playlistDataLength,
                                                std::uint64_t itemCount) const {
    platform::Dictionary params{
        {std::string(KVSyncParamFormatType), KVFormatTypeQORX},
        {std::string(KVSyncParamPlaylistDataLen), playlistDataLength},
        {std::string(KVSyncParamSyncItemCount), itemCount},
    };
    if (endpointType == exportingEndpointType) {
        platform::Value settings = _getPlaylistSyncSettingsParams();
        if (!settings.isNull())
            params.emplace(KVSyncParamPlaylistSyncSettings, std::move(settings));
    }
    return params;
}

// Whether the bytes could be written is not looked at: a stream that failed fails the tracks too.
void KVSyncClient::writePlaylistData(platform::Data playlistData,
                                     const std::shared_ptr<platform::OutputStream>& outputStream,
                                     const platform::Job& continuation) {
    const std::shared_ptr<ORStreamWriter> writer =
        ORStreamWriter::initWithOutputStream(outputStream, nullptr);
    _streams.add(writer);
    writer->writeAllData(std::move(playlistData), [client = shared_from_this(), key = writer.get(),
                                                   continuation](const platform::OptionalError&) {
        const GuardedStreams::Removal removal(client->_streams, key);
        continuation();
    });
}

void KVSyncClient::_exportTrackChangesForSyncType(
    std::uint32_t syncType, std::uint32_t endpointType, std::int64_t afterRevision,
    std::int64_t upToRevision, const platform::Dictionary& syncParams,
    const std::shared_ptr<platform::OutputStream>& outputStream, const ProgressHandler&,
    const ErrorHandler& completionHandler) {
    if (endpointType != exportingEndpointType) {
        completionHandler(std::nullopt);
        return;
    }
    const platform::Value mediaTypes = KVSyncParam(syncParams, KVSyncParamSupportedMediaTypes);
    const platform::OptionalError error =
        TrackSection(_library, outputStream, syncType, upToRevision)
            .write(afterRevision, mediaTypes);
    completionHandler(error);
}
