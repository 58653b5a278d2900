// Fetches the assets that a companion wants from the first device: asked for ahead, received on the
// session's thread, filed on a thread of its own.
//
// run() on the thread of the mirror session, once; throws SessionError.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device/orlith/job_queue.h"
#include "device/orlith/mirror/change_puller.h"
#include "device/orlith/mirror/first_device.h"
#include "device/orlith/mirror/mirror_services.h"
#include "device/orlith/mirror/pulled_asset_filer.h"

namespace orlith {

class AssetPuller {
public:
    // All of it outlives this. `peerUID` is the first device's library.
    AssetPuller(const MirrorServices& services, FirstDevice& first, const MirrorEvents& events,
                std::string peerUID);
    ~AssetPuller();

    // What the device wants and the peer may have.
    std::vector<WantedAsset> listWanted();
    // Fetches them; what fails is told and counted, and the next run asks again. Fills in the
    // numbers.
    void run(std::vector<WantedAsset> wanted, link::MirrorSummary& summary);

private:
    struct Reception {
        PulledAsset pulled;
        bool waits = false;                  // at the first device
        bool mayResume = true;               // from what an earlier run left
        std::unique_ptr<IncomingFile> file;  // of the part that is coming; null: it is dropped
        std::string chapterCacheID;          // of that part
        std::uint64_t offset = 0;
        std::uint64_t size = 0;  // bytes that came
        bool isComing = false;   // between a part's begin and end
    };

    void ask(Reception reception);
    bool mayAsk() const;
    void take(const link::AssetMessage& message);
    void begin(Reception& reception, const link::AssetBegin& message);
    void append(Reception& reception, const std::string& data);
    bool end(Reception& reception, const link::AssetEnd& message);  // true: to be asked again
    void keepPart(Reception& reception);
    void drop(Reception& reception, const platform::Error& error);
    void post(PulledAsset pulled, std::uint64_t size);
    void file(PulledAsset& pulled, std::uint64_t size);
    void throwIfFilingFailed();

    const MirrorServices& _services;
    FirstDevice& _first;
    const MirrorEvents& _events;
    const std::string _peerUID;
    PulledAssetFiler _filer;

    // ---- The session's thread.
    std::uint32_t _lastRequest = 0;
    std::map<std::uint32_t, Reception> _open;  // by request
    std::deque<Reception> _again;              // to be asked once more, from the beginning
    bool _deviceIsFull = false;

    // ---- Shared with the filing thread.
    std::mutex _mutex;
    link::MirrorProgress _progress;          // guarded by _mutex
    std::uint64_t _failed = 0;               // guarded by _mutex
    std::uint64_t _filed = 0;                // guarded by _mutex
    platform::OptionalError _filingFailure;  // an exception there; guarded by _mutex

    JobQueue _queue;  // last: its thread uses everything above
};

}  // namespace orlith
