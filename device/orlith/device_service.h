// The daemon's answers to calls over the link: sessions, questions and the owner's edits.
//
// Called on threads of the RPC library, several at once. Every call is a boundary: an exception
// becomes that call's failure.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "device/orlith/call_counter.h"
#include "device/orlith/session.h"
#include "link/orlith.grpc.pb.h"

namespace orlith {

class DeviceService final : public link::Device::Service {
public:
    // `requestStop` is called on any thread when a caller asked the daemon to end.
    DeviceService(const SessionServices& services, std::function<void()> requestStop);

    CallCounter& calls() { return _calls; }

    grpc::Status Session(
        grpc::ServerContext* context,
        grpc::ServerReaderWriter<link::FromDevice, link::FromHost>* stream) override;
    grpc::Status Status(grpc::ServerContext* context, const link::StatusRequest* request,
                        link::StatusReply* reply) override;
    grpc::Status ListTracks(grpc::ServerContext* context, const link::ListRequest* request,
                            grpc::ServerWriter<link::TrackBatch>* writer) override;
    grpc::Status ListPlaylists(grpc::ServerContext* context, const link::ListRequest* request,
                               grpc::ServerWriter<link::PlaylistBatch>* writer) override;
    grpc::Status Rate(grpc::ServerContext* context, const link::RateRequest* request,
                      link::EditReply* reply) override;
    grpc::Status Played(grpc::ServerContext* context, const link::PlayedRequest* request,
                        link::EditReply* reply) override;
    grpc::Status Stop(grpc::ServerContext* context, const link::StopRequest* request,
                      link::StopReply* reply) override;

private:
    grpc::Status guarded(const char* call, const std::function<grpc::Status()>& body);
    void fillEdit(const EditOutcome& outcome, link::EditReply& reply);

    SessionServices _services;
    std::function<void()> _requestStop;
    CallCounter _calls;
    std::mutex _mutex;
    std::string _lastResult;  // of the last session, in plain words; guarded by _mutex
};

}  // namespace orlith
