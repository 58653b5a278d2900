// Purpose: an import's records as a "QORX" stream that can be read more than once.
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

// Begins to read at the beginning.
using OpenRecords = std::function<std::unique_ptr<common::QorxReader>()>;
// Of a stream that `open` opens anew; it answers null when there is none.
OpenRecords recordsOf(std::function<std::unique_ptr<platform::InputStream>()> open);

// What a whole stream holds, known before anything of it is applied.
struct RecordStreamContents {
    qorx::Header header;
    qorx::End counts;
    // The ids by which its records name their entries, ascending.
    std::vector<std::int64_t> ids;
};

// What a kind of import asks of its stream; both throw ImportFailure.
struct RecordRules {
    std::function<void(const qorx::Header&)> checkHeader;
    // Answers with the id that is to be among the contents' ids; 0: none.
    std::function<std::int64_t(const qorx::Record&)> checkRecord;
};
// Why a stream is refused.
[[noreturn]] void refuseStream(std::string_view text);
// Whether this can be the uid of a library or host.
bool isPlausibleUID(std::string_view uid);

class RecordStream {
public:
    RecordStream(OpenRecords open, std::function<void()> checkCancelled)
        : _open(std::move(open)), _checkCancelled(std::move(checkCancelled)) {}

    // Reads to the end: framing, counts and checksum, and what the rules ask.
    RecordStreamContents verify(const RecordRules& rules);

    // The records of one kind, handed out in batches of bounded size; a record lives as long as its
    // batch. The block may sort the batch.
    using Batch = std::vector<const qorx::Record*>;
    void forEachBatch(qorx::Record::KindCase kind, const std::function<void(Batch&)>& block);

private:
    OpenRecords _open;
    std::function<void()> _checkCancelled;
};

}  // namespace korvane
