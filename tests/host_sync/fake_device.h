// A device that a test scripts, behind real gRPC in the same process.
#pragma once

#include <grpcpp/create_channel_posix.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/server_posix.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <stdexcept>

#include "host/session/device_connection.h"
#include "link/orlith.grpc.pb.h"
#include "tests/support/hand_off.h"

namespace host::test {

namespace link = ::orlith::link;

class FakeDevice : public link::Device::Service {
public:
    using Stream = grpc::ServerReaderWriter<link::FromDevice, link::FromHost>;

    FakeDevice() {
        grpc::ServerBuilder builder;
        builder.RegisterService(this);
        _server = builder.BuildAndStart();
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
            throw std::runtime_error("no sockets");
        grpc::AddInsecureChannelFromFd(_server.get(), ends[0]);
        connection = std::make_unique<DeviceConnection>(
            grpc::CreateInsecureChannelFromFd("device", ends[1]));
    }
    ~FakeDevice() override {
        connection.reset();
        _server->Shutdown(std::chrono::system_clock::now());
    }

    // Sees each message of the host, on a thread of the device; false ends the stream at once with
    // `status`. Both are set before the session is opened.
    std::function<bool(const link::FromHost&, Stream&)> onMessage;
    grpc::Status status;
    std::unique_ptr<DeviceConnection> connection;

    // What is sent for an answer, for short.
    static void answer(Stream& stream, const std::function<void(link::FromDevice&)>& fill) {
        link::FromDevice message;
        fill(message);
        ::test::handOver();
        stream.Write(message);
    }

    // The ordinary answers to everything but transfers.
    static void answerOrdinarily(const link::FromHost& message, Stream& stream) {
        if (message.has_open())
            answer(stream, [](link::FromDevice& m) {
                m.mutable_opened()->set_library_uid("device");
                m.mutable_opened()->set_anchor("0");
            });
        if (message.has_prepare()) {
            answer(stream, [](link::FromDevice& m) { m.mutable_prepared(); });
            answer(stream, [](link::FromDevice& m) { m.mutable_saved()->set_last(true); });
        }
        if (message.has_reconcile())
            answer(stream, [&](link::FromDevice& m) {
                m.mutable_reconciled()->set_success(true);
                m.mutable_reconciled()->set_anchor(message.reconcile().new_anchor());
            });
        if (message.has_outstanding())
            answer(stream, [](link::FromDevice& m) { m.mutable_outstanding()->set_last(true); });
        if (message.has_end())
            answer(stream, [](link::FromDevice& m) { m.mutable_ended()->set_anchor("end"); });
    }

private:
    grpc::Status Session(grpc::ServerContext*, Stream* stream) override {
        link::FromHost message;
        while (stream->Read(&message)) {
            ::test::takeOver();
            if (!onMessage(message, *stream))
                return status;
        }
        return grpc::Status::OK;
    }

    std::unique_ptr<grpc::Server> _server;
};

}  // namespace host::test
