#include "device/korvane/save/kept_records.h"

#include "common/qorx/qorx.pb.h"

namespace korvane {

KeptRecords::KeptRecords(common::Database& database) {
    if (database.int64("SELECT EXISTS (SELECT 1 FROM entity_revision INDEXED BY"
                       " entity_revision_kept WHERE record IS NOT NULL)") != 0)
        _find.emplace(
            database.prepare("SELECT record FROM entity_revision INDEXED BY entity_revision_kept"
                             " WHERE pid = ? AND record IS NOT NULL"));
}

bool KeptRecords::find(std::int64_t pid, qorx::Track& record) {
    if (!_find)
        return false;
    (*_find)->bindAll(pid);
    bool isRead = false;
    if (_find->step()) {
        const auto bytes = (*_find)->blob(0);
        isRead = record.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())) &&
                 record.persistent_id() == pid;
        if (!isRead)
            record.Clear();
    }
    (*_find)->reset();
    return isRead;
}

}  // namespace korvane
