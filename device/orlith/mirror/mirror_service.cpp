#include "device/orlith/mirror/mirror_service.h"

#include <cerrno>
#include <mutex>
#include <thread>

#include "device/orlith/asset.h"
#include "device/orlith/batch_writer.h"
#include "device/orlith/call_boundary.h"
#include "device/orlith/incoming_file.h"
#include "device/orlith/library_session.h"
#include "device/orlith/mirror/change_messages.h"
#include "device/orlith/mirror/mirror_runner.h"
#include "device/orlith/names.h"
#include "device/orlith/session_error.h"
#include "device/orlith/slot_hold.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;
using std::chrono::milliseconds;

// Progress is told no more often.
constexpr milliseconds ProgressInterval{50};
// How often a caller who has left, and a daemon that ends, is noticed.
constexpr milliseconds LookInterval{100};

// Events for a caller, from several threads.
class EventWriter {
public:
    explicit EventWriter(grpc::ServerWriter<link::MirrorEvent>& writer) : _writer(writer) {}

    void write(const link::MirrorEvent& event) {
        const std::scoped_lock lock(_mutex);
        if (event.has_progress() && isTooSoon(event.progress()))
            return;
        _writer.Write(event);
    }

private:
    // The first of a phase and the last are always told.
    bool isTooSoon(const link::MirrorProgress& progress) {
        const auto now = std::chrono::steady_clock::now();
        const bool isLast = progress.total() != 0 && progress.done() == progress.total();
        if (progress.phase() == _phase && !isLast && now < _lastTold + ProgressInterval)
            return true;
        _phase = progress.phase();
        _lastTold = now;
        return false;
    }

    grpc::ServerWriter<link::MirrorEvent>& _writer;
    std::mutex _mutex;  // one write at a time; guards what follows
    std::optional<link::MirrorProgress::Phase> _phase;
    std::chrono::steady_clock::time_point _lastTold;
};

// Cancels a run when its caller leaves or the daemon ends.
class LeavingWatch {
public:
    LeavingWatch(grpc::ServerContext& context, ChangeHub& hub, Cancellation& cancellation)
        : _thread([this, &context, &hub, &cancellation] {
              std::unique_lock lock(_mutex);
              while (!_over && !context.IsCancelled() && !hub.isStopped())
                  _changed.wait_for(lock, LookInterval, [this] { return _over; });
              if (_over)
                  return;
              lock.unlock();
              cancellation.cancel(hub.isStopped() ? Error(OrlithErrorDomain, OrlithErrorStopping,
                                                          "the device's daemon is stopping")
                                                  : Error(platform::POSIXErrorDomain, ECANCELED,
                                                          "the mirror was cancelled"));
          }) {}
    ~LeavingWatch() {
        {
            const std::scoped_lock lock(_mutex);
            _over = true;
            _changed.notify_all();
        }
        _thread.join();
    }
    LeavingWatch(const LeavingWatch&) = delete;
    LeavingWatch& operator=(const LeavingWatch&) = delete;

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _over = false;   // guarded by _mutex
    std::thread _thread;  // last: it uses everything above
};

link::ChangeStream endOf(const ExportedChanges& exported, std::int64_t revision) {
    link::ChangeStream message;
    link::ChangesEnd& end = *message.mutable_end();
    if (exported.error)
        fillFailure(*exported.error, *end.mutable_failure());
    end.set_size(exported.size);
    end.set_content_hash(hashText(exported.hash));
    end.set_revision(revision);
    return message;
}

}  // namespace

grpc::Status MirrorService::guarded(const char* call, const std::function<grpc::Status()>& body) {
    return guardedCall(_calls, _services.device.log, call, body);
}

grpc::Status MirrorService::Run(grpc::ServerContext* context, const link::MirrorRequest* request,
                                grpc::ServerWriter<link::MirrorEvent>* writer) {
    return guarded("Run", [&] {
        EventWriter events(*writer);
        const MirrorEvents tell = [&events](const link::MirrorEvent& event) {
            events.write(event);
        };
        Cancellation cancellation;
        OptionalError error;
        {
            const LeavingWatch leaving(*context, _hub, cancellation);
            error = MirrorRunner(_services, *request, tell, cancellation).run();
        }
        if (!error)
            return grpc::Status::OK;
        link::MirrorEvent event;
        fillFailure(*error, *event.mutable_failure());
        tell(event);
        return statusOf(*error);
    });
}

grpc::Status MirrorService::Export(grpc::ServerContext* context, const link::ExportRequest* request,
                                   grpc::ServerWriter<link::ChangeStream>* writer) {
    return guarded("Export", [&] {
        const SlotHold hold(_services.device.slot, "an export of changes", *context);
        const std::int64_t revision = _services.changes.revision();
        const std::int64_t upTo = request->up_to() != 0 ? request->up_to() : revision;
        _services.peers.setExportTarget({});
        const ExportedChanges exported = _services.changes.exportChanges(
            {request->sync_type(), PeerEndpoint, request->after(), upTo},
            exportParameters(request->media_types()),
            [&](const platform::Dictionary& params) {
                link::ChangeStream message;
                message.set_params(
                    parameterBytes(_services.device.operatingSystem.propertyLists(), params));
                writer->Write(message);
            },
            [&](std::string piece) {
                link::ChangeStream message;
                message.set_data(std::move(piece));
                return writer->Write(message);
            });
        writer->Write(endOf(exported, std::min(revision, upTo)));
        return exported.error ? statusOf(*exported.error) : grpc::Status::OK;
    });
}

grpc::Status MirrorService::Import(grpc::ServerContext* context,
                                   grpc::ServerReader<link::ChangeStream>* reader,
                                   link::ImportReply* reply) {
    return guarded("Import", [&] {
        const SlotHold hold(_services.device.slot, "an import of changes", *context);
        ChangeSpool spool(_services.device.files);
        link::ChangeStream message;
        bool isWhole = false;
        while (!isWhole && reader->Read(&message))
            isWhole = spool.take(message);
        if (!isWhole)
            return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, "the change stream has no end");
        const LibrarySession session(_services.device.library);
        const ImportedChanges imported = _services.changes.importChanges(
            SyncChanges, spool.path(),
            parametersOf(_services.device.operatingSystem.propertyLists(), spool.params()));
        fillOutcome(imported.error, *reply);
        reply->set_revision(_services.changes.revision());
        return grpc::Status::OK;
    });
}

grpc::Status MirrorService::Revision(grpc::ServerContext*, const link::RevisionRequest*,
                                     link::RevisionReply* reply) {
    return guarded("Revision", [&] {
        reply->set_library_uid(_services.changes.versionToken());
        reply->set_revision(_services.changes.revision());
        reply->set_data_class(_services.changes.dataClass());
        for (const PeerRecord& peer : _services.peers.peers()) {
            link::PeerRevisions& row = *reply->add_peers();
            row.set_library_uid(cleanUTF8(peer.uid));
            row.set_received_revision(peer.received);
            row.set_acknowledged_revision(peer.acknowledged);
        }
        return grpc::Status::OK;
    });
}

grpc::Status MirrorService::ResetChanges(grpc::ServerContext* context,
                                         const link::ResetChangesRequest*,
                                         link::ResetChangesReply* reply) {
    return guarded("ResetChanges", [&] {
        const SlotHold hold(_services.device.slot, "a reset of changes", *context);
        const LibrarySession session(_services.device.library);
        const OptionalError error = _services.changes.reset();
        fillOutcome(error, *reply);
        reply->set_revision(_services.changes.revision());
        return grpc::Status::OK;
    });
}

grpc::Status MirrorService::ListAssets(grpc::ServerContext* context, const link::ListAssetsRequest*,
                                       grpc::ServerWriter<link::WantedAssets>* writer) {
    return guarded("ListAssets", [&] {
        // What a session prepares decides what is wanted.
        const SlotHold hold(_services.device.slot, "a list of what is missing", *context);
        BatchWriter<link::WantedAssets> rows(*writer);
        _services.assets.assetsToSyncWithCompletion(
            [&](const OptionalError& error, const std::vector<std::shared_ptr<ORAsset>>& assets) {
                throwIf(error);
                for (const std::shared_ptr<ORAsset>& asset : assets) {
                    link::Asset& row = *rows.batch.add_assets();
                    row.set_identifier(asset->identifier());
                    row.set_parts(partsOf(*asset));
                    row.set_is_restore(asset->isRestore());
                    // Every record was made by this daemon.
                    const auto& own = static_cast<const Asset&>(*asset);
                    row.set_pretty_name(cleanUTF8(std::string(own.prettyName().value_or(""))));
                    if (!rows.added(row))
                        return;
                }
            });
        rows.flush();
        return grpc::Status::OK;
    });
}

}  // namespace orlith
