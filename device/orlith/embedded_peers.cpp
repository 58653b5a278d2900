#include "device/orlith/embedded_peers.h"

#include <cerrno>

#include "device/korvane/artwork_store.h"
#include "device/korvane/export/playlist_deletions.h"
#include "device/korvane/peers.h"
#include "device/korvane/track_location.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

// The media types that were asked of a peer, as a database property; absent: all.
std::string mediaTypesKey(const std::string& uid) {
    return "ORMirrorMediaTypes." + uid;
}

OptionalError notRecorded() {
    return Error(platform::POSIXErrorDomain, EIO,
                 "the library could not record what was exchanged");
}

}  // namespace

std::vector<PeerRecord> EmbeddedPeers::peers() {
    std::vector<PeerRecord> records;
    for (const std::string& uid : korvane::knownPeers(_library))
        records.push_back(peer(uid));
    return records;
}

PeerRecord EmbeddedPeers::peer(const std::string& uid) {
    const korvane::PeerProgress progress = korvane::peerProgress(_library, uid);
    return {uid, progress.receivedRevision, progress.acknowledgedRevision,
            static_cast<std::uint32_t>(
                _library.valueForDatabaseProperty(mediaTypesKey(uid)).unsignedValue())};
}

OptionalError EmbeddedPeers::recordReceived(const std::string& uid, std::int64_t revision,
                                            std::uint32_t mediaTypes) {
    // Both or none: a revision means nothing without the types that it was reached with.
    const bool recorded = _library.performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        return korvane::recordReceivedRevision(_library, uid, revision) &&
               (mediaTypes != 0 ? _library.setValueForDatabaseProperty(std::uint64_t{mediaTypes},
                                                                       mediaTypesKey(uid))
                                : _library.deleteDatabaseProperty(mediaTypesKey(uid)));
    });
    return recorded ? OptionalError() : notRecorded();
}

OptionalError EmbeddedPeers::recordAcknowledged(const std::string& uid, std::int64_t revision) {
    if (korvane::peerProgress(_library, uid).acknowledgedRevision >= revision ||
        korvane::recordAcknowledgedRevision(_library, uid, revision))
        return std::nullopt;
    return notRecorded();
}

void EmbeddedPeers::setExportTarget(const std::string& uid) {
    _library.exportTarget().set(uid);
}

std::vector<std::int64_t> EmbeddedPeers::lineUpPlaylistDeletions(std::int64_t after,
                                                                 OptionalError* error) {
    const auto deletions = korvane::lineUpPlaylistDeletions(_library, after);
    std::vector<std::int64_t> revisions;
    if (!deletions) {
        *error = Error(platform::POSIXErrorDomain, EIO,
                       "the library could not list the playlists that were deleted");
        return revisions;
    }
    for (const korvane::PlaylistDeletion& deletion : *deletions)
        revisions.push_back(deletion.revision);
    return revisions;
}

void EmbeddedPeers::expectFullExchange(const std::string& uid) {
    _imports.expectFullExchange(uid.empty() ? std::nullopt : std::optional(uid));
}

std::optional<ImportRevisions> EmbeddedPeers::lastImportRevisions() {
    const auto given = _imports.lastImportRevisions();
    if (!given)
        return std::nullopt;
    return ImportRevisions{given->first, given->last, given->hasNewsForPeer};
}

ImportEffects EmbeddedPeers::lastImportEffects() {
    const auto count = [](std::int64_t number) { return static_cast<std::uint64_t>(number); };
    const korvane::ImportEffects effects = _imports.lastImportEffects();
    return {count(effects.tracksChanged), count(effects.playlistsChanged),
            count(effects.tracksDeleted), count(effects.playlistsDeleted)};
}

std::optional<std::int64_t> EmbeddedPeers::trackAtPeer(const std::string& uid,
                                                       std::int64_t syncID) {
    const std::int64_t id = korvane::peersTrackID(_library, uid, syncID);
    return id != 0 ? std::optional(id) : std::nullopt;
}

std::string EmbeddedPeers::picturePath(const std::string& token) {
    const std::string relativePath = korvane::artworkRelativePath(token);
    return _library.artwork().hasOriginal(relativePath)
               ? korvane::ArtworkStore::originalPath(relativePath)
               : std::string();
}

std::string EmbeddedPeers::hashOfFile(std::int64_t trackPID) {
    std::string hash;
    _library.read("hashOfFile", [&](common::Database& database) {
        hash = korvane::hashOfFile(database, trackPID);
        return true;
    });
    return hash;
}

}  // namespace orlith
