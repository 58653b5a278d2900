// Purpose: the peer that changes are exported for, so that records can name its own ids.
// Calling thread: any.
#pragma once

#include <mutex>
#include <string>

namespace korvane {

class ExportTarget {
public:
    // A library's uid; "" for nobody in particular. For the export sessions that begin after this.
    void set(std::string peerUID) {
        const std::lock_guard lock(_mutex);
        _peerUID = std::move(peerUID);
    }
    std::string peerUID() const {
        const std::lock_guard lock(_mutex);
        return _peerUID;
    }

private:
    mutable std::mutex _mutex;  // protects the uid
    std::string _peerUID;
};

}  // namespace korvane
