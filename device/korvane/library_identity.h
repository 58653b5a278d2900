// Purpose: which library this is. The uid stands in the database together with the identity of the
//          file that it was given to, and beside the database in a small file that also says how
//          far the revisions had come. A copy, and a database restored from an older copy, get a
//          new uid, so that peers do not take their revisions for the original's.
// Calling thread: that of the connection.
// Failure: SqliteError; platform errors where the signature says so.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/errors.h"

namespace common {
class Database;
}
namespace device {
class RootedFileSystem;
}

namespace korvane {

// What lies beside the database ("<database>.identity"), as text of four lines.
struct IdentityRecord {
    std::string libraryUID;
    std::string fileIdentity;
    std::int64_t revision = 0;  // the database had come at least so far
    bool closedInOrder = false;
};

std::optional<IdentityRecord> readIdentityRecord(device::RootedFileSystem& files,
                                                 const std::string& databasePath);
platform::OptionalError writeIdentityRecord(device::RootedFileSystem& files,
                                            const std::string& databasePath,
                                            const IdentityRecord& record);

// Names a file of this machine: inode and time of birth. A copy has another; a rename keeps it.
std::string fileIdentity(const std::string& realPath);

// The uid that the database has from now on; a new one when there is none, or when `file` or
// `beside` say that this is not the library that the uid was given to. A new uid of an old library
// makes its next exchanges full ones. Runs in a write transaction of its own only when it changes
// something.
std::string settleLibraryUID(common::Database& database, const std::string& file,
                             const std::optional<IdentityRecord>& beside);

// The next opening takes the database for a copy, whatever file it lies in. One without a library
// is left as it is.
void disownFile(common::Database& database);

// The counter of revisions: 0 for a library in which nothing ever changed.
std::int64_t revisionCounter(common::Database& database);

}  // namespace korvane
