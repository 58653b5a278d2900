// Purpose: the library's work in the background: keeping the database's statistics and log in
//          order, pruning the change log, forgetting recommendation data of deleted tracks,
//          sweeping orphaned files. It holds from the suppressing notification to the one that
//          ends it; of several, the last counts.
// Calling thread: any.
// Callback thread: the work runs on the queue that it was given.
// Ownership: the library and lock are borrowed; work under way keeps only what is shared with it,
//            and the destructor waits for it.
// Failure: logged; what was not done is done the next time.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "platform/operating_system.h"

namespace korvane {

class ActivityLock;
class Library;

// Tells of named notifications.
class NotificationSource {
public:
    virtual ~NotificationSource() = default;
    // Calls the handler on a thread of the source's own for every post of the name (several may
    // become one), until the result is released; no call is under way after that.
    virtual std::shared_ptr<void> observe(std::string_view name, std::function<void()> handler) = 0;
};

class BackgroundTasks {
public:
    BackgroundTasks(Library& library, ActivityLock& lock, NotificationSource& notifications,
                    std::shared_ptr<platform::WorkQueue> queue);
    // Stops at the next folder or statement and waits for that.
    ~BackgroundTasks();

    // Asks for all of the work; several requests become one. Held back while suppressed.
    void schedule();
    bool isSuppressed() const;

private:
    struct State;
    const std::shared_ptr<State> _state;
    std::shared_ptr<void> _suppressing;
    std::shared_ptr<void> _resuming;
};

}  // namespace korvane
