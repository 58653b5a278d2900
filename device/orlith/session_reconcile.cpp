// A session's import, the list of what is to be transferred, and the session's end.
#include <fmt/format.h>

#include "device/orlith/asset.h"
#include "device/orlith/daemon_log.h"
#include "device/orlith/names.h"
#include "device/orlith/session.h"
#include "device/orlith/session_error.h"
#include "device/orlith/staged_media.h"

namespace orlith {
namespace {

using platform::Error;
using platform::LogLevel;
using platform::OptionalError;

constexpr std::size_t LongestAnchor = 256;
// Assets of one message; far below the limit of a message's size.
constexpr int OutstandingBatch = 500;

std::string fileNameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

void Session::reconcile(const link::Reconcile& message) {
    require(Step::Prepared, Step::Prepared, "reconciling");
    if (message.new_anchor().size() > LongestAnchor)
        throw protocolError("the new anchor is too long");
    _step = Step::Reconciled;
    _importPending = true;
    post([this, type = message.sync_type(), anchor = message.new_anchor()] {
        if (_abandoned)
            return;
        if (type == ORSyncReset)
            moveMediaAsideForReset();
        OptionalError error;
        bool success = false;
        if (_services.client.respondsTo(ORClientOperation::reconcileSync))
            success = _services.client.reconcileSync(
                type, anchor, [](double) {}, &error);
        _importPending = false;
        _reconcileSucceeded = success;
        // The reset's staging directory exists between sessions.
        putMediaBack(_services.files);
        removeHostData();
        link::FromDevice answer;
        link::Reconciled& reconciled = *answer.mutable_reconciled();
        reconciled.set_success(success);
        if (!success)
            fillFailure(error.value_or(Error(OrlithErrorDomain, OrlithErrorRefused,
                                             "the device could not import the host's data")),
                        *reconciled.mutable_failure());
        reconciled.set_anchor(_services.library.anchor());
        reconciled.set_revision(_services.library.revision());
        send(answer);
    });
}

void Session::moveMediaAsideForReset() {
    const std::size_t moved =
        moveMediaAside(_services.files, _services.library.filesHeldByHostAlone());
    log(LogLevel::Info, fmt::format("moved {} media files aside for a reset", moved));
}

// On the reader: the import may be running, or not have begun, which the import service remembers.
void Session::cancelImport() {
    if (_step < Step::Opened ||
        !_services.client.respondsTo(ORClientOperation::cancelSyncOperations))
        return;
    try {
        _services.client.cancelSyncOperations();
    } catch (const std::exception& error) {
        fail(internalError(error.what()));
    }
}

void Session::listOutstanding() {
    require(Step::Reconciled, Step::Transferring, "the question for outstanding assets");
    _step = Step::Transferring;
    post([this] {
        if (!_reconcileSucceeded)
            throw SessionError(Error(OrlithErrorDomain, OrlithErrorImport,
                                     "the import has failed, so nothing is outstanding"));
        const std::vector<std::shared_ptr<ORAsset>> assets = outstandingAssets();
        {
            const std::scoped_lock lock(_listedMutex);
            _listed.clear();
            for (const std::shared_ptr<ORAsset>& asset : assets)
                _listed.emplace(asset->identifier(), ListedAsset{asset, partsOf(*asset)});
        }
        sendOutstanding(assets);
    });
}

std::vector<std::shared_ptr<ORAsset>> Session::outstandingAssets() {
    _transfersBegan = true;
    _services.library.adoptFoundPictures();
    if (!_services.client.respondsTo(
            ORClientOperation::outstandingAssetTransfersWithDownloadManager))
        return {};
    return _services.client.outstandingAssetTransfersWithDownloadManager(_services.downloadManager);
}

void Session::sendOutstanding(const std::vector<std::shared_ptr<ORAsset>>& assets) {
    link::FromDevice answer;
    link::Outstanding& outstanding = *answer.mutable_outstanding();
    for (const std::shared_ptr<ORAsset>& asset : assets) {
        link::Asset& entry = *outstanding.add_assets();
        entry.set_identifier(asset->identifier());
        entry.set_is_download(asset->isDownload());
        entry.set_parts(partsOf(*asset));
        entry.set_asset_type(asset->assetType().value_or(std::string()));
        entry.set_is_restore(asset->isRestore());
        entry.set_bypass_store(asset->bypassStore());
        entry.set_delete_after_upload(isDeletedAfterUpload(*asset));
        // Every record was made by this daemon.
        const Asset& own = static_cast<const Asset&>(*asset);
        entry.set_pretty_name(cleanUTF8(std::string(own.prettyName().value_or(""))));
        if (!asset->isDownload()) {
            const auto attributes = _services.files.attributes(own.sourcePath(), nullptr);
            entry.set_size(attributes ? attributes->size : 0);
            entry.set_file_name(cleanUTF8(fileNameOf(own.sourcePath())));
        }
        if (outstanding.assets_size() == OutstandingBatch) {
            send(answer);
            outstanding.clear_assets();
        }
    }
    outstanding.set_last(true);
    send(answer);
}

void Session::end(bool success) {
    require(Step::Opened, Step::Transferring, "the end");
    if (_assembly)
        throw protocolError("an asset was not sent to its end");
    _step = Step::Ended;
    post([this, success] {
        // Every session that was reconciled asks for the list, which also posts the totals.
        if (_reconcileSucceeded && !_transfersBegan)
            outstandingAssets();
        const bool isWhole = success && _transfersBegan;
        if (_transfersBegan)
            endTransfers(success);
        else if (_wasPrepared)
            resumeBackgroundTasks();
        removeHostData();
        _services.staging.sweep(isWhole);
        _endedInOrder = true;
        log(LogLevel::Info, "the session of " + _owner.description() + " ended");
        link::FromDevice answer;
        answer.mutable_ended()->set_revision(_services.library.revision());
        answer.mutable_ended()->set_anchor(_services.library.anchor());
        send(answer);
    });
}

void Session::endTransfers(bool success) {
    _transfersBegan = false;
    if (_services.client.respondsTo(ORClientOperation::assetTransferEndedWithSuccess))
        _services.client.assetTransferEndedWithSuccess(success);
    else
        resumeBackgroundTasks();
}

void Session::resumeBackgroundTasks() {
    _services.operatingSystem.namedNotifications().post(
        KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification);
}

}  // namespace orlith
