// Purpose: drives one sync session step by step, in the order that the protocol demands.
// Thread: one; interrupt() may come from any other at any time.
// Ownership: the connection it was started from may go before it.
// Failure: each step returns why it failed; the session is then over unless its comment says
// otherwise, and close() must still be called to leave the device in order.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/scan/content_hash.h"
#include "host/session/asset_source.h"
#include "platform/errors.h"

namespace orlith::link {
class FromDevice;
}

namespace host {

class SessionStream;

struct SessionOpening {
    std::string hostUid;
    std::string hostName;
    std::string hostAnchor;  // the last one known; empty when none is
    std::string version;
};

struct OpenedSession {
    std::string libraryUid;
    std::string anchor;
    std::uint64_t freeBytes = 0;
    std::vector<std::string> notices;
    std::vector<std::string> disabledKinds;
    std::string savedMetadata;  // "QORX" streams, empty when nothing was saved
    std::string savedPlaylists;
};

struct AssetOutcome {
    const OutstandingAsset* asset = nullptr;
    bool success = false;
    std::string reason;  // of a failure; of a success what was refused beside the file
    bool noSpace = false;
    std::optional<ContentHash> fileHash;  // of the file that was sent
};

// What happens while assets are sent; called on the session's thread.
struct TransferEvents {
    std::function<void(std::uint64_t bytes)> sent;  // total of media files so far
    std::function<void(const AssetOutcome&)> finished;
};

struct UploadOutcome {
    std::string path;      // where it lies now, absolute
    std::string failure;   // empty when it is there
    bool deleted = false;  // on the device, as asked
};

class SyncSession {
public:
    explicit SyncSession(std::unique_ptr<SessionStream> stream);
    ~SyncSession();
    SyncSession(const SyncSession&) = delete;
    SyncSession& operator=(const SyncSession&) = delete;

    // Opens and prepares.
    platform::OptionalError open(const SessionOpening& opening, OpenedSession& opened);
    // The host's data, from a file.
    platform::OptionalError sendHostData(const std::string& path);
    platform::OptionalError sendSettings(const std::string& name, std::string bytes);
    platform::OptionalError sendKenningConfiguration(std::string plist);
    // On failure the session can still be ended in order.
    platform::OptionalError reconcile(std::uint32_t syncType, const std::string& newAnchor,
                                      std::string& storedAnchor);
    platform::OptionalError askOutstanding(std::vector<OutstandingAsset>& assets);
    // Finds out where files go on that an earlier run left unfinished. `prefixHash` hashes the
    // first bytes of what would be sent for an asset.
    platform::OptionalError askPartial(
        std::vector<OutstandingAsset>& assets,
        const std::function<std::optional<ContentHash>(const OutstandingAsset&, std::uint64_t)>&
            prefixHash);
    platform::OptionalError transfer(const std::vector<OutstandingAsset>& assets,
                                     AssetSource& source, const TransferEvents& events);
    // Receives an upload into a directory, as `fileName` or a name like it that is not taken.
    // A failure of this upload alone is in the outcome.
    platform::OptionalError receiveUpload(const OutstandingAsset& asset,
                                          const std::string& directory, const std::string& fileName,
                                          UploadOutcome& outcome);
    // Ends in order; `anchor` is the device's afterwards.
    platform::OptionalError end(bool success, std::string& anchor);
    // Leaves the session in whatever state it is, in order where that is possible.
    void close();

    // Any thread: stops the import or the transfers; the step that runs returns LinkErrorCancelled.
    void interrupt();

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace host
