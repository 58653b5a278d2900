// Purpose: one import of another device's changes: verified whole, then applied in one transaction.
//          docs/architecture.md, "How two devices agree", says what becomes of a record.
// Calling thread: one of the import service's own.
// Ownership: everything is borrowed for the length of the import.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "device/korvane/import/new_ids.h"
#include "platform/errors.h"
#include "platform/values.h"

namespace korvane {

class Connections;
class ImportCancellation;

// Two sections, each a whole "QORX" stream of purpose CHANGES; either may be absent.
struct PeerChanges {
    const platform::Data* tracks = nullptr;     // tracks and their deletions
    const platform::Data* playlists = nullptr;  // playlists and theirs
};

struct PeerImportOptions {
    std::string ownUID;  // this library's
    // Everything that this peer (its library's uid) has is in the data, which may then be absent:
    // what they do not name is not there any more.
    std::optional<std::string> fullExchangeWith;
    NewIDs::RandomNumber randomNumber = systemRandomNumber;
};

// The revisions that an import gave.
struct ImportRevisions {
    std::int64_t first = 0;
    std::int64_t last = 0;
    // Some are news for the peer too; otherwise they count as sent to it.
    bool hasNewsForPeer = false;
};

// What an import changed here; records that brought nothing new do not count.
struct ImportEffects {
    std::int64_t tracksChanged = 0;  // new ones too
    std::int64_t playlistsChanged = 0;
    std::int64_t tracksDeleted = 0;
    std::int64_t playlistsDeleted = 0;
};

struct PeerImportResult {
    // Absent on success. After a failure the library is as it was; the error is one of
    // KVMediaLibraryServiceErrorDomain.
    platform::OptionalError error;
    std::optional<ImportRevisions> revisions;  // absent: none was given
    ImportEffects effects;
};

PeerImportResult importPeerChanges(Connections& connections, const PeerChanges& changes,
                                   const PeerImportOptions& options,
                                   ImportCancellation& cancellation);

}  // namespace korvane
