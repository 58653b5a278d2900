// The first device's assets, given to a companion one after another: asked of the plug-in, which
// answers late or never for some, and sent as they come.
//
// All calls on the session's worker. The plug-in's answers come on its own threads and are put into
// the inbox that is given; once that is closed they are dropped.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "device/orlith/mirror/mirror_services.h"
#include "link/peer.pb.h"

namespace orlith {

// What the plug-in said to one request.
struct AssetAnswer {
    std::uint32_t request = 0;
    platform::OptionalError error;
    std::unique_ptr<platform::InputStream> stream;
    std::string fileName;
};

class AssetSource {
public:
    using Clock = std::chrono::steady_clock;
    using Send = std::function<bool(const link::FromFirst&)>;  // false: the companion is gone
    using Deliver = std::function<void(AssetAnswer)>;          // any thread

    // `services` outlives this.
    AssetSource(const MirrorServices& services, Send send, Deliver deliver);
    ~AssetSource();

    // Throws SessionError for a request that breaks the protocol; the plug-in's exceptions pass.
    void ask(const link::AssetRequest& request);
    void answer(AssetAnswer answer);
    // Tells of requests that wait, and fails those that the plug-in has left alone for too long.
    void lookAtTheClock();
    // When to look next.
    Clock::time_point nextLook() const;

private:
    struct Pending {
        link::AssetRequest request;
        Clock::time_point since;
        bool told = false;  // that it waits
    };

    void sendFile(const link::AssetRequest& request, AssetAnswer& answer);
    void sendPictures(const link::AssetRequest& request, AssetAnswer& answer);
    bool skipPrefix(const link::AssetRequest& request, platform::InputStream& stream,
                    common::XXH3Stream& hasher);
    bool sendPicture(std::uint32_t request, const std::string& bytes, const std::string& name,
                     const std::string& chapterCacheID, bool more);
    std::shared_ptr<KV3Track> trackOf(const link::AssetRequest& request);
    bool sendData(std::uint32_t request, std::string data);
    void sendEnd(std::uint32_t request, const platform::Error& error);
    void forget(std::uint32_t request);
    void stopWatching(const link::AssetRequest& request);
    Clock::time_point deadlineOf(const Pending& pending) const;

    const MirrorServices& _services;
    const Send _send;
    const Deliver _deliver;
    std::map<std::uint32_t, Pending> _pending;  // by number
};

}  // namespace orlith
