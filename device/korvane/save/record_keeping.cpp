#include "device/korvane/save/record_keeping.h"

#include <algorithm>

#include "common/qorx/qorx.pb.h"
#include "common/sqlite/database.h"
#include "device/korvane/save/record_export.h"

namespace korvane {

namespace {

struct ChangedTrack {
    std::int64_t revision;
    std::int64_t pid;
};

// Empty when there are too many.
std::vector<ChangedTrack> tracksChangedInTransaction(common::Database& database) {
    std::vector<ChangedTrack> changed;
    auto rows = database.query(
        "SELECT revision, pid FROM entity_revision NOT INDEXED"
        " WHERE revision > (SELECT base_revision FROM change_state)"
        " AND entity_kind = 0 AND deleted = 0 LIMIT ?",
        MostKeptAtOnce + 1);
    while (rows.step())
        changed.push_back({rows->int64(0), rows->int64(1)});
    if (static_cast<std::int64_t>(changed.size()) > MostKeptAtOnce)
        changed.clear();
    return changed;
}

class Encoder {
public:
    explicit Encoder(common::Database& database) : _records(database) {}

    // What the rows of a track make; empty without such a track.
    const platform::Data& encode(std::int64_t pid) {
        _bytes.clear();
        if (_records.trackOfRows(pid, _record)) {
            _bytes.resize(_record.ByteSizeLong());
            _record.SerializeWithCachedSizesToArray(_bytes.data());
        }
        return _bytes;
    }

private:
    RecordExport _records;
    qorx::Track _record;
    platform::Data _bytes;
};

}  // namespace

void keepRecordsOfChanges(common::Database& database) {
    const std::vector<ChangedTrack> changed = tracksChangedInTransaction(database);
    if (changed.empty())
        return;
    Encoder encoder(database);
    for (const ChangedTrack& track : changed) {
        const platform::Data& record = encoder.encode(track.pid);
        if (!record.empty() && record.size() <= LargestKeptRecord)
            database.execute("UPDATE entity_revision SET record = ? WHERE revision = ?", record,
                             track.revision);
    }
}

std::vector<std::int64_t> tracksWithStaleRecords(common::Database& database) {
    std::vector<std::int64_t> stale;
    Encoder encoder(database);
    auto kept = database.query(
        "SELECT pid, record FROM entity_revision INDEXED BY entity_revision_kept"
        " WHERE record IS NOT NULL");
    while (kept.step())
        if (!std::ranges::equal(kept->blob(1), encoder.encode(kept->int64(0))))
            stale.push_back(kept->int64(0));
    return stale;
}

}  // namespace korvane
