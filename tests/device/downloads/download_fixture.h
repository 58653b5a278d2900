// A device with downloads, an owner's library that stands in for the real one, and a server.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device/downloads/download_service.h"
#include "tests/device/downloads/http_server.h"
#include "tests/device/downloads/manual_time_system.h"
#include "tests/support/recording_log.h"
#include "tests/support/temporary_directory.h"

namespace test {

inline constexpr platform::Nanoseconds Second = 1'000'000'000;

// Files what it installs under "Purchases/<library item>", which is the store item and 5000.
class PlainInstaller final : public downloads::DownloadInstaller {
public:
    explicit PlainInstaller(device::RootedFileSystem& files) : _files(files) {}

    std::optional<downloads::PreparedItem> prepare(const downloads::DownloadItem& item,
                                                   platform::OptionalError* error) override;
    platform::OptionalError install(const downloads::DownloadItem& item,
                                    const std::string& stagedPath) override;
    void abandon(std::int64_t libraryItem) override;
    // Those of `waiting` have no further use for their download.
    bool sourceIsGone(std::int64_t libraryItem) override;
    // By extension: ".own" belongs in a backup, ".none" to nobody.
    std::optional<std::vector<downloads::FileClass>> settleFiles(
        const std::vector<std::string>& names, platform::OptionalError* error) override;
    // Nobody knows these library items any more.
    void setGone(std::vector<std::int64_t> gone);
    void setWaiting(std::vector<std::int64_t> waiting);
    std::size_t timesSettled();
    // The library cannot be asked from now on.
    void loseLibrary();

    static std::string pathOf(std::int64_t storeItem);
    std::vector<downloads::DownloadItem> installed();
    std::vector<std::int64_t> abandoned();
    // The next installs fail so, one each.
    void fail(std::vector<platform::Error> errors);
    // Installs wait until they are let go on.
    void hold();
    void letGoOn();

private:
    device::RootedFileSystem& _files;
    std::mutex _mutex;  // protects what follows
    std::condition_variable _changed;
    std::vector<downloads::DownloadItem> _installed;
    std::vector<std::int64_t> _abandoned;
    std::vector<platform::Error> _errors;
    bool _isHeld = false;
    std::vector<std::int64_t> _gone;
    std::vector<std::int64_t> _waiting;
    std::size_t _timesSettled = 0;
    bool _hasLibrary = true;
};

// Writes down phases as "<store item>:<phase>", and wakes whoever waits at every call.
class PhaseObserver final : public VDDownloadManagerObserver {
public:
    bool respondsTo(VDDownloadManagerObserverOperation) const override { return true; }
    void downloadManagerDownloadStatesDidChange(
        VDDownloadManager&, const std::vector<std::shared_ptr<VDDownload>>& downloads) override;
    void downloadManagerActiveDownloadsDidChange(VDDownloadManager&) override { note(); }
    void downloadManagerDownloadsDidChange(VDDownloadManager&) override { note(); }

    // Each phase of one download once, in order, however often it was told.
    std::vector<std::string> phases(std::int64_t storeItem);
    std::size_t calls();
    // Waits for a call beyond so many; false when none comes in time.
    bool waitBeyond(std::size_t calls);

private:
    void note();

    std::mutex _mutex;  // protects what follows
    std::condition_variable _changed;
    std::size_t _calls = 0;
    std::vector<std::pair<std::int64_t, std::string>> _phases;
};

class DownloadsTest : public testing::Test {
protected:
    DownloadsTest();
    ~DownloadsTest() override;

    void start();
    // A service that has not begun to work.
    void open();
    void stop();
    // The number of the download; fails the test when the request is refused.
    std::int64_t request(const std::string& url, std::int64_t storeItem = 1);
    platform::OptionalError refusalOf(const downloads::DownloadRequest& request);
    static downloads::DownloadRequest requestFor(const std::string& url,
                                                 std::int64_t storeItem = 1);

    // Looks whenever observers are told something; false when it does not come true in time.
    bool waitFor(const std::function<bool()>& condition);
    bool waitUntilAllIsInstalled();
    bool waitForPhase(std::int64_t number, const std::string& phase);
    // Until so many bytes have come.
    bool waitForBytes(std::int64_t number, std::uint64_t bytes);
    downloads::DownloadStatus status(std::int64_t number);
    // What has been installed for a store item.
    std::string installedContent(std::int64_t storeItem = 1);
    std::vector<std::string> stagedFiles();
    // Every byte is another than its neighbours, so that a splice shows.
    static std::string content(std::size_t size, unsigned seed = 1);

    TemporaryDirectory root;
    support::RecordingLog log;
    downloads::EngineSettings settings;
    ManualTimeSystem system{root.path()};
    PlainInstaller installer{system.fileSystem()};
    std::shared_ptr<PhaseObserver> observer = std::make_shared<PhaseObserver>();
    std::shared_ptr<VDDownloadManager> manager;
    std::unique_ptr<downloads::DownloadService> service;
};

}  // namespace test
