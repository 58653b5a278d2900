// Purpose: one track's metadata as a host updates it outside of a session; docs/formats.md,
//          "Metadata update".
// Calling thread: one of the import service's own.
// Ownership: everything is borrowed for the length of the import.
#pragma once

#include <string>

#include "platform/errors.h"
#include "platform/values.h"

namespace korvane {

class ImportCancellation;
class Library;

// One transaction: the track's fields and the anchor. The mark of what has been saved for the host
// stays where it is, so the next session's save tells the host what became of the track. Absent on
// success; after a failure the library is as it was, and the error, of
// KVMediaLibraryServiceErrorDomain, says in plain words what was refused.
platform::OptionalError importMetadataUpdate(Library& library, const platform::Data& update,
                                             const std::string& anchor,
                                             ImportCancellation& cancellation);

}  // namespace korvane
