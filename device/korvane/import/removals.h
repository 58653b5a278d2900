// Purpose: what an import takes out of the library: entries that deletion records name, and those
//          that the host claims no more.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include "device/korvane/import/entry_finder.h"

namespace korvane {

struct ImportContext;

class Removals {
public:
    explicit Removals(ImportContext& context);

    // A deletion of the plan: told to other devices. An entry that a record of this import names is
    // not deleted.
    void applyDeletion(EntityKind kind, const RecordIDs& ids);
    // Takes the import's claim off every entry that no record has named; what then has no claim to
    // stay leaves, without being told.
    void takeClaimOffUnnamed();

private:
    ImportContext& _context;
    EntryFinder _tracks;
    EntryFinder _playlists;
};

}  // namespace korvane
