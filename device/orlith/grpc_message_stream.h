// A session's stream over the RPC library, as the side that is called has it.
#pragma once

#include <grpcpp/grpcpp.h>

#include <mutex>

#include "device/orlith/message_stream.h"

namespace orlith {

template <typename Incoming, typename Outgoing>
class GrpcMessageStream final : public MessageStream<Incoming, Outgoing> {
public:
    using Stream = grpc::ServerReaderWriter<Outgoing, Incoming>;

    GrpcMessageStream(grpc::ServerContext& context, Stream& stream)
        : _context(context), _stream(stream) {}

    bool read(Incoming& message) override { return _stream.Read(&message); }
    bool write(const Outgoing& message) override {
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
