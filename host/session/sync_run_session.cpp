#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "common/property_list/property_list.h"
#include "host/kenning/kenning.h"
#include "host/plan/owner_changes.h"
#include "host/plan/scan_merge.h"
#include "host/scan/file_names.h"
#include "host/session/host_data.h"
#include "host/session/link_error.h"
#include "host/session/session_stream.h"
#include "host/session/sync_run_impl.h"
#include "link/anchors.h"

namespace host {

using platform::OptionalError;

namespace {

constexpr std::chrono::seconds BusyPatience{3};
constexpr std::chrono::milliseconds BusyRetryInterval{100};
constexpr const char* HostVersion = "orlith 1";

std::string machineName() {
    char name[256] = {};
    return ::gethostname(name, sizeof name - 1) == 0 ? name : "host";
}

void sendFailedOnesFirst(std::vector<OutstandingAsset>& assets, const FolderAssets& source,
                         const std::vector<FailedItem>& failed) {
    std::unordered_set<std::string_view> paths;
    for (const FailedItem& item : failed)
        paths.insert(item.path);
    std::ranges::stable_partition(assets, [&](const OutstandingAsset& asset) {
        const KnownFile* file = source.fileOf(asset);
        return file != nullptr && paths.contains(file->media.stamp.path);
    });
}

}  // namespace

OptionalError SyncRun::Impl::runSession() {
    OptionalError error = openSession();
    if (!error)
        error = import();
    if (!error)
        error = transfer();
    if (error) {
        progress.phase("ending the session");
        session->close();
        // What was acknowledged stays acknowledged.
        if (!device.libraryUid.empty()) {
            deviceState().digest = {};
            rememberFailures(false);
            if (auto failed = library.store().save(library.state()))
                return failed;
            if (auto failed = library.store().saveDevice(library.state(), deviceState()))
                return failed;
        }
        return error;
    }
    return finish();
}

void SyncRun::Impl::startSession() {
    auto started = std::make_unique<SyncSession>(connection->startSession());
    const std::scoped_lock lock(sessionMutex);
    session = std::move(started);
}

// A host that has just died holds the device until its daemon notices, which takes a moment.
OptionalError SyncRun::Impl::openPatiently(const SessionOpening& opening, OpenedSession& opened) {
    const auto deadline = std::chrono::steady_clock::now() + BusyPatience;
    for (;;) {
        startSession();
        if (auto error = stopped())
            return error;
        const OptionalError error = session->open(opening, opened);
        const bool isBusy =
            error && error->domain == LinkErrorDomain && error->code == LinkErrorBusy;
        if (!isBusy || std::chrono::steady_clock::now() >= deadline)
            return error;
        std::this_thread::sleep_for(BusyRetryInterval);
    }
}

OptionalError SyncRun::Impl::openSession() {
    progress.phase("preparing the device");
    const SessionOpening opening{library.state().hostUid, machineName(), deviceState().anchor,
                                 HostVersion};
    OpenedSession opened;
    if (auto error = openPatiently(opening, opened))
        return error;
    for (const std::string& notice : opened.notices)
        reporter.notice("the device reports: " + notice);
    if (opened.libraryUid != device.libraryUid ||
        orlith::link::anchorOfSync(opened.anchor) != device.anchor)
        return platform::Error(SyncErrorDomain, SyncErrorDeviceChanged,
                               "the device was changed by someone else meanwhile; run it again");
    device.freeBytes = opened.freeBytes;
    const bool isAsPlanned = device.disabledKinds == opened.disabledKinds;
    device.disabledKinds = opened.disabledKinds;
    takeOwnerChanges(opened);
    if (!savedChanges && isAsPlanned)
        return std::nullopt;
    if (auto error = preparePlan())
        return error;
    if (plan.refusal)
        return errorOfRefusal(*plan.refusal);
    return library.store().save(library.state());
}

void SyncRun::Impl::takeOwnerChanges(const OpenedSession& opened) {
    OwnerChanges changes;
    for (const std::string* stream : {&opened.savedMetadata, &opened.savedPlaylists})
        if (auto error = mergeOwnerChanges(*stream, library.state(), deviceState(), library.ids(),
                                           changes)) {
            reporter.notice("what the device saved of its owner's changes cannot be read (" +
                            error->text() + "); it stays there and is asked for again");
            // So the device does not take it for acknowledged.
            coveredRevision = 1;
        }
    savedChanges = changes.records > 0;
    for (const std::string& text : changes.shown)
        reporter.deviceChange(text);
}

OptionalError SyncRun::Impl::import() {
    progress.phase("sending the list");
    if (plan.syncType != 0)
        if (auto error = sendHostData())
            return error;
    if (!uploads.empty())
        if (auto error = session->sendSettings("Sync_1.plist", uploads.settings()))
            return error;
    if (plan.everything && options.withRecommendations) {
        const auto plist = common::serializePropertyList(
            kenningConfiguration(), platform::PropertyListFormat::Binary, nullptr);
        if (plist)
            if (auto error =
                    session->sendKenningConfiguration(std::string(plist->begin(), plist->end())))
                return error;
    }
    FolderState& state = library.state();
    std::string anchor = deviceState().anchor;
    if (plan.syncType != 0) {
        anchor = fmt::format("{}-{}", state.hostUid.substr(0, 16), ++state.anchorCounter);
        progress.phase("the device takes in the list");
    }
    std::string storedAnchor;
    if (auto error = session->reconcile(plan.syncType, anchor, storedAnchor))
        return error;
    return recordImport(storedAnchor);
}

OptionalError SyncRun::Impl::sendHostData() {
    HostDataFile file(defaultStateDirectory());
    if (auto error = file.write({plan, library.state(), library.materials(), device.libraryUid,
                                 coveredRevision, uploads.named}))
        return error;
    return session->sendHostData(file.path());
}

OptionalError SyncRun::Impl::recordImport(const std::string& storedAnchor) {
    summary.unchanged = plan.unchanged;
    if (plan.syncType == 0)
        return std::nullopt;
    summary.removed = plan.count(PlanStep::Action::Remove);
    summary.playlists = plan.count(PlanStep::Action::Playlist);
    applyImportedPlan(plan, library.state(), deviceState());
    deviceState().anchor = storedAnchor;
    deviceState().digest = {};
    return library.store().saveDevice(library.state(), deviceState());
}

OptionalError SyncRun::Impl::transfer() {
    progress.phase("asking for what is missing");
    std::vector<OutstandingAsset> assets;
    if (auto error = session->askOutstanding(assets))
        return error;
    if (auto error = receiveUploads(assets))
        return error;
    std::erase_if(assets, [this](const OutstandingAsset& asset) {
        return !asset.isDownload || isHeldBack(asset);
    });
    if (assets.empty())
        return std::nullopt;
    return sendAssets(assets);
}

// The device lists what it lacks, whether or not its cloud library is to bring it now.
bool SyncRun::Impl::isHeldBack(const OutstandingAsset& asset) const {
    const KnownFile* file =
        library.state().fileWithSyncId(std::strtoll(asset.identifier.c_str(), nullptr, 10));
    return !plan.complete && file != nullptr &&
           isDisabled(file->media.mediaType, device.disabledKinds);
}

OptionalError SyncRun::Impl::receiveUploads(std::vector<OutstandingAsset>& assets) {
    const std::string directory = fmt::format("{}/{}", library.folder(), UploadFolderName);
    for (const OutstandingAsset& asset : assets) {
        if (asset.isDownload)
            continue;
        progress.phase("receiving from the device");
        const UploadRequests::Item* item = uploads.itemOf(asset.identifier);
        const std::string extension = extensionOfPath(asset.fileName);
        std::string name = item != nullptr && !item->fileName.empty()
                               ? item->fileName
                               : std::string(stemOfPath(asset.fileName));
        if (!extension.empty())
            name += "." + extension;
        UploadOutcome outcome;
        if (auto error = session->receiveUpload(asset, directory, name, outcome))
            return error;
        if (!outcome.failure.empty()) {
            countFailure({name, outcome.failure, ItemFailure::Kind::Transfer});
            continue;
        }
        ++summary.uploaded;
        reporter.notice("received " + displayText(outcome.path) +
                        (asset.deleteAfterUpload && !outcome.deleted
                             ? "; the device could not delete its own"
                             : ""));
        if (const KnownFile* file = outcome.deleted ? library.state().fileWithSyncId(std::strtoll(
                                                          asset.identifier.c_str(), nullptr, 10))
                                                    : nullptr)
            deviceState().tracks.erase(file->syncId);
    }
    return std::nullopt;
}

OptionalError SyncRun::Impl::sendAssets(std::vector<OutstandingAsset>& assets) {
    const bool needsMaterials = std::ranges::any_of(assets, [](const OutstandingAsset& asset) {
        return (asset.parts & (AssetPartArtwork | AssetPartKenning)) != 0;
    });
    if (needsMaterials && !library.hasMaterials()) {
        library.readPlaylists();
        if (auto error = library.makeMaterials(options.withRecommendations))
            return error;
    }
    FolderAssets source(library.folder(), library.state(), library.materials());
    sendFailedOnesFirst(assets, source, deviceState().failed);
    if (auto error =
            session->askPartial(assets, [&](const OutstandingAsset& asset, std::uint64_t bytes) {
                return source.prefixHash(asset, bytes);
            }))
        return error;
    std::size_t files = 0;
    std::uint64_t bytes = 0;
    for (const OutstandingAsset& asset : assets) {
        const KnownFile* file = source.fileOf(asset);
        if (file == nullptr || (asset.parts & AssetPartFile) == 0)
            continue;
        ++files;
        bytes += static_cast<std::uint64_t>(file->media.stamp.size) - asset.resumeFrom;
    }
    progress.startTransfer("sending", files, bytes);
    TransferEvents events;
    events.sent = [&](std::uint64_t sent) {
        summary.bytes = sent;
        progress.transferred(summary.sent, sent);
    };
    std::size_t strangers = 0;
    events.finished = [&](const AssetOutcome& outcome) {
        if (source.fileOf(*outcome.asset) == nullptr)
            ++strangers;
        else
            takeOutcome(outcome, source);
    };
    OptionalError error = session->transfer(assets, source, events);
    // What another device brought in, and nothing of this folder.
    if (strangers > 0)
        reporter.notice(
            fmt::format("the device still lacks {} of another device's tracks; "
                        "`orlith mirror` brings them",
                        plural(strangers, "file or cover", "files and covers")));
    return error;
}

void SyncRun::Impl::takeOutcome(const AssetOutcome& outcome, const FolderAssets& source) {
    const bool hasFile = (outcome.asset->parts & AssetPartFile) != 0;
    ranOutOfSpace = ranOutOfSpace || outcome.noSpace;
    KnownFile* file = nullptr;
    if (const KnownFile* found = source.fileOf(*outcome.asset))
        file = library.state().fileWithSyncId(found->syncId);
    if (!outcome.reason.empty())
        countFailure({source.nameOf(*outcome.asset), outcome.reason,
                      outcome.noSpace ? ItemFailure::Kind::Space : ItemFailure::Kind::Transfer});
    if (file != nullptr && file->failure != outcome.reason) {
        file->failure = outcome.reason;
        file->changed = true;
    }
    if (!hasFile || file == nullptr)
        return;
    SentTrack& sent = deviceState().tracks[file->syncId];
    sent.delivered = outcome.success;
    if (outcome.success) {
        ++summary.sent;
        deliveredPaths.insert(file->media.stamp.path);
        sent.content = outcome.fileHash;
        progress.transferred(summary.sent, summary.bytes);
    }
}

OptionalError SyncRun::Impl::finish() {
    progress.phase("ending the session");
    if (auto error = session->end(summary.failed == 0, summary.anchor))
        return error;
    reportFolderFailures();
    reportDisabled();
    DeviceState& known = deviceState();
    const ContentHash now = summary.failed == 0 ? digest() : ContentHash{};
    const bool hadFailures = !known.failed.empty();
    rememberFailures(true);
    if (plan.syncType != 0 || summary.sent != 0 || summary.failed != 0 || hadFailures ||
        known.digest != now) {
        known.digest = now;
        if (auto error = library.store().save(library.state()))
            return error;
        if (auto error = library.store().saveDevice(library.state(), known))
            return error;
    }
    if (ranOutOfSpace)
        return platform::Error(SyncErrorDomain, SyncErrorNoSpace,
                               "the device ran out of space; what is there is complete, and the "
                               "next run goes on");
    return std::nullopt;
}

}  // namespace host
