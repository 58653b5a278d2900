// Purpose: reads the assets to be sent ahead of the stream: opens, reads and hashes on a thread of
// its own, so that disk and socket are busy at once.
// Thread: next() and stop() from the session's thread; the source is asked on the feeder's own.
// Ownership: owns its thread; what was read ahead and not taken is dropped with it.
// Failure: a file that cannot be read or changes meanwhile costs only itself.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/scan/content_hash.h"
#include "host/session/asset_source.h"
#include "link/orlith.pb.h"

namespace host {

class PartReader;

// A message to send, with what it means for the count.
struct FedMessage {
    orlith::link::FromHost message;
    std::uint64_t bytes = 0;              // of a media file
    bool endsAsset = false;               // the device answers it
    bool insideFile = false;              // more of the same part must follow
    std::string failure;                  // with endsAsset: why the asset was broken off
    std::optional<ContentHash> fileHash;  // with endsAsset: of the media file that was sent
};

class AssetFeeder {
public:
    // `assets` and `source` outlive the feeder.
    AssetFeeder(const std::vector<OutstandingAsset>& assets, AssetSource& source);
    ~AssetFeeder();
    AssetFeeder(const AssetFeeder&) = delete;
    AssetFeeder& operator=(const AssetFeeder&) = delete;

    // The next message, waiting for it; absent when all has been handed out.
    std::optional<FedMessage> next();

private:
    void run();
    // False when the feeder is to stop.
    bool feed(const OutstandingAsset& asset);
    // As feed; a reason in `failure` breaks the asset off.
    bool feedPart(const OutstandingAsset& asset, const AssetPart& part, bool endsAsset,
                  std::string& failure);
    bool feedPieces(PartReader& reader, const AssetPart& part, bool endsAsset,
                    std::string& failure);
    bool feedFailure(const OutstandingAsset& asset, const std::string& reason);
    bool feedNothing(const OutstandingAsset& asset);
    bool push(FedMessage message);

    const std::vector<OutstandingAsset>& _assets;
    AssetSource& _source;

    std::mutex _mutex;  // protects what follows
    std::condition_variable _changed;
    std::deque<FedMessage> _ready;
    std::size_t _readyBytes = 0;
    bool _done = false;
    bool _stopped = false;

    std::thread _thread;  // last: it uses everything above
};

}  // namespace host
