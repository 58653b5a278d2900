#include "device/orlith/device_service.h"

#include <fmt/format.h>
#include <unistd.h>

#include <utility>

#include "device/orlith/batch_writer.h"
#include "device/orlith/call_boundary.h"
#include "device/orlith/disabled_kinds.h"
#include "device/orlith/grpc_message_stream.h"
#include "device/orlith/names.h"
#include "device/orlith/row_messages.h"
#include "device/orlith/session_error.h"

namespace orlith {

DeviceService::DeviceService(const SessionServices& services, std::function<void()> requestStop)
    : _services(services), _requestStop(std::move(requestStop)) {}

grpc::Status DeviceService::guarded(const char* call, const std::function<grpc::Status()>& body) {
    return guardedCall(_calls, _services.log, call, body);
}

grpc::Status DeviceService::Session(
    grpc::ServerContext* context,
    grpc::ServerReaderWriter<link::FromDevice, link::FromHost>* stream) {
    return guarded("Session", [&] {
        GrpcMessageStream messages(*context, *stream);
        const platform::OptionalError failure = orlith::Session(_services, messages).run();
        const bool wasBusy =
            failure && failure->domain == OrlithErrorDomain && failure->code == OrlithErrorBusy;
        if (!wasBusy) {
            const std::scoped_lock lock(_mutex);
            _lastResult = failure ? "failed: " + failure->text() : "ended in order";
        }
        return failure ? statusOf(*failure) : grpc::Status::OK;
    });
}

grpc::Status DeviceService::Status(grpc::ServerContext*, const link::StatusRequest* request,
                                   link::StatusReply* reply) {
    return guarded("Status", [&] {
        const LibraryStatistics statistics = _services.library.statistics();
        reply->set_library_uid(_services.library.libraryUID());
        reply->set_revision(_services.library.revision());
        reply->set_anchor(_services.library.anchor());
        reply->set_tracks(statistics.tracks);
        reply->set_playlists(statistics.playlists);
        reply->set_missing_files(statistics.missingFiles);
        reply->set_background_suppressed(statistics.backgroundSuppressed);
        reply->set_session_owner(_services.slot.ownerDescription());
        reply->set_free_bytes(_services.files.freeSpace(MediaDirectory, nullptr).value_or(0));
        for (std::string& notice : _services.notices.all())
            reply->add_notices(cleanUTF8(std::move(notice)));
        reply->set_process_id(::getpid());
        for (std::string& kind : disabledKindsOf(_services.client))
            reply->add_disabled_kinds(std::move(kind));
        const auto kept =
            request->with_kept() ? _services.library.keptPlaces() : std::vector<KeptPlace>();
        for (const KeptPlace& place : kept) {
            link::KeptPlace& row = *reply->add_kept();
            row.set_path(cleanUTF8(place.path));
            row.set_bytes(place.bytes);
        }
        const std::scoped_lock lock(_mutex);
        reply->set_last_result(cleanUTF8(_lastResult));
        return grpc::Status::OK;
    });
}

grpc::Status DeviceService::ListTracks(grpc::ServerContext*, const link::ListRequest*,
                                       grpc::ServerWriter<link::TrackBatch>* writer) {
    return guarded("ListTracks", [&] {
        BatchWriter<link::TrackBatch> rows(*writer);
        _services.library.forEachTrack([&](const korvane::ListedTrack& track) {
            link::TrackRow& row = *rows.batch.add_tracks();
            fillRow(track, row);
            return rows.added(row);
        });
        rows.flush();
        return grpc::Status::OK;
    });
}

grpc::Status DeviceService::ListPlaylists(grpc::ServerContext*, const link::ListRequest*,
                                          grpc::ServerWriter<link::PlaylistBatch>* writer) {
    return guarded("ListPlaylists", [&] {
        BatchWriter<link::PlaylistBatch> rows(*writer);
        _services.library.forEachPlaylist([&](const korvane::ListedPlaylist& playlist) {
            bool wanted = true;
            splitPlaylist(playlist, [&](const link::PlaylistRow& piece) {
                *rows.batch.add_playlists() = piece;
                wanted = wanted && rows.added(piece);
            });
            return wanted;
        });
        rows.flush();
        return grpc::Status::OK;
    });
}

grpc::Status DeviceService::Rate(grpc::ServerContext*, const link::RateRequest* request,
                                 link::EditReply* reply) {
    return guarded("Rate", [&] {
        if (request->stars() > 5)
            return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, "a rating has 0 to 5 stars");
        fillEdit(_services.library.rate(request->track(), request->stars()), *reply);
        return grpc::Status::OK;
    });
}

grpc::Status DeviceService::Played(grpc::ServerContext*, const link::PlayedRequest* request,
                                   link::EditReply* reply) {
    return guarded("Played", [&] {
        fillEdit(_services.library.recordPlay(request->track()), *reply);
        return grpc::Status::OK;
    });
}

grpc::Status DeviceService::Stop(grpc::ServerContext*, const link::StopRequest*,
                                 link::StopReply* reply) {
    return guarded("Stop", [&] {
        if (_services.slot.isTaken())
            return grpc::Status(grpc::StatusCode::FAILED_PRECONDITION,
                                "the device is busy with " + _services.slot.ownerDescription());
        reply->set_stopping(true);
        _requestStop();
        return grpc::Status::OK;
    });
}

void DeviceService::fillEdit(const EditOutcome& outcome, link::EditReply& reply) {
    fillOutcome(outcome.error, reply);
    reply.set_title(cleanUTF8(outcome.title));
    reply.set_revision(_services.library.revision());
}

}  // namespace orlith
