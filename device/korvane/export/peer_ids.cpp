#include "device/korvane/export/peer_ids.h"

namespace korvane {

PeerIds::PeerIds(common::Database& database, const std::string& peerUID) {
    if (peerUID.empty())
        return;
    _peerID = database.int64("SELECT peer_id FROM peer WHERE peer_uid = ?", peerUID);
    if (database.int64("SELECT EXISTS (SELECT 1 FROM peer_identity WHERE peer_id = ?)", _peerID))
        _lookUp.emplace(
            database.prepare("SELECT peer_pid FROM peer_identity WHERE entity_kind = ? AND pid = ? "
                             "AND peer_id = ? ORDER BY claimed DESC, peer_pid LIMIT 1"));
}

std::int64_t PeerIds::of(EntityKind kind, std::int64_t pid) {
    if (!_lookUp)
        return 0;
    common::Query& lookUp = *_lookUp;
    lookUp->bindAll(static_cast<int>(kind), pid, _peerID);
    const std::int64_t peerPID = lookUp.step() ? lookUp->int64(0) : 0;
    lookUp->reset();
    return peerPID;
}

}  // namespace korvane
