#include "host/session/sync_run.h"

#include <future>

#include "host/plan/scan_merge.h"
#include "host/session/device_channel.h"
#include "host/session/link_error.h"
#include "host/session/sync_run_impl.h"
#include "link/anchors.h"
#include "link/orlith.pb.h"

namespace host {

using platform::OptionalError;

OptionalError errorOfRefusal(const PlanRefusal& refusal) {
    const bool isGuard = refusal.reason == PlanRefusal::Reason::DeleteGuard;
    return platform::Error(SyncErrorDomain, isGuard ? SyncErrorDeleteGuard : SyncErrorNoSpace,
                           refusal.text);
}

SyncRun::SyncRun(SyncOptions options, SyncReporter& reporter, Progress& progress)
    : _impl(std::make_unique<Impl>(std::move(options), reporter, progress)) {}

SyncRun::~SyncRun() = default;

const SyncSummary& SyncRun::summary() const {
    return _impl->summary;
}

OptionalError SyncRun::run() {
    return _impl->run();
}

void SyncRun::interrupt() {
    _impl->stop.request_stop();
    const std::scoped_lock lock(_impl->sessionMutex);
    if (_impl->session)
        _impl->session->interrupt();
}

OptionalError SyncRun::Impl::stopped() {
    if (stop.stop_requested())
        return cancelledError();
    return std::nullopt;
}

OptionalError SyncRun::Impl::run() {
    if (auto error = library.open(options.folder))
        return error;
    if (!library.store().setAside().empty())
        reporter.notice("the host's state was damaged; it lies in " + library.store().setAside() +
                        " now, and is rebuilt from the device");
    // The daemon may have to start first, which takes as long as reading the folder.
    OptionalError connectError;
    std::future<std::unique_ptr<DeviceConnection>> connecting = std::async(std::launch::async, [&] {
        return connectTo<DeviceConnection>(options.deviceDirectory, &connectError);
    });
    const OptionalError scanError = library.scan();
    connection = connecting.get();
    if (scanError)
        return scanError;
    if (!connection)
        return connectError;
    if (auto error = askDevice())
        return error;
    if (auto error = preparePlan())
        return error;
    if (auto error = stopped())
        return error;
    if (options.dryRun) {
        reporter.plan(plan, library.state());
        reportDisabled();
        reportFolderFailures();
    }
    if (plan.refusal)
        return errorOfRefusal(*plan.refusal);
    if (options.dryRun)
        return std::nullopt;
    if (auto error = prepareRun())
        return error;
    return runSession();
}

OptionalError SyncRun::Impl::askDevice() {
    orlith::link::StatusReply status;
    if (auto error = connection->status({}, status))
        return error;
    device = {status.library_uid(),
              orlith::link::anchorOfSync(status.anchor()),
              status.free_bytes(),
              {status.disabled_kinds().begin(), status.disabled_kinds().end()}};
    summary.anchor = status.anchor();
    return learnDevice();
}

// What the host remembers of the device holds only while their anchors agree.
OptionalError SyncRun::Impl::learnDevice() {
    FolderState& state = library.state();
    const auto known = state.devices.find(device.libraryUid);
    const bool agrees = known != state.devices.end() && !known->second.anchor.empty() &&
                        known->second.anchor == device.anchor;
    if (!agrees || !options.uploads.empty()) {
        progress.phase("asking the device what it has");
        if (auto error = readDeviceLists(*connection, lists))
            return error;
    }
    if (!agrees)
        library.adopt(device.libraryUid, lists.tracks, lists.playlists);
    return resolveUploads(options.uploads, options.deleteAfterUpload, lists.tracks, library.ids(),
                          uploads);
}

bool SyncRun::Impl::isUpToDate() {
    const DeviceState& known = deviceState();
    if (options.plan.reset || !uploads.empty() || known.anchor != device.anchor ||
        known.anchor.empty() || known.digest == ContentHash{})
        return false;
    for (const KnownFile& file : library.state().files) {
        if (options.plan.remove && file.presence == Presence::Missing &&
            known.tracks.contains(file.syncId))
            return false;
        if (options.plan.sendRemoved && file.removedByOwner)
            return false;
    }
    return known.digest == digest();
}

// Of what the folder would tell this device.
ContentHash SyncRun::Impl::digest() const {
    const ContentHash folder = library.digest(options.withRecommendations);
    if (device.disabledKinds.empty())
        return folder;
    std::string text = bytesOfContentHash(folder);
    for (const std::string& kind : device.disabledKinds)
        text += kind + "\n";
    return contentHashOfText(text);
}

void SyncRun::Impl::reportDisabled() {
    summary.disabled = plan.disabled;
    if (plan.disabled > 0)
        reporter.disabled(device.disabledKinds, plan.disabled);
}

OptionalError SyncRun::Impl::preparePlan() {
    upToDate = !savedChanges && isUpToDate();
    if (upToDate) {
        plan = Plan();
        for (const KnownFile& file : library.state().files)
            if (deviceState().tracks.contains(file.syncId)) {
                ++plan.unchanged;
                plan.keptThoughMissing += file.presence == Presence::Missing;
            }
        plan.disabled = disabledFiles(library.state(), device);
        return std::nullopt;
    }
    library.readPlaylists();
    if (!library.hasMaterials())
        if (auto error = library.makeMaterials(options.withRecommendations))
            return error;
    progress.phase("planning");
    plan = makePlan({library.state(), library.materials().tracks, device, options.plan,
                     savedChanges, !uploads.named.empty()});
    return std::nullopt;
}

// Identities must be on disk before a device hears of them.
OptionalError SyncRun::Impl::prepareRun() {
    if (upToDate)
        return std::nullopt;
    bool someFailed = false;
    if (auto error = library.hashNewFiles(someFailed))
        return error;
    if (someFailed)
        if (auto error = library.makeMaterials(options.withRecommendations))
            return error;
    if (auto error = preparePlan())
        return error;
    return library.store().save(library.state());
}

void SyncRun::Impl::reportFolderFailures() {
    for (const ItemFailure& failure : library.failures())
        countFailure(failure);
}

void SyncRun::Impl::countFailure(const ItemFailure& failure) {
    ++summary.failed;
    failedNow.push_back({failure.path, failure.reason, nextStepAfter(failure)});
    reporter.failure(failure);
}

// A run that was broken off has not come to everything: what failed before stays noted unless it
// has been delivered now, or has failed again.
void SyncRun::Impl::rememberFailures(bool isComplete) {
    std::vector<FailedItem>& known = deviceState().failed;
    std::unordered_set<std::string> settled = deliveredPaths;
    for (const FailedItem& item : failedNow)
        settled.insert(item.path);
    if (!isComplete)
        for (const FailedItem& item : known)
            if (!settled.contains(item.path))
                failedNow.push_back(item);
    known = failedNow;
}

}  // namespace host
