// The daemon's answers to its device's owner: edits of tracks and playlists, downloads, the cloud.
//
// Called on threads of the RPC library, several at once. Every call is a boundary: an exception
// becomes that call's failure.
#pragma once

#include <functional>

#include "device/orlith/call_counter.h"
#include "link/owner.grpc.pb.h"
#include "platform/log.h"

namespace cloud {
class CloudService;
}
namespace downloads {
class DownloadService;
}
namespace korvane {
class Library;
}

namespace orlith {

// All of it outlives the service.
struct OwnerParts {
    korvane::Library& library;
    downloads::DownloadService& downloads;
    cloud::CloudService& cloud;
    platform::LogService& log;
    CallCounter& calls;
    std::function<void()> trackLeft;  // called when a track has left its file behind
};

class OwnerService final : public link::Owner::Service {
public:
    explicit OwnerService(const OwnerParts& parts) : _parts(parts) {}

    grpc::Status EditTrack(grpc::ServerContext* context, const link::EditTrackRequest* request,
                           link::EditReply* reply) override;
    grpc::Status EditPlaylist(grpc::ServerContext* context,
                              const link::EditPlaylistRequest* request,
                              link::EditReply* reply) override;
    grpc::Status DeleteTrack(grpc::ServerContext* context, const link::DeleteTrackRequest* request,
                             link::EditReply* reply) override;
    grpc::Status Download(grpc::ServerContext* context, const link::DownloadRequest* request,
                          link::DownloadReply* reply) override;
    grpc::Status ListDownloads(grpc::ServerContext* context,
                               const link::ListDownloadsRequest* request,
                               link::DownloadList* reply) override;
    grpc::Status CancelDownload(grpc::ServerContext* context,
                                const link::CancelDownloadRequest* request,
                                link::CancelDownloadReply* reply) override;
    grpc::Status CloudState(grpc::ServerContext* context, const link::CloudStateRequest* request,
                            link::CloudReply* reply) override;
    grpc::Status CloudSignIn(grpc::ServerContext* context, const link::CloudSignInRequest* request,
                             link::CloudReply* reply) override;
    grpc::Status CloudSignOut(grpc::ServerContext* context,
                              const link::CloudSignOutRequest* request,
                              link::CloudReply* reply) override;

private:
    grpc::Status guarded(const char* call, const std::function<void()>& body);
    void fillCloud(const platform::OptionalError& error, link::CloudReply& reply);

    const OwnerParts _parts;
};

}  // namespace orlith
