#include "device/korvane/import/peer_identities.h"

#include <algorithm>
#include <utility>

namespace korvane {

PeerIdentities::PeerIdentities(common::Database& database, std::int64_t peerID)
    : _database(database),
      _peerID(peerID),
      _claim(database.prepare(
          "INSERT INTO peer_identity (peer_id, entity_kind, peer_pid, pid) VALUES (?, ?, ?, ?)"
          " ON CONFLICT (peer_id, entity_kind, peer_pid) DO UPDATE"
          " SET pid = excluded.pid, claimed = 1 WHERE pid <> excluded.pid OR claimed = 0")) {}

void PeerIdentities::claim(EntityKind kind, std::int64_t peerPID, std::int64_t pid) {
    _claim->bindAll(_peerID, static_cast<int>(kind), peerPID, pid);
    _claim.run();
}

std::vector<std::int64_t> PeerIdentities::dropClaims(EntityKind kind,
                                                     std::span<const std::int64_t> named) {
    std::vector<std::pair<std::int64_t, std::int64_t>> dropped;
    common::Query rows = _database.query(
        "SELECT peer_pid, pid FROM peer_identity"
        " WHERE peer_id = ? AND entity_kind = ? AND claimed <> 0",
        _peerID, static_cast<int>(kind));
    while (rows.step()) {
        if (!std::ranges::binary_search(named, rows->int64(0))) {
            dropped.emplace_back(rows->int64(0), rows->int64(1));
        }
    }
    for (const auto& [peerPID, pid] : dropped) {
        _database.execute(
            "UPDATE peer_identity SET claimed = 0"
            " WHERE peer_id = ? AND entity_kind = ? AND peer_pid = ?",
            _peerID, static_cast<int>(kind), peerPID);
    }
    std::vector<std::int64_t> unclaimed;
    for (const auto& [peerPID, pid] : dropped) {
        if (_database.int64("SELECT EXISTS (SELECT 1 FROM peer_identity"
                            " WHERE entity_kind = ? AND pid = ? AND claimed <> 0)",
                            static_cast<int>(kind), pid) == 0) {
            unclaimed.push_back(pid);
        }
    }
    return unclaimed;
}

}  // namespace korvane
