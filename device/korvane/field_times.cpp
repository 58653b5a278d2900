#include "device/korvane/field_times.h"

#include "device/korvane/change_times.h"

namespace korvane {

FieldTimes::FieldTimes(common::Database& database)
    : _set(database.prepare(
          "INSERT INTO field_change (item_pid, field, changed_ms)"
          " SELECT ?1, ?2, min(max(?3, metadata_changed_ms + 1), ?4) FROM item WHERE item_pid = ?1"
          " ON CONFLICT (item_pid, field) DO UPDATE"
          " SET changed_ms = min(max(excluded.changed_ms, changed_ms + 1), ?4)")) {}

void FieldTimes::setChanged(std::int64_t pid, const TrackFieldSet& fields, std::int64_t nowMs) {
    for (std::size_t field = 0; field < fields.size(); ++field) {
        if (fields.test(field)) {
            _set->bindAll(pid, static_cast<std::int64_t>(field), boundedMs(nowMs), LatestMs);
            _set.run();
        }
    }
}

}  // namespace korvane
