#include "device/orlith/owner_service.h"

#include "device/cloud/cloud_service.h"
#include "device/downloads/download_service.h"
#include "device/korvane/library.h"
#include "device/korvane/owner_edits.h"
#include "device/orlith/call_boundary.h"
#include "device/orlith/names.h"
#include "device/orlith/owner_downloads.h"
#include "device/orlith/owner_playlists.h"
#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::OptionalError;

// Makes an edit of the track that is named.
void editTrack(korvane::Library& library, const std::string& track, link::EditReply& reply,
               const std::function<OptionalError(std::int64_t trackPID)>& edit) {
    OptionalError error;
    if (const auto found = korvane::findTrack(library, track, error)) {
        error = edit(found->persistentID);
        reply.set_title(cleanUTF8(found->title));
    }
    fillOutcome(error, reply);
    reply.set_revision(library.currentRevision());
}

}  // namespace

grpc::Status OwnerService::guarded(const char* call, const std::function<void()>& body) {
    return guardedCall(_parts.calls, _parts.log, call, body);
}

grpc::Status OwnerService::EditTrack(grpc::ServerContext*, const link::EditTrackRequest* request,
                                     link::EditReply* reply) {
    return guarded("EditTrack", [&] {
        std::vector<korvane::FieldEdit> edits;
        for (const link::FieldValue& field : request->fields())
            edits.push_back({field.field(), field.value()});
        editTrack(_parts.library, request->track(), *reply, [&](std::int64_t pid) {
            return korvane::setTrackFields(_parts.library, pid, edits);
        });
    });
}

grpc::Status OwnerService::DeleteTrack(grpc::ServerContext*,
                                       const link::DeleteTrackRequest* request,
                                       link::EditReply* reply) {
    return guarded("DeleteTrack", [&] {
        editTrack(_parts.library, request->track(), *reply, [&](std::int64_t pid) {
            return korvane::deleteTrackAsOwner(_parts.library, pid);
        });
        if (reply->success())
            _parts.trackLeft();
    });
}

grpc::Status OwnerService::EditPlaylist(grpc::ServerContext*,
                                        const link::EditPlaylistRequest* request,
                                        link::EditReply* reply) {
    return guarded("EditPlaylist", [&] {
        std::string name;
        fillOutcome(editPlaylist(_parts.library, *request, name), *reply);
        reply->set_title(cleanUTF8(name));
        reply->set_revision(_parts.library.currentRevision());
    });
}

grpc::Status OwnerService::Download(grpc::ServerContext*, const link::DownloadRequest* request,
                                    link::DownloadReply* reply) {
    return guarded("Download", [&] {
        OptionalError error;
        const auto wanted = downloadOf(_parts.library, *request, error);
        if (wanted)
            reply->set_download(_parts.downloads.request(*wanted, &error).value_or(0));
        fillOutcome(error, *reply);
    });
}

grpc::Status OwnerService::ListDownloads(grpc::ServerContext*, const link::ListDownloadsRequest*,
                                         link::DownloadList* reply) {
    return guarded("ListDownloads", [&] {
        for (const downloads::DownloadStatus& download : _parts.downloads.list())
            fillRow(download, *reply->add_downloads());
    });
}

grpc::Status OwnerService::CancelDownload(grpc::ServerContext*,
                                          const link::CancelDownloadRequest* request,
                                          link::CancelDownloadReply* reply) {
    return guarded("CancelDownload",
                   [&] { fillOutcome(_parts.downloads.cancel(request->download()), *reply); });
}

grpc::Status OwnerService::CloudState(grpc::ServerContext*, const link::CloudStateRequest*,
                                      link::CloudReply* reply) {
    return guarded("CloudState", [&] { fillCloud(std::nullopt, *reply); });
}

grpc::Status OwnerService::CloudSignIn(grpc::ServerContext*,
                                       const link::CloudSignInRequest* request,
                                       link::CloudReply* reply) {
    return guarded("CloudSignIn",
                   [&] { fillCloud(_parts.cloud.signIn(request->has_kenning_data()), *reply); });
}

grpc::Status OwnerService::CloudSignOut(grpc::ServerContext*, const link::CloudSignOutRequest*,
                                        link::CloudReply* reply) {
    return guarded("CloudSignOut", [&] { fillCloud(_parts.cloud.signOut(), *reply); });
}

void OwnerService::fillCloud(const OptionalError& error, link::CloudReply& reply) {
    fillOutcome(error, reply);
    const cloud::CloudState state = _parts.cloud.state();
    reply.set_signed_in(state.isSignedIn);
    reply.set_has_kenning_data(state.hasKenningData);
}

}  // namespace orlith
