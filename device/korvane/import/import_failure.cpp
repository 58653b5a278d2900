#include "device/korvane/import/import_failure.h"

#include "common/sqlite/sqlite_error.h"
#include "device/korvane/import/import_cancellation.h"

namespace korvane {

platform::Error importError(const common::SqliteError& error,
                            const ImportCancellation& cancellation) {
    const auto code = error.isInterrupted() && cancellation.isAsked()
                          ? KVMediaLibraryServiceErrorCancelled
                      : error.isDiskFull() ? KVMediaLibraryServiceErrorNoSpace
                                           : KVMediaLibraryServiceErrorDatabase;
    return platform::Error(KVMediaLibraryServiceErrorDomain, code, error.what());
}

}  // namespace korvane
