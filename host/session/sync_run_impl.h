// Purpose: what a run holds and does, in order. sync_run.cpp defines what comes before the session
// with the device, sync_run_session.cpp the session.
// Thread: the run's, unless a member says otherwise.
// Ownership: of one SyncRun.
// Failure: each step gives the error that ends the run.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/session/device_connection.h"
#include "host/session/device_lists.h"
#include "host/session/folder_assets.h"
#include "host/session/folder_library.h"
#include "host/session/sync_run.h"
#include "host/session/sync_session.h"
#include "host/session/upload_requests.h"

namespace host {

platform::OptionalError errorOfRefusal(const PlanRefusal& refusal);

struct SyncRun::Impl {
    Impl(SyncOptions given, SyncReporter& to, Progress& shown)
        : options(std::move(given)),
          reporter(to),
          progress(shown),
          library(shown, stop.get_token()) {}

    const SyncOptions options;
    SyncReporter& reporter;
    Progress& progress;
    std::stop_source stop;
    FolderLibrary library;
    std::unique_ptr<DeviceConnection> connection;
    DeviceLists lists;
    UploadRequests uploads;
    PlanDevice device;
    bool upToDate = false;  // the folder says what it said when the device was last synced
    bool savedChanges = false;
    std::int64_t coveredRevision = 0;
    bool ranOutOfSpace = false;
    Plan plan;
    SyncSummary summary;
    std::vector<FailedItem> failedNow;               // in this run
    std::unordered_set<std::string> deliveredPaths;  // likewise

    std::mutex sessionMutex;               // protects the pointer, which interrupt() reads
    std::unique_ptr<SyncSession> session;  // used by the run's thread

    DeviceState& deviceState() { return library.state().devices[device.libraryUid]; }

    platform::OptionalError run();
    platform::OptionalError askDevice();
    platform::OptionalError learnDevice();
    bool isUpToDate();
    platform::OptionalError preparePlan();
    platform::OptionalError prepareRun();
    platform::OptionalError runSession();
    void startSession();
    platform::OptionalError openSession();
    platform::OptionalError openPatiently(const SessionOpening& opening, OpenedSession& opened);
    void takeOwnerChanges(const OpenedSession& opened);
    platform::OptionalError import();
    platform::OptionalError sendHostData();
    platform::OptionalError recordImport(const std::string& storedAnchor);
    platform::OptionalError transfer();
    bool isHeldBack(const OutstandingAsset& asset) const;
    platform::OptionalError receiveUploads(std::vector<OutstandingAsset>& assets);
    platform::OptionalError sendAssets(std::vector<OutstandingAsset>& assets);
    void takeOutcome(const AssetOutcome& outcome, const FolderAssets& source);
    platform::OptionalError finish();
    void reportFolderFailures();
    void reportDisabled();
    ContentHash digest() const;
    void countFailure(const ItemFailure& failure);
    void rememberFailures(bool isComplete);
    platform::OptionalError stopped();
};

}  // namespace host
