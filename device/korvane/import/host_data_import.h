// Purpose: one import of a host's data: verified whole, then applied in one transaction.
// Calling thread: one of the import service's own.
// Ownership: everything is borrowed for the length of the import.
#pragma once

#include <cstdint>
#include <string>

#include "device/korvane/import/new_ids.h"
#include "device/korvane/import/record_stream.h"
#include "platform/errors.h"

namespace korvane {

class Connections;
class ImportCancellation;

struct HostDataImportOptions {
    bool isReset = false;  // what the data do not name loses the host's claim
    std::string anchor;
    // The revision up to which the session has saved the owner's changes; absent when nothing has
    // been saved, and then the library's mark stays where it is.
    std::optional<std::int64_t> savedRevision;
    std::int64_t nowMs = 0;  // milliseconds since 1970
    NewIDs::RandomNumber randomNumber = systemRandomNumber;
};

// Absent on success. After a failure the library is as it was; the error is one of
// KVMediaLibraryServiceErrorDomain, or the file system's.
platform::OptionalError importHostData(Connections& connections, const OpenRecords& open,
                                       const HostDataImportOptions& options,
                                       ImportCancellation& cancellation);

}  // namespace korvane
