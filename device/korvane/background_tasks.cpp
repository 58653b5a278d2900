#include "device/korvane/background_tasks.h"

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/activity_lock.h"
#include "device/korvane/change_log.h"
#include "device/korvane/library.h"
#include "device/korvane/orphan_sweep.h"
#include "device/korvane/track_deletion.h"

namespace korvane {

// Shared with the jobs, which may still wait in the queue when the tasks are gone.
struct BackgroundTasks::State : std::enable_shared_from_this<State> {
    State(Library& l, ActivityLock& a, std::shared_ptr<platform::WorkQueue> q)
        : library(&l), lock(&a), queue(std::move(q)) {}

    Library* const library;
    ActivityLock* const lock;
    const std::shared_ptr<platform::WorkQueue> queue;

    mutable std::mutex mutex;  // protects everything below
    std::condition_variable changed;
    bool isSuppressed = false;
    bool isWanted = false;  // asked for, or not finished
    bool isQueued = false;
    bool isRunning = false;
    bool isEnding = false;

    void request() {
        std::lock_guard guard(mutex);
        isWanted = true;
        enqueue();
    }
    void suppress(bool suppressed) {
        std::lock_guard guard(mutex);
        isSuppressed = suppressed;
        enqueue();
    }
    bool mayGoOn() const {
        std::lock_guard guard(mutex);
        return !isSuppressed && !isEnding;
    }

    // With `mutex` held.
    void enqueue() {
        if (!isWanted || isQueued || isSuppressed || isEnding)
            return;
        isQueued = true;
        queue->async([self = shared_from_this()] { self->runOnce(); });
    }

    void runOnce() {
        {
            std::lock_guard guard(mutex);
            isQueued = false;
            if (isSuppressed || isEnding)
                return;
            isWanted = false;
            isRunning = true;
        }
        const bool isDone = work();
        std::lock_guard guard(mutex);
        isRunning = false;
        // What was held up waits for the next occasion rather than trying again at once.
        isWanted = isWanted || !isDone;
        changed.notify_all();
    }

    bool work() {
        const auto goesOn = [this] { return mayGoOn(); };
        try {
            return goesOn() && optimise() && goesOn() && OrphanSweep(*library, *lock).run(goesOn);
        } catch (const std::exception& error) {
            library->log().error("background tasks", error.what());
            return false;
        }
    }

    bool optimise() {
        library->change("prune", [](common::Database& database) {
            pruneChangeLog(database);
            forgetKenningOfDeletedTracks(database);
            return true;
        });
        library->connections().use(true, [](common::Database& database) {
            database.executeScript("PRAGMA optimize; PRAGMA wal_checkpoint(PASSIVE)");
        });
        return true;
    }
};

BackgroundTasks::BackgroundTasks(Library& library, ActivityLock& lock,
                                 NotificationSource& notifications,
                                 std::shared_ptr<platform::WorkQueue> queue)
    : _state(std::make_shared<State>(library, lock, std::move(queue))) {
    const auto observe = [&](std::string_view name, bool suppressed) {
        return notifications.observe(name, [state = std::weak_ptr(_state), suppressed] {
            if (const auto alive = state.lock())
                alive->suppress(suppressed);
        });
    };
    _suppressing = observe(KV3KorvaneBackgroundTasksShouldSuppressChangesNotification, true);
    _resuming = observe(KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification, false);
}

BackgroundTasks::~BackgroundTasks() {
    _suppressing.reset();
    _resuming.reset();
    std::unique_lock guard(_state->mutex);
    _state->isEnding = true;
    _state->changed.wait(guard, [&] { return !_state->isRunning; });
}

void BackgroundTasks::schedule() {
    _state->request();
}

bool BackgroundTasks::isSuppressed() const {
    std::lock_guard guard(_state->mutex);
    return _state->isSuppressed;
}

}  // namespace korvane
