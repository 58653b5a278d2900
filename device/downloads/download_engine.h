// Brings the downloads of a list: a few at a time, oldest first, tried again when they break off,
// gone on with after a restart, then installed.
//
// Works on a thread of its own. Everything public may be called from any thread.
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "device/downloads/download_list.h"
#include "device/downloads/install_jobs.h"
#include "device/downloads/retry_plan.h"
#include "device/downloads/staged_download.h"
#include "device/downloads/transfer.h"

namespace downloads {

struct EngineSettings {
    unsigned simultaneous = 2;
    // Without a byte for so long a transfer counts as broken off.
    platform::Nanoseconds stallLimit = 30'000'000'000;
    // How often observers hear that a download moves, and that those behind it still wait.
    platform::Nanoseconds progressInterval = 1'000'000'000;
    platform::Nanoseconds queueInterval = 10'000'000'000;
    RetrySettings retry;
    StagingLimits staging;
};

struct Progress {
    std::uint64_t bytes = 0;
    std::optional<std::uint64_t> total;
};

class DownloadEngine {
public:
    struct Configuration {
        device::RootedFileSystem& fileSystem;  // these outlive the engine and its queue's jobs
        platform::LogService& log;
        platform::OperatingSystem& system;  // clock, timer and queue
        DownloadInstaller& installer;
        EngineSettings settings{};
    };

    // `installs` is called before each install, on the installs' queue. Throws (std::exception)
    // when it cannot work at all.
    DownloadEngine(const Configuration& configuration, std::shared_ptr<DownloadList> list,
                   std::function<void()> installs);
    // Stops what is under way; the next engine of the list goes on with it.
    ~DownloadEngine();

    // Goes on with what waits, what was under way and what was received. Once.
    void start();

    // Something new waits, perhaps one that has failed before: it is tried at once.
    void add(std::int64_t persistentIdentifier);
    // It is off the list: its transfer ends and its bytes go.
    void cancel(std::int64_t persistentIdentifier);
    // Of the downloads whose bytes are coming just now.
    std::map<std::int64_t, Progress> progress() const;

private:
    // Wakes the thread; the timer's handler may come late, after the engine has gone.
    class Waker;
    struct MultiCleanup {
        void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
    };
    struct Active;
    struct Commands {
        std::vector<std::int64_t> added;
        std::vector<std::int64_t> cancelled;
        bool stops = false;
    };

    void run();
    bool workOnce();
    void carryOut(const Commands& commands);
    void takeInstallResults();
    void startWhatMay();
    void startTransfer(const DownloadRecord& record);
    void install(std::int64_t download);
    bool moveTransfers();
    void readMessages();
    void noteMovement();
    void endTransfers();
    void end(std::int64_t download, Active& active);
    void received(std::int64_t download, Active& active);
    void again(std::int64_t download, const Outcome& outcome, bool hasGained);
    void fail(std::int64_t download, const std::string& reason);
    // As fail; the source will never give the file.
    void failForGood(std::int64_t download, const std::string& reason);
    void beginOver(std::int64_t download);
    void tellProgress();
    void publishProgress();
    void setTimer();
    void recover();
    void log(platform::LogLevel level, std::string_view operation, std::string text) const;

    device::RootedFileSystem& _files;
    platform::LogService& _log;
    platform::OperatingSystem& _system;
    const EngineSettings _settings;
    const std::shared_ptr<DownloadList> _list;
    const std::unique_ptr<CURLM, MultiCleanup> _multi;
    const std::shared_ptr<Waker> _waker;
    const std::shared_ptr<InstallJobs> _installs;
    const std::shared_ptr<platform::TimerSource> _timer;

    mutable std::mutex _mutex;  // protects _commands and _progress
    Commands _commands;
    std::map<std::int64_t, Progress> _progress;

    // The engine's thread alone.
    std::map<std::int64_t, std::unique_ptr<Active>> _active;
    std::set<std::int64_t> _installing;
    RetryPlan _retries;
    bool _mayStart = true;  // something may have become ready since the list was last looked at
    platform::Nanoseconds _lookedAt = 0;
    bool _hasMoved = false;  // anything, since those that wait were told
    platform::Nanoseconds _progressTold = 0;
    platform::Nanoseconds _queueTold = 0;
    platform::Nanoseconds _timerDue = 0;

    std::thread _thread;  // last: it uses all of it
};

}  // namespace downloads
