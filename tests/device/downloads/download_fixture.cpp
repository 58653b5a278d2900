#include "tests/device/downloads/download_fixture.h"

#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <random>

#include "device/downloads/install_jobs.h"

namespace test {
namespace {

constexpr std::chrono::seconds Deadline{30};
constexpr std::int64_t ItemOffset = 5000;

}  // namespace

std::optional<downloads::PreparedItem> PlainInstaller::prepare(const downloads::DownloadItem& item,
                                                               platform::OptionalError* error) {
    const std::lock_guard lock(_mutex);
    if (std::ranges::find(_gone, item.libraryItem) != _gone.end()) {
        *error = platform::Error(platform::POSIXErrorDomain, ESRCH, "It has left the library.");
        return std::nullopt;
    }
    if (!_files.fileExists(pathOf(item.storeItem)))
        return downloads::PreparedItem{item.storeItem + ItemOffset, true};
    *error = platform::Error(platform::POSIXErrorDomain, EEXIST, "It is on the device already.");
    return std::nullopt;
}

platform::OptionalError PlainInstaller::install(const downloads::DownloadItem& item,
                                                const std::string& stagedPath) {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [&] { return !_isHeld; });
    if (!_errors.empty()) {
        const platform::Error error = _errors.front();
        _errors.erase(_errors.begin());
        return error;
    }
    _files.createDirectory("/var/mobile/Media/Purchases");
    const std::string path = pathOf(item.storeItem);
    if (_files.fileExists(stagedPath) || !_files.fileExists(path))
        if (const auto error = _files.renameReplacing(stagedPath, path))
            return error;
    _installed.push_back(item);
    return std::nullopt;
}

void PlainInstaller::abandon(std::int64_t libraryItem) {
    const std::lock_guard lock(_mutex);
    _abandoned.push_back(libraryItem);
}

bool PlainInstaller::sourceIsGone(std::int64_t libraryItem) {
    const std::lock_guard lock(_mutex);
    return std::erase(_waiting, libraryItem) != 0;
}

std::optional<std::vector<downloads::FileClass>> PlainInstaller::settleFiles(
    const std::vector<std::string>& names, platform::OptionalError* error) {
    const std::lock_guard lock(_mutex);
    ++_timesSettled;
    if (!_hasLibrary) {
        *error = platform::Error(platform::POSIXErrorDomain, EIO, "The library is away.");
        return std::nullopt;
    }
    std::vector<downloads::FileClass> classes;
    for (const std::string& name : names)
        classes.push_back(name.ends_with(".own")    ? downloads::FileClass::Backup
                          : name.ends_with(".none") ? downloads::FileClass::Unowned
                                                    : downloads::FileClass::Fetchable);
    return classes;
}

void PlainInstaller::setGone(std::vector<std::int64_t> gone) {
    const std::lock_guard lock(_mutex);
    _gone = std::move(gone);
}

void PlainInstaller::setWaiting(std::vector<std::int64_t> waiting) {
    const std::lock_guard lock(_mutex);
    _waiting = std::move(waiting);
}

std::size_t PlainInstaller::timesSettled() {
    const std::lock_guard lock(_mutex);
    return _timesSettled;
}

void PlainInstaller::loseLibrary() {
    const std::lock_guard lock(_mutex);
    _hasLibrary = false;
}

std::string PlainInstaller::pathOf(std::int64_t storeItem) {
    return "/var/mobile/Media/Purchases/" + std::to_string(storeItem + ItemOffset);
}

std::vector<downloads::DownloadItem> PlainInstaller::installed() {
    const std::lock_guard lock(_mutex);
    return _installed;
}

std::vector<std::int64_t> PlainInstaller::abandoned() {
    const std::lock_guard lock(_mutex);
    return _abandoned;
}

void PlainInstaller::fail(std::vector<platform::Error> errors) {
    const std::lock_guard lock(_mutex);
    _errors = std::move(errors);
}

void PlainInstaller::hold() {
    const std::lock_guard lock(_mutex);
    _isHeld = true;
}

void PlainInstaller::letGoOn() {
    const std::lock_guard lock(_mutex);
    _isHeld = false;
    _changed.notify_all();
}

void PhaseObserver::downloadManagerDownloadStatesDidChange(
    VDDownloadManager&, const std::vector<std::shared_ptr<VDDownload>>& downloads) {
    {
        const std::lock_guard lock(_mutex);
        for (const auto& download : downloads)
            _phases.emplace_back(
                download->valueForProperty(downloads::PropertyStoreItemIdentifier).int64Value(),
                download->downloadPhaseIdentifier());
    }
    note();
}

void PhaseObserver::note() {
    const std::lock_guard lock(_mutex);
    ++_calls;
    _changed.notify_all();
}

std::vector<std::string> PhaseObserver::phases(std::int64_t storeItem) {
    const std::lock_guard lock(_mutex);
    std::vector<std::string> phases;
    for (const auto& [item, phase] : _phases)
        if (item == storeItem && (phases.empty() || phases.back() != phase))
            phases.push_back(phase);
    return phases;
}

std::size_t PhaseObserver::calls() {
    const std::lock_guard lock(_mutex);
    return _calls;
}

bool PhaseObserver::waitBeyond(std::size_t calls) {
    std::unique_lock lock(_mutex);
    return _changed.wait_for(lock, Deadline, [&] { return _calls > calls; });
}

DownloadsTest::DownloadsTest() {
    // A proxy of the environment does not lead to this machine's own server.
    ::setenv("no_proxy", "*", 1);
    settings.progressInterval = 0;
    settings.queueInterval = 0;
    settings.retry.firstDelay = 0;
    settings.staging.syncInterval = 1;
}

DownloadsTest::~DownloadsTest() {
    installer.letGoOn();
    stop();
}

void DownloadsTest::start() {
    open();
    service->start();
}

void DownloadsTest::open() {
    service = std::make_unique<downloads::DownloadService>(downloads::DownloadEngine::Configuration{
        system.fileSystem(), log, system, installer, settings});
    manager = service->makeManager(nullptr);
    manager->addObserver(observer);
}

void DownloadsTest::stop() {
    service.reset();
    manager.reset();
}

downloads::DownloadRequest DownloadsTest::requestFor(const std::string& url,
                                                     std::int64_t storeItem) {
    downloads::DownloadRequest request;
    request.url = url;
    request.storeItem = storeItem;
    request.storeAccount = 77;
    return request;
}

std::int64_t DownloadsTest::request(const std::string& url, std::int64_t storeItem) {
    platform::OptionalError error;
    const auto number = service->request(requestFor(url, storeItem), &error);
    EXPECT_TRUE(number) << (error ? error->text() : "");
    return number.value_or(0);
}

platform::OptionalError DownloadsTest::refusalOf(const downloads::DownloadRequest& request) {
    platform::OptionalError error;
    EXPECT_FALSE(service->request(request, &error));
    return error;
}

bool DownloadsTest::waitFor(const std::function<bool()>& condition) {
    for (;;) {
        const std::size_t calls = observer->calls();
        if (condition())
            return true;
        if (!observer->waitBeyond(calls))
            return condition();
    }
}

bool DownloadsTest::waitUntilAllIsInstalled() {
    return waitFor([&] { return service->list().empty(); });
}

bool DownloadsTest::waitForPhase(std::int64_t number, const std::string& phase) {
    return waitFor([&] { return status(number).phase == phase; });
}

bool DownloadsTest::waitForBytes(std::int64_t number, std::uint64_t bytes) {
    return waitFor([&] { return status(number).bytes >= bytes; });
}

downloads::DownloadStatus DownloadsTest::status(std::int64_t number) {
    for (const downloads::DownloadStatus& status : service->list())
        if (status.number == number)
            return status;
    return {};
}

std::string DownloadsTest::installedContent(std::int64_t storeItem) {
    const auto bytes =
        system.fileSystem().readFile(PlainInstaller::pathOf(storeItem), 1 << 30, nullptr);
    return bytes ? std::string(bytes->begin(), bytes->end()) : std::string();
}

std::vector<std::string> DownloadsTest::stagedFiles() {
    return system.fileSystem()
        .contentsOfDirectory(downloads::StagingDirectory, nullptr)
        .value_or(std::vector<std::string>());
}

std::string DownloadsTest::content(std::size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(generator()); });
    return bytes;
}

}  // namespace test
