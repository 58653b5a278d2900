// Purpose: the host's data file as a "QORX" stream that can be read more than once.
// Calling thread: that of the import.
// Failure: ImportFailure: no data, or damaged data.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/qorx/reader.h"
#include "platform/operating_system.h"

namespace korvane {

// Opens the data anew at its beginning; null when there is none.
using OpenHostData = std::function<std::unique_ptr<platform::InputStream>()>;

// What a whole stream holds, known before anything of it is applied.
struct HostStreamContents {
    qorx::Header header;
    qorx::End counts;
    std::vector<std::int64_t> trackSyncIDs;  // ascending
};

class HostStream {
public:
    HostStream(OpenHostData open, std::function<void()> checkCancelled)
        : _open(std::move(open)), _checkCancelled(std::move(checkCancelled)) {}

    // Reads to the end: framing, counts and checksum, and what host data must hold.
    HostStreamContents verify();

    // The records of one kind (or every kind, when it is not set), handed out in batches of bounded
    // size; a record lives as long as its batch. The block may sort the batch.
    using Batch = std::vector<const qorx::Record*>;
    void forEachBatch(qorx::Record::KindCase kind, const std::function<void(Batch&)>& block);

private:
    std::unique_ptr<common::QorxReader> reader();

    OpenHostData _open;
    std::function<void()> _checkCancelled;
};

}  // namespace korvane
