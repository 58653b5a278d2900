// What the daemon needs of the device's library for change sync, beside what the plug-in uses: what
// was exchanged with which peer, and the peer's numbers of entries that both have.
//
// A peer is another library, named by its uid. Any thread. Nothing throws but for lack of memory.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/errors.h"

namespace orlith {

struct PeerRecord {
    std::string uid;
    std::int64_t received = 0;      // the peer's revision that this library has
    std::int64_t acknowledged = 0;  // this library's revision that the peer has
    // Bits of the media types that were asked for when `received` was reached; 0: all.
    std::uint32_t mediaTypes = 0;
};

// The revisions that an import of a change stream gave.
struct ImportRevisions {
    std::int64_t first = 0;
    std::int64_t last = 0;
    bool hasNewsForPeer = false;  // some are to be told to the peer too
};

// What an import changed here.
struct ImportEffects {
    std::uint64_t tracksChanged = 0;  // new ones too
    std::uint64_t playlistsChanged = 0;
    std::uint64_t tracksDeleted = 0;
    std::uint64_t playlistsDeleted = 0;
};

class PeerLibrary {
public:
    virtual ~PeerLibrary() = default;

    virtual std::vector<PeerRecord> peers() = 0;
    // With zeros for one that is not known.
    virtual PeerRecord peer(const std::string& uid) = 0;
    // Durable when it returns. A revision smaller than the one recorded replaces it too: the peer
    // may have been restored.
    virtual platform::OptionalError recordReceived(const std::string& uid, std::int64_t revision,
                                                   std::uint32_t mediaTypes) = 0;
    // A smaller revision changes nothing.
    virtual platform::OptionalError recordAcknowledged(const std::string& uid,
                                                       std::int64_t revision) = 0;

    // Whom the exports that follow are for; "" for nobody in particular.
    virtual void setExportTarget(const std::string& uid) = 0;
    // The revisions of playlist deletions after a revision, ascending. When there are more than one
    // they stand above every change of another playlist, with fresh revisions where needed.
    virtual std::vector<std::int64_t> lineUpPlaylistDeletions(std::int64_t after,
                                                              platform::OptionalError* error) = 0;
    // The next import of a change stream brings everything that the peer has; "": it does not.
    virtual void expectFullExchange(const std::string& uid) = 0;
    // Of the last import of a change stream; absent when it gave none.
    virtual std::optional<ImportRevisions> lastImportRevisions() = 0;
    // Of the last import of a change stream; nothing when it failed.
    virtual ImportEffects lastImportEffects() = 0;
    // The persistent id at the peer of the track with this sync id here; absent when the peer is
    // not known to have it.
    virtual std::optional<std::int64_t> trackAtPeer(const std::string& uid,
                                                    std::int64_t syncID) = 0;
    // Absolute device path of the original picture under a token; "" when there is none.
    virtual std::string picturePath(const std::string& token) = 0;
    // What the bytes of the track's file should give as their XXH3-128 hash: 16 bytes, or empty
    // when nobody knows.
    virtual std::string hashOfFile(std::int64_t trackPID) = 0;
};

}  // namespace orlith
