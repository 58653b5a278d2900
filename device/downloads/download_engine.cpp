#include "device/downloads/download_engine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <stdexcept>

#include "device/downloads/address.h"
#include "device/downloads/file_transfer.h"
#include "device/downloads/http_transfer.h"
#include "device/system/rooted_file_system.h"

namespace downloads {
namespace {

constexpr int LongestWait = 24 * 60 * 60 * 1000;  // milliseconds; whatever happens wakes earlier
constexpr platform::Nanoseconds TimerLeeway = 1'000'000;

CURLM* makeMulti() {
    static const CURLcode started = curl_global_init(CURL_GLOBAL_DEFAULT);
    CURLM* const multi = started == CURLE_OK ? curl_multi_init() : nullptr;
    if (!multi)
        throw std::runtime_error("The HTTP library does not start.");
    return multi;
}

// One that the list shows as under way and that is not is left from an error.
bool isPending(std::string_view phase) {
    return phase == VDDownloadPhaseWaiting || isActivePhase(phase);
}

bool isPosix(const platform::Error& error, int errorNumber) {
    return error.domain == platform::POSIXErrorDomain && error.code == errorNumber;
}

std::string phase(std::string_view name) {
    return std::string(name);
}

std::string key(std::string_view property) {
    return std::string(property);
}

}  // namespace

class DownloadEngine::Waker {
public:
    explicit Waker(CURLM* multi) : _multi(multi) {}
    void wake() {
        const std::lock_guard lock(_mutex);
        if (_multi)
            curl_multi_wakeup(_multi);
    }
    void retire() {
        const std::lock_guard lock(_mutex);
        _multi = nullptr;
    }

private:
    std::mutex _mutex;  // protects _multi
    CURLM* _multi;      // null once the engine ends
};

struct DownloadEngine::Active {
    std::unique_ptr<StagedDownload> staged;
    std::unique_ptr<Transfer> transfer;
    const HttpTransfer* http = nullptr;  // the transfer, when it is one by HTTP
    std::uint64_t seen = 0;              // bytes when the last movement was noted
    std::uint64_t told = 0;              // bytes when observers were told
    std::uint64_t atStart = 0;           // bytes that earlier attempts had brought
    platform::Nanoseconds lastMovement = 0;

    // Whether this attempt brought the download nearer to its end.
    bool hasGained() const { return !staged->validator().empty() && staged->received() > atStart; }
};

DownloadEngine::DownloadEngine(const Configuration& configuration,
                               std::shared_ptr<DownloadList> list, std::function<void()> installs)
    : _files(configuration.fileSystem),
      _log(configuration.log),
      _system(configuration.system),
      _settings(configuration.settings),
      _list(std::move(list)),
      _multi(makeMulti()),
      _waker(std::make_shared<Waker>(_multi.get())),
      _installs(std::make_shared<InstallJobs>(
          _files, _list, configuration.installer,
          _system.makeSerialQueue("orlith.downloads.install"),
          InstallJobs::Observers{std::move(installs), [waker = _waker] { waker->wake(); }})),
      _timer(_system.makeTimer(_system.globalQueue(platform::QueuePriority::Default))),
      _retries(_settings.retry) {
    if (const auto error = _files.createDirectory(StagingDirectory))
        throw std::runtime_error("Downloads have no place to come to: " + error->text());
    recover();
    _timer->setEventHandler([waker = _waker] { waker->wake(); });
    _timer->resume();
}

void DownloadEngine::start() {
    _thread = std::thread([this] { run(); });
}

DownloadEngine::~DownloadEngine() {
    {
        const std::lock_guard lock(_mutex);
        _commands.stops = true;
    }
    _waker->wake();
    if (_thread.joinable())
        _thread.join();
    _waker->retire();
    _installs->stop();
}

void DownloadEngine::add(std::int64_t persistentIdentifier) {
    {
        const std::lock_guard lock(_mutex);
        _commands.added.push_back(persistentIdentifier);
    }
    _waker->wake();
}

void DownloadEngine::cancel(std::int64_t persistentIdentifier) {
    {
        const std::lock_guard lock(_mutex);
        _commands.cancelled.push_back(persistentIdentifier);
    }
    _waker->wake();
}

std::map<std::int64_t, Progress> DownloadEngine::progress() const {
    const std::lock_guard lock(_mutex);
    return _progress;
}

// What was under way when the last engine ended waits again; bytes of what is gone are removed.
void DownloadEngine::recover() {
    std::set<std::string> known;
    for (const DownloadRecord& record : _list->all()) {
        known.insert(std::to_string(record.persistentIdentifier));
        if (isActivePhase(record.phase))
            _list->update(record.persistentIdentifier, phase(VDDownloadPhaseWaiting));
    }
    const auto names = _files.contentsOfDirectory(StagingDirectory, nullptr);
    for (const std::string& name : names.value_or(std::vector<std::string>()))
        if (!known.contains(name))
            _files.removeItem(fmt::format("{}/{}", StagingDirectory, name));
}

void DownloadEngine::run() {
    for (bool goesOn = true; goesOn;) {
        try {
            goesOn = workOnce();
        } catch (const std::exception& exception) {
            // The list cannot be written or memory is short: what is under way is broken off and
            // tried again.
            log(platform::LogLevel::Error, "run", exception.what());
            for (auto& [download, active] : _active)
                _retries.retry(download, true, std::nullopt, _system.monotonicTime());
            _active.clear();
            _mayStart = false;
            setTimer();
        }
    }
    for (auto& [download, active] : _active) {
        active->transfer.reset();
        try {
            active->staged->sync();
        } catch (const std::exception& exception) {
            log(platform::LogLevel::Warning, "stop", exception.what());
        }
    }
    _active.clear();
}

bool DownloadEngine::workOnce() {
    Commands commands;
    {
        const std::lock_guard lock(_mutex);
        std::swap(commands, _commands);
    }
    if (commands.stops)
        return false;
    carryOut(commands);
    takeInstallResults();
    startWhatMay();
    const bool isBusy = moveTransfers();
    endTransfers();
    publishProgress();
    tellProgress();
    setTimer();
    if (!_mayStart)
        curl_multi_poll(_multi.get(), nullptr, 0, isBusy ? 0 : LongestWait, nullptr);
    return true;
}

void DownloadEngine::carryOut(const Commands& commands) {
    for (const std::int64_t download : commands.cancelled) {
        _active.erase(download);
        _retries.forget(download);
        _files.unlink(stagingPath(download));
    }
    for (const std::int64_t download : commands.added)
        _retries.forget(download);
    _mayStart |= !commands.cancelled.empty() || !commands.added.empty();
}

void DownloadEngine::takeInstallResults() {
    for (const InstallJobs::Result& result : _installs->takeResults()) {
        _installing.erase(result.persistentIdentifier);
        _mayStart = _hasMoved = true;
        if (!result.error) {
            _retries.forget(result.persistentIdentifier);
            continue;
        }
        if (isPosix(*result.error, ESRCH)) {
            fail(result.persistentIdentifier, result.error->text());
            continue;
        }
        if (isPosix(*result.error, EBADMSG)) {
            beginOver(result.persistentIdentifier);
            failForGood(result.persistentIdentifier, result.error->text());
            continue;
        }
        if (isPosix(*result.error, ENOENT))
            beginOver(result.persistentIdentifier);
        again(result.persistentIdentifier, {Outcome::Kind::Passing, result.error->text()}, false);
    }
}

void DownloadEngine::startWhatMay() {
    const platform::Nanoseconds now = _system.monotonicTime();
    if (!_mayStart && _retries.nextDue(_lookedAt) > now)
        return;
    _mayStart = false;
    _lookedAt = now;
    for (const DownloadRecord& record : _list->all()) {
        const std::int64_t download = record.persistentIdentifier;
        if (!isPending(record.phase) || _retries.due(download) > now ||
            _active.contains(download) || _installing.contains(download))
            continue;
        if (record.number(PropertyIsReceived) != 0)
            install(download);
        else if (_active.size() < _settings.simultaneous)
            startTransfer(record);
    }
}

void DownloadEngine::startTransfer(const DownloadRecord& record) {
    const std::int64_t download = record.persistentIdentifier;
    platform::OptionalError error;
    const auto address = parseAddress(record.text(PropertySource), error);
    if (!address)
        return fail(download, error->text());
    StagedDownload::Kept kept{record.text(PropertyValidator), std::nullopt,
                              static_cast<std::uint64_t>(record.number(PropertyBytes))};
    if (record.properties.contains(PropertyTotalBytes))
        kept.total = static_cast<std::uint64_t>(record.number(PropertyTotalBytes));
    const StagedDownload::Keeper keeper{
        [this, download](const SourceVersion& version) {
            _list->keep(download, {{key(PropertyValidator), version.validator},
                                   {key(PropertyTotalBytes), version.total},
                                   {key(PropertyFileName), version.fileName},
                                   {key(PropertyBytes), 0}});
        },
        [this, download](std::uint64_t bytes) {
            _list->keep(download, {{key(PropertyBytes), bytes}});
        }};
    auto active = std::make_unique<Active>();
    active->staged =
        StagedDownload::open(_files, stagingPath(download), kept, _settings.staging, keeper, error);
    if (!active->staged)
        return fail(download, error->text());
    if (!_list->update(download, phase(VDDownloadPhaseDownloading), {{key(PropertyError), {}}}))
        return;
    if (address->scheme == Scheme::File) {
        active->transfer = std::make_unique<FileTransfer>(address->path, *active->staged);
    } else {
        auto http = std::make_unique<HttpTransfer>(_multi.get(), *address, *active->staged);
        active->http = http.get();
        active->transfer = std::move(http);
    }
    active->seen = active->told = active->atStart = active->staged->received();
    active->lastMovement = _system.monotonicTime();
    _active.emplace(download, std::move(active));
    _hasMoved = true;
}

void DownloadEngine::install(std::int64_t download) {
    _installing.insert(download);
    _installs->add(download);
}

// Whether a transfer has more to do at once.
bool DownloadEngine::moveTransfers() {
    int running = 0;
    curl_multi_perform(_multi.get(), &running);
    readMessages();
    bool isBusy = false;
    for (const auto& [download, active] : _active)
        isBusy |= active->transfer->step();
    noteMovement();
    return isBusy;
}

void DownloadEngine::readMessages() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(_multi.get(), &left)) {
        const CURL* const easy = message->easy_handle;
        const CURLcode code = message->data.result;
        for (const auto& [download, active] : _active)
            if (active->http && active->http->handle() == easy)
                static_cast<HttpTransfer&>(*active->transfer).over(code);
    }
}

void DownloadEngine::noteMovement() {
    const platform::Nanoseconds now = _system.monotonicTime();
    for (const auto& [download, active] : _active) {
        const std::uint64_t bytes = active->staged->received();
        if (bytes == active->seen)
            continue;
        active->seen = bytes;
        _hasMoved = true;
        active->lastMovement = now;
    }
}

void DownloadEngine::endTransfers() {
    const platform::Nanoseconds now = _system.monotonicTime();
    for (auto next = _active.begin(); next != _active.end();) {
        auto& [download, active] = *next;
        const bool isStalled = now - active->lastMovement >= _settings.stallLimit;
        if (!active->transfer->outcome() && !isStalled) {
            ++next;
            continue;
        }
        const auto ended = _active.extract(next++);
        end(ended.key(), *ended.mapped());
        _mayStart = true;
    }
}

void DownloadEngine::end(std::int64_t download, Active& active) {
    const Outcome outcome = active.transfer->outcome().value_or(
        Outcome{Outcome::Kind::Passing, "Nothing came any more."});
    active.transfer.reset();
    switch (outcome.kind) {
        case Outcome::Kind::Complete:
            return received(download, active);
        case Outcome::Kind::Changed:
            beginOver(download);
            return again(download, outcome, false);
        case Outcome::Kind::Passing:
            active.staged->sync();
            return again(download, outcome, active.hasGained());
        case Outcome::Kind::Refused:
            active.staged->sync();
            return outcome.isGone ? failForGood(download, outcome.reason)
                                  : fail(download, outcome.reason);
    }
}

void DownloadEngine::received(std::int64_t download, Active& active) {
    if (const auto error = active.staged->sync())
        return again(download, {Outcome::Kind::Passing, error->text()}, false);
    if (_list->keep(download, {{key(PropertyIsReceived), true}}))
        install(download);
}

void DownloadEngine::again(std::int64_t download, const Outcome& outcome, bool hasGained) {
    if (!_retries.retry(download, hasGained, outcome.retryAfter, _system.monotonicTime()))
        return fail(download, outcome.reason);
    _list->update(download, phase(VDDownloadPhaseWaiting), {{key(PropertyError), outcome.reason}});
    log(platform::LogLevel::Info, "again",
        fmt::format("Download {} is tried again later. {}", download, outcome.reason));
}

void DownloadEngine::fail(std::int64_t download, const std::string& reason) {
    _retries.forget(download);
    _mayStart = true;
    if (_list->update(download, phase(VDDownloadPhaseFailed), {{key(PropertyError), reason}}))
        log(platform::LogLevel::Warning, "fail",
            fmt::format("Download {} failed. {}", download, reason));
}

void DownloadEngine::failForGood(std::int64_t download, const std::string& reason) {
    fail(download, reason);
    _installs->giveUp(download);
}

void DownloadEngine::beginOver(std::int64_t download) {
    _list->keep(download, {{key(PropertyValidator), {}},
                           {key(PropertyTotalBytes), {}},
                           {key(PropertyIsReceived), {}},
                           {key(PropertyBytes), 0}});
}

void DownloadEngine::tellProgress() {
    const platform::Nanoseconds now = _system.monotonicTime();
    if (now - _progressTold >= _settings.progressInterval) {
        _progressTold = now;
        for (const auto& [download, active] : _active)
            if (active->told != active->seen) {
                active->told = active->seen;
                _list->tell(download);
            }
    }
    if (_hasMoved && now - _queueTold >= _settings.queueInterval) {
        _queueTold = now;
        _hasMoved = false;
        for (const DownloadRecord& record : _list->all())
            if (record.phase == VDDownloadPhaseWaiting)
                _list->tell(record.persistentIdentifier);
    }
}

void DownloadEngine::publishProgress() {
    std::map<std::int64_t, Progress> progress;
    for (const auto& [download, active] : _active)
        progress[download] = {active->staged->received(), active->staged->total()};
    const std::lock_guard lock(_mutex);
    _progress.swap(progress);
}

void DownloadEngine::setTimer() {
    const platform::Nanoseconds now = _system.monotonicTime();
    platform::Nanoseconds next = _retries.nextDue(now);
    for (const auto& [download, active] : _active) {
        next = std::min(next, active->lastMovement + _settings.stallLimit);
        if (active->told != active->seen)
            next = std::min(next, _progressTold + _settings.progressInterval);
    }
    if (_hasMoved)
        next = std::min(next, _queueTold + _settings.queueInterval);
    // One that comes early does no harm; most turns of the thread only move the time on.
    if (_timerDue > now && _timerDue <= next)
        return;
    _timerDue = next;
    _timer->setTimer(next, platform::Never, TimerLeeway);
}

void DownloadEngine::log(platform::LogLevel level, std::string_view operation,
                         std::string text) const {
    _log.log({level, LogCategory, "device/downloads/download_engine", std::string(operation),
              __LINE__, std::move(text)});
}

}  // namespace downloads
