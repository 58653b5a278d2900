// Rows that go out in messages of about 64 KiB.
//
// One thread.
#pragma once

#include <grpcpp/grpcpp.h>

#include <cstddef>

namespace orlith {

// Collects rows and sends them when there are enough. False once the caller is gone.
template <typename Batch>
class BatchWriter {
public:
    explicit BatchWriter(grpc::ServerWriter<Batch>& writer) : _writer(writer) {}

    template <typename Row>
    bool added(const Row& row) {
        _size += row.ByteSizeLong();
        return _size < Size || flush();
    }
    bool flush() {
        const bool sent = _size == 0 || _writer.Write(batch);
        batch.Clear();
        _size = 0;
        return sent;
    }

    Batch batch;

private:
    static constexpr std::size_t Size = 64 << 10;

    grpc::ServerWriter<Batch>& _writer;
    std::size_t _size = 0;
};

}  // namespace orlith
