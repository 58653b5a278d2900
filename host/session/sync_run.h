// Purpose: one run of `orlith sync`: reads the folder, makes the plan, and carries out exactly it.
// Thread: run() works on the calling thread; interrupt() may come from any other.
// Ownership: borrows the reporter and the progress.
// Failure: the outcome says why the run stopped; items that failed are reported one by one.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "host/plan/planner.h"
#include "host/progress/progress.h"
#include "host/session/materials.h"
#include "platform/errors.h"

namespace host {

struct SyncOptions {
    std::string folder;
    std::string deviceDirectory;
    PlanOptions plan;
    bool dryRun = false;
    std::vector<std::string> uploads;  // persistent or sync ids, decimal
    bool deleteAfterUpload = false;
    bool withRecommendations = true;
};

struct SyncSummary {
    std::size_t sent = 0;  // media files
    std::size_t unchanged = 0;
    std::size_t removed = 0;
    std::size_t uploaded = 0;
    std::size_t failed = 0;
    std::uint64_t bytes = 0;  // of media files, sent
    std::size_t playlists = 0;
    std::size_t disabled = 0;  // files of kinds that the device has disabled
    std::string anchor;
};

inline constexpr std::string_view SyncErrorDomain = "HostSyncError";
enum SyncErrorCode : std::int64_t {
    SyncErrorDeleteGuard = 1,
    SyncErrorNoSpace = 2,
    SyncErrorNoSuchTrack = 3,  // an upload of a track that the device does not have
    SyncErrorDeviceChanged = 4,
};

// Hears what a run has to say, on the run's thread.
class SyncReporter {
public:
    virtual ~SyncReporter() = default;
    virtual void plan(const Plan& plan, const FolderState& state) = 0;
    // The device has disabled these kinds; so many files of them are not sent.
    virtual void disabled(const std::vector<std::string>& kinds, std::size_t files) = 0;
    virtual void failure(const ItemFailure& failure) = 0;
    // What the owner of the device changed there.
    virtual void deviceChange(const std::string& text) = 0;
    virtual void notice(const std::string& text) = 0;
};

class SyncRun {
public:
    SyncRun(SyncOptions options, SyncReporter& reporter, Progress& progress);
    ~SyncRun();
    SyncRun(const SyncRun&) = delete;
    SyncRun& operator=(const SyncRun&) = delete;

    // None when all was done that could be; single failures are in the summary.
    platform::OptionalError run();
    const SyncSummary& summary() const;
    // Stops the run in order: the import is cancelled, the file being sent may be cut.
    void interrupt();

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace host
