#include "device/downloads/download_service.h"

#include <algorithm>
#include <cerrno>
#include <exception>

#include "common/utf8.h"
#include "device/downloads/address.h"
#include "device/downloads/download_manager.h"
#include "device/downloads/media_name.h"

namespace downloads {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::size_t MaximumTitleSize = 1024;  // bytes

OptionalError refused(int errorNumber, std::string_view text) {
    return Error(platform::POSIXErrorDomain, errorNumber, text);
}

OptionalError problemOf(const DownloadRequest& request) {
    OptionalError error;
    if (!parseAddress(request.url, error))
        return error;
    if (request.storeItem == 0)
        return refused(EINVAL, "A download needs the store's number of the item, which is not 0.");
    if (request.storeAccount == 0)
        return refused(EINVAL, "A download needs the number of the account, which is not 0.");
    if (!isKnownKind(request.kind))
        return refused(EINVAL, "There is no such kind of download.");
    if (request.title.size() > MaximumTitleSize)
        return refused(EINVAL, "The title is too long.");
    if (!common::isUtf8(request.title))
        return refused(EINVAL, "The title is not valid UTF-8 text.");
    return std::nullopt;
}

bool isSame(const DownloadRecord& record, const DownloadRequest& request) {
    return record.number(PropertyStoreItemIdentifier) == request.storeItem ||
           record.text(PropertySource) == request.url ||
           (request.libraryItem != 0 &&
            record.libraryItemIdentifier == std::to_string(request.libraryItem));
}

DownloadItem itemOf(const DownloadRequest& request) {
    DownloadItem item;
    item.kind = request.kind;
    item.libraryItem = request.libraryItem;
    item.storeItem = request.storeItem;
    item.storeAccount = request.storeAccount;
    item.title = request.title;
    item.fileName = mediaFileName("", pathOfUrl(request.url), "");
    item.isTemporary = request.isTemporary;
    item.source = request.url;
    return item;
}

DownloadRecord recordOf(const DownloadRequest& request, const PreparedItem& prepared) {
    DownloadRecord record;
    record.kind = request.kind;
    record.phase = VDDownloadPhaseWaiting;
    record.libraryItemIdentifier = std::to_string(prepared.libraryItem);
    const auto set = [&](std::string_view property, platform::Value value) {
        record.properties.emplace(property, std::move(value));
    };
    set(PropertySource, request.url);
    set(PropertyStoreItemIdentifier, request.storeItem);
    set(PropertyStoreAccountIdentifier, request.storeAccount);
    set(PropertyIsTemporary, request.isTemporary);
    set(PropertyIsNewItem, prepared.isNew);
    if (!request.title.empty())
        set(PropertyTitle, request.title);
    return record;
}

DownloadRequest requestOf(const DownloadRecord& record) {
    const DownloadItem item = itemOf(record);
    DownloadRequest request;
    request.url = item.source;
    request.title = item.title;
    request.storeItem = item.storeItem;
    request.storeAccount = item.storeAccount;
    request.isTemporary = item.isTemporary;
    request.kind = item.kind;
    return request;
}

DownloadStatus statusOf(const DownloadRecord& record) {
    const DownloadItem item = itemOf(record);
    DownloadStatus status;
    status.number = record.persistentIdentifier;
    status.libraryItem = item.libraryItem;
    status.phase = record.phase;
    status.title = item.title.empty() ? nameStem(item.fileName) : item.title;
    status.source = record.text(PropertySource);
    status.bytes = static_cast<std::uint64_t>(record.number(PropertyBytes));
    if (record.properties.contains(PropertyTotalBytes))
        status.total = static_cast<std::uint64_t>(record.number(PropertyTotalBytes));
    status.error = record.text(PropertyError);
    return status;
}

}  // namespace

DownloadService::DownloadService(const DownloadEngine::Configuration& configuration)
    : _installer(configuration.installer),
      _list(
          std::make_shared<DownloadList>(configuration.fileSystem, configuration.log,
                                         configuration.system.makeSerialQueue("orlith.downloads"))),
      _manifestQueue(configuration.system.makeSerialQueue("orlith.downloads.manifest")),
      _manifest(std::make_shared<FileManifest>(configuration.fileSystem, configuration.log,
                                               configuration.installer, _manifestQueue)),
      _engine(configuration, _list, [manifest = _manifest] { manifest->forget(); }) {}

DownloadService::~DownloadService() = default;

void DownloadService::start() {
    _engine.start();
}

std::shared_ptr<VDDownloadManagerOptions> DownloadService::makeManagerOptions() {
    return std::make_shared<ManagerOptions>();
}

std::shared_ptr<VDDownloadManager> DownloadService::makeManager(
    std::shared_ptr<VDDownloadManagerOptions> options) {
    const auto own = std::dynamic_pointer_cast<ManagerOptions>(options);
    return _list->makeManager(own ? own->kinds() : std::nullopt);
}

std::shared_ptr<VDDownloadFileManifest> DownloadService::makeFileManifest(
    std::int64_t manifestType) {
    return manifestOfType(manifestType, _manifest, _manifestQueue);
}

std::optional<std::int64_t> DownloadService::request(const DownloadRequest& request,
                                                     OptionalError* error) {
    OptionalError ignored;
    OptionalError& problem = error ? *error : ignored;
    problem = problemOf(request);
    if (problem)
        return std::nullopt;
    try {
        const std::lock_guard lock(_requesting);
        return requestHoldingMutex(request, &problem);
    } catch (const std::exception& exception) {
        problem = refused(EIO, exception.what());
        return std::nullopt;
    }
}

std::optional<std::int64_t> DownloadService::requestHoldingMutex(const DownloadRequest& request,
                                                                 OptionalError* error) {
    const auto records = _list->all();
    const auto same = std::find_if(records.begin(), records.end(),
                                   [&](const auto& record) { return isSame(record, request); });
    if (same != records.end())
        return merge(*same, request);
    const auto prepared = _installer.prepare(itemOf(request), error);
    if (!prepared)
        return std::nullopt;
    const std::int64_t number = _list->add(recordOf(request, *prepared));
    _engine.add(number);
    return number;
}

// What has failed is tried again, from where it is asked for now; bytes of the same version stay.
std::int64_t DownloadService::merge(const DownloadRecord& record, const DownloadRequest& request) {
    const std::int64_t number = record.persistentIdentifier;
    if (record.phase == VDDownloadPhaseFailed) {
        platform::Dictionary changes{{std::string(PropertyError), nullptr}};
        if (record.text(PropertySource) != request.url) {
            changes.emplace(PropertySource, request.url);
            changes.emplace(PropertyIsReceived, nullptr);
        }
        _list->update(number, std::string(VDDownloadPhaseWaiting), changes);
        _engine.add(number);
    }
    return number;
}

void DownloadService::renewItems() {
    for (const DownloadRecord& record : _list->all()) {
        OptionalError error;
        const bool isThere = _installer.prepare(itemOf(record), &error).has_value();
        if (isThere || !error || error->domain != platform::POSIXErrorDomain ||
            error->code != ESRCH)
            continue;
        cancel(record.persistentIdentifier);
        request(requestOf(record), nullptr);
    }
}

bool DownloadService::isBusy() const {
    return std::ranges::any_of(_list->all(), [](const DownloadRecord& record) {
        return record.phase != VDDownloadPhaseFailed && record.phase != VDDownloadPhasePaused;
    });
}

std::vector<DownloadStatus> DownloadService::list() {
    std::vector<DownloadStatus> statuses;
    const auto progress = _engine.progress();
    for (const DownloadRecord& record : _list->all()) {
        DownloadStatus status = statusOf(record);
        if (const auto live = progress.find(status.number); live != progress.end()) {
            status.bytes = live->second.bytes;
            status.total = live->second.total;
        }
        statuses.push_back(std::move(status));
    }
    return statuses;
}

OptionalError DownloadService::cancel(std::int64_t number) {
    try {
        const auto record = _list->find(number);
        switch (_list->cancel(number)) {
            case DownloadList::Cancellation::Unknown:
                return refused(ENOENT, "There is no such download.");
            case DownloadList::Cancellation::TooLate:
                return refused(EBUSY, "The download is being installed.");
            case DownloadList::Cancellation::Done:
                break;
        }
        _engine.cancel(number);
        if (record && record->number(PropertyIsNewItem) != 0)
            _installer.abandon(itemOf(*record).libraryItem);
    } catch (const std::exception& exception) {
        return refused(EIO, exception.what());
    }
    return std::nullopt;
}

}  // namespace downloads
