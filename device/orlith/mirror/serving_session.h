// The first device's side of one peer session: it answers what a companion asks.
//
// Two threads: the reader takes the companion's messages; the worker makes the plug-in's calls, one
// after another, and sends. Whatever goes wrong ends this session and nothing else.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <variant>

#include "device/orlith/mirror/asset_source.h"
#include "device/orlith/mirror/inbox.h"
#include "device/orlith/mirror/mirror_services.h"
#include "device/orlith/mirror/peer_stream.h"

namespace orlith {

class ServingSession {
public:
    ServingSession(const MirrorServices& services, ServingStream& stream);
    ~ServingSession();
    ServingSession(const ServingSession&) = delete;
    ServingSession& operator=(const ServingSession&) = delete;

    // Returns when the session is over and the device is free; none when it ended in order. Called
    // once.
    platform::OptionalError run();

private:
    struct CompanionLeft {};
    using Item = std::variant<link::FromCompanion, AssetAnswer, CompanionLeft>;

    void work();
    bool handle(Item item);  // false: the session is over
    bool handleMessage(const link::FromCompanion& message);
    void open(const link::PeerOpen& message);
    void sendState();
    void sendDeletions(const link::PlaylistDeletionsRequest& message);
    void sendChanges(const link::ChangesRequest& message);
    void acknowledge(const link::Acknowledge& message);
    void close(const link::PeerClose& message);
    void giveUpWaitingForCompanion();
    void cleanUp();
    bool send(const link::FromFirst& message);
    void fail(const platform::Error& error, const std::string& owner = {});

    const MirrorServices& _services;
    ServingStream& _stream;
    // Shared with the plug-in's late answers.
    const std::shared_ptr<Inbox<Item>> _inbox;

    // ---- The worker's own; the reader's after it has ended.
    AssetSource _source;
    bool _isOpen = false;
    bool _endedInOrder = false;
    std::string _companionUID;
    std::string _companionName;

    // ---- Shared.
    std::mutex _mutex;
    std::condition_variable _readerIsDone;
    bool _readerDone = false;          // guarded by _mutex
    platform::OptionalError _failure;  // the first; guarded by _mutex
    std::atomic<bool> _failed{false};
};

}  // namespace orlith
