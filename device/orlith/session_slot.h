// The one place for a sync session: who has it, and how it is told to end.
//
// Any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace orlith {

struct SessionOwner {
    std::string hostName;  // printable
    std::uint32_t processID = 0;
    std::chrono::steady_clock::time_point since;

    // "kitchen-pc (process 4711), for 12 s"
    std::string description() const;
};

class SessionSlot {
public:
    // True when it was free; otherwise `holder` tells who has it. A session whose host has left is
    // waited for while it is wound up, as long as `patience`. `stop` is called when the daemon
    // wants the session to end, with the reason in plain words. A slot that was stopped takes
    // nobody.
    bool acquire(const SessionOwner& owner, std::function<void(const std::string&)> stop,
                 std::string& holder, std::chrono::milliseconds patience = WindingUp);
    // The session's host has left: what remains is to wind it up and release the slot.
    void hostLeft();
    // After it returns, `stop` is neither running nor called again.
    void release();
    // "" when no session runs.
    std::string ownerDescription();
    // True when a session runs.
    bool isTaken();
    // Returns when the session has been told, which takes as long as its host does not read.
    void stop(const std::string& reason);

    static constexpr std::chrono::seconds WindingUp{15};

private:
    bool isWindingUp() const;

    std::mutex _mutex;
    std::condition_variable _released;
    std::optional<SessionOwner> _owner;             // guarded by _mutex
    std::function<void(const std::string&)> _stop;  // guarded by _mutex
    std::string _stopReason;                        // guarded by _mutex
    bool _hostLeft = false;                         // guarded by _mutex
};

}  // namespace orlith
