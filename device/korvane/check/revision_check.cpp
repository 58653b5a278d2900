// Revisions: the counter against everything that is known to have been given or acknowledged.
#include <fmt/format.h>

#include <algorithm>

#include "common/sqlite/database.h"
#include "device/korvane/check/check_run.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/library.h"
#include "device/korvane/library_identity.h"

namespace korvane {

namespace {

// Further than anything that somebody may know of and we do not.
constexpr std::int64_t SafeDistance = 1'000'000;

struct Known {
    std::int64_t counter = 0;
    std::int64_t highest = 0;
    std::string whoKnows;
};

void take(Known& known, std::int64_t revision, const std::string& who) {
    if (revision > known.highest) {
        known.highest = revision;
        known.whoKnows = who;
    }
}

Known readKnown(common::Database& database) {
    Known known;
    known.counter = revisionCounter(database);
    take(known, database.int64("SELECT max(revision) FROM entity_revision"),
         "an entry of the library has");
    take(known, database.int64("SELECT base_revision FROM change_state"), "the last change had");
    take(known, databaseProperty(database, LastSyncedRevisionProperty).int64Value(),
         "a host has acknowledged");
    auto peers = database.query("SELECT peer_uid, acknowledged_revision FROM peer");
    while (peers.step())
        take(known, peers->int64(1), fmt::format("the device {} has acknowledged", peers->text(0)));
    return known;
}

}  // namespace

void checkRevisions(CheckRun& run) {
    const auto known = run.library.connections().reading<Known>(readKnown);
    if (known.highest <= known.counter)
        return;
    run.report(
        {CheckArea::Revision, "the library's revision",
         fmt::format("it stands at {}, but {} {}: it went back, and other devices would miss "
                     "changes",
                     known.counter, known.whoKnows, known.highest),
         "it goes on above everything known, and the library gets a new identity, so that "
         "other devices and hosts compare all of it",
         run.repairs});
    if (!run.repairs)
        return;
    run.library.connections().write([&](common::Database& database) {
        // The counter follows the highest revision that was ever in the table.
        database.execute(
            "INSERT INTO entity_revision (revision, entity_kind, pid, origin) VALUES (?, -1, 0, "
            "'')",
            known.highest + SafeDistance);
        database.execute("DELETE FROM entity_revision WHERE entity_kind = -1");
        // Who finds another file than this at the next opening gives the library a new uid.
        database.execute("UPDATE library_identity SET file_identity = ''");
        return true;
    });
    run.needsReopening = true;
}

}  // namespace korvane
