// A session's stream over the RPC library.
#pragma once

#include <grpcpp/grpcpp.h>

#include <mutex>

#include "device/orlith/session_stream.h"

namespace orlith {

class GrpcSessionStream final : public SessionStream {
public:
    using Stream = grpc::ServerReaderWriter<link::FromDevice, link::FromHost>;

    GrpcSessionStream(grpc::ServerContext& context, Stream& stream)
        : _context(context), _stream(stream) {}

    bool read(link::FromHost& message) override { return _stream.Read(&message); }
    bool write(const link::FromDevice& message) override {
        const std::scoped_lock lock(_writing);
        return _stream.Write(message);
    }
    void cancel() override { _context.TryCancel(); }

private:
    grpc::ServerContext& _context;
    Stream& _stream;
    std::mutex _writing;  // one write at a time
};

}  // namespace orlith
