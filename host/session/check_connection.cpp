#include "host/session/check_connection.h"

#include <grpcpp/channel.h>

#include "host/session/device_channel.h"
#include "host/session/link_error.h"
#include "link/check.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

struct CheckConnection::Impl {
    std::unique_ptr<link::Check::Stub> stub;
};

std::unique_ptr<CheckConnection> CheckConnection::open(const std::string& deviceDirectory,
                                                       platform::OptionalError* error) {
    const auto channel = openDeviceChannel(deviceDirectory, error);
    if (!channel)
        return nullptr;
    return std::unique_ptr<CheckConnection>(
        new CheckConnection(std::make_unique<Impl>(link::Check::NewStub(channel))));
}

CheckConnection::CheckConnection(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}

CheckConnection::~CheckConnection() = default;

platform::OptionalError CheckConnection::run(
    const link::CheckRequest& request, const std::function<void(const link::Finding&)>& finding,
    link::CheckEnd& end) {
    grpc::ClientContext context;
    const auto reader = _impl->stub->Run(&context, request);
    bool hasEnd = false;
    link::CheckEvent event;
    while (reader->Read(&event)) {
        if (event.has_finding())
            finding(event.finding());
        hasEnd = hasEnd || event.has_end();
        if (event.has_end())
            end = event.end();
    }
    const grpc::Status status = reader->Finish();
    // A daemon that leaves after its last word has said all.
    if (!status.ok() && !hasEnd)
        return errorOfStatus(status);
    if (!hasEnd)
        return platform::Error(LinkErrorDomain, LinkErrorProtocol, "the check has no end");
    return errorOfReply(grpc::Status::OK, end.success(), end.failure());
}

}  // namespace host
