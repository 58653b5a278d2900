#include "device/korvane/import/import_service.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "device/korvane/import/host_data_import.h"
#include "device/korvane/import/import_cancellation.h"
#include "device/korvane/import/metadata_update_import.h"
#include "device/korvane/library.h"
#include "device/korvane/save/host_saver.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

using platform::Error;
using platform::OptionalError;

struct ImportService::Request {
    std::int64_t source = 0;
    std::string databasePath;
    std::optional<platform::Data> trackData;
    std::optional<platform::Data> playlistData;
    platform::Dictionary options;
};

struct ImportService::State {
    explicit State(std::shared_ptr<Library> owner)
        : library(std::move(owner)),
          queue(library->configuration().system.makeSerialQueue("KVMediaLibraryService")) {}

    const std::shared_ptr<Library> library;
    const std::shared_ptr<platform::WorkQueue> queue;
    ImportCancellation hostDataCancellation;
    ImportCancellation peerCancellation;
    std::mutex mutex;  // protects what follows
    std::optional<std::string> hostDataFile;
    std::optional<std::string> fullExchangeWith;
    std::optional<ImportRevisions> lastRevisions;
    ImportEffects lastEffects;
    OptionalError lastHostFailure;

    std::unique_ptr<platform::InputStream> openHostData() {
        std::lock_guard lock(mutex);
        return hostDataFile ? library->configuration().files.openInputStream(*hostDataFile)
                            : nullptr;
    }

    OptionalError import(const Request& request) {
        if (request.databasePath != library->configuration().databasePath) {
            return Error(KVMediaLibraryServiceErrorDomain, KVMediaLibraryServiceErrorDatabase,
                         "there is no library at " + request.databasePath);
        }
        if (request.source == KV3SourceSync) {
            return importChanges(request);
        }
        if (request.source != KV3SourceHostData || request.playlistData) {
            return Error(KVMediaLibraryServiceErrorDomain,
                         KVMediaLibraryServiceErrorUnsupportedSource,
                         "this kind of import is not supported");
        }
        OptionalError error = request.trackData
                                  ? importMetadataUpdate(*library, *request.trackData,
                                                         anchorOf(request), hostDataCancellation)
                                  : importHost(request);
        std::lock_guard lock(mutex);
        lastHostFailure = error;
        return error;
    }

    static std::string anchorOf(const Request& request) {
        const platform::Value given(request.options);
        const std::string* anchor = given[KVImportOperationOptionSyncAnchorKey].string();
        return anchor ? *anchor : std::string();
    }

    OptionalError importHost(const Request& request) {
        HostDataImportOptions options;
        options.isReset =
            platform::Value(request.options)[KVImportOperationOptionIsResetSyncKey].boolValue();
        options.anchor = anchorOf(request);
        options.savedRevision = savedRevision(library->configuration().files, library->uid());
        options.nowMs = library->nowMilliseconds();
        return importHostData(library->connections(), recordsOf([this] { return openHostData(); }),
                              options, hostDataCancellation);
    }

    OptionalError importChanges(const Request& request) {
        PeerImportOptions options;
        options.ownUID = library->uid();
        {
            std::lock_guard lock(mutex);
            options.fullExchangeWith = std::exchange(fullExchangeWith, std::nullopt);
            lastRevisions.reset();
            lastEffects = {};
        }
        const auto given = [](const std::optional<platform::Data>& data) {
            return data ? &*data : nullptr;
        };
        const PeerImportResult result = importPeerChanges(
            library->connections(), {given(request.trackData), given(request.playlistData)},
            options, peerCancellation);
        std::lock_guard lock(mutex);
        lastRevisions = result.revisions;
        lastEffects = result.effects;
        return result.error;
    }

    // No exception leaves a job of the queue.
    OptionalError importGuarded(const Request& request) {
        try {
            return import(request);
        } catch (const std::exception& failure) {
            return Error(KVMediaLibraryServiceErrorDomain, KVMediaLibraryServiceErrorDatabase,
                         failure.what());
        }
    }

    void call(std::string_view operation, const std::function<void()>& completion) {
        try {
            completion();
        } catch (const std::exception& failure) {
            library->log().error(operation, failure.what());
        }
    }
};

ImportService::ImportService(std::shared_ptr<Library> library)
    : _state(std::make_shared<State>(std::move(library))) {}

ImportService::~ImportService() = default;

void ImportService::registerHostDataFile(const std::string& path) {
    std::lock_guard lock(_state->mutex);
    _state->hostDataFile = path;
}

void ImportService::unregisterHostDataFile() {
    std::lock_guard lock(_state->mutex);
    _state->hostDataFile.reset();
}

void ImportService::resetCancel() {
    _state->hostDataCancellation.reset();
    _state->peerCancellation.reset();
}

void ImportService::expectFullExchange(std::optional<std::string> peerUID) {
    std::lock_guard lock(_state->mutex);
    _state->fullExchangeWith = std::move(peerUID);
}

std::optional<ImportRevisions> ImportService::lastImportRevisions() const {
    std::lock_guard lock(_state->mutex);
    return _state->lastRevisions;
}

ImportEffects ImportService::lastImportEffects() const {
    std::lock_guard lock(_state->mutex);
    return _state->lastEffects;
}

OptionalError ImportService::lastHostImportFailure() const {
    std::lock_guard lock(_state->mutex);
    return _state->lastHostFailure;
}

void ImportService::performImportFromSource(std::int64_t source, const std::string& databasePath,
                                            std::optional<platform::Data> trackData,
                                            std::optional<platform::Data> playlistData,
                                            const platform::Dictionary& options,
                                            Completion completionHandler) {
    Request request{source, databasePath, std::move(trackData), std::move(playlistData), options};
    _state->queue->async(
        [state = _state, request = std::move(request), completion = std::move(completionHandler)] {
            const OptionalError error = state->importGuarded(request);
            state->call("performImportFromSource:", [&] { completion(!error, error); });
        });
}

void ImportService::cancelImportOperation(std::int64_t source,
                                          std::function<void()> completionHandler) {
    if (source == KV3SourceHostData) {
        _state->hostDataCancellation.ask();
    } else if (source == KV3SourceSync) {
        _state->peerCancellation.ask();
    }
    // Behind the import that runs, and those that wait and will now end at once.
    _state->queue->async([state = _state, completion = std::move(completionHandler)] {
        state->call("cancelImportOperation:", completion);
    });
}

}  // namespace korvane
