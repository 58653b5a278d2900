// Purpose: what an import of a peer's changes takes out of the library: entries that the peer's
//          owner deleted, and foreign ones that the peer has no more.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <span>

#include "device/korvane/import/entry_finder.h"

namespace qorx {
class Deletion;
}

namespace korvane {

struct PeerImportContext;

class PeerRemovals {
public:
    PeerRemovals(PeerImportContext& context, EntityKind kind);

    // Deletes the incarnation that the record means, and tells others; one that was born later
    // lives, and the peer is told so.
    void apply(const qorx::Deletion& record);
    // After a full exchange, which named the peer's ids `named` (ascending): the peer's claim on
    // the others goes, and what nothing else keeps leaves without being told.
    void dropUnnamed(std::span<const std::int64_t> named);
    // What lives here without the peer having named it is news for it.
    void tellUnnamed();

private:
    void applyToLiving(const FoundEntry& found, std::int64_t deletedMs);
    void remember(const qorx::Deletion& record, std::int64_t deletedMs);

    PeerImportContext& _context;
    const EntityKind _kind;
    EntryFinder _finder;
};

}  // namespace korvane
