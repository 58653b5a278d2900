#include "device/korvane/peers.h"

#include "common/sqlite/database.h"
#include "device/korvane/change_log.h"
#include "device/korvane/library.h"

namespace korvane {

namespace {

// The track of a sync id, or else of a persistent id.
constexpr char PeersTrackID[] =
    "SELECT peer_pid FROM peer_identity JOIN peer USING (peer_id)"
    " WHERE peer_uid = ?1 AND entity_kind = 0 AND pid = ifnull("
    "  (SELECT item_pid FROM item_store WHERE sync_id = ?2 AND sync_id <> 0), ?2)"
    " ORDER BY claimed DESC, peer_pid LIMIT 1";

void addPeer(common::Database& database, const std::string& peerUID) {
    database.execute("INSERT INTO peer (peer_uid) VALUES (?) ON CONFLICT DO NOTHING", peerUID);
}

}  // namespace

PeerProgress peerProgress(Library& library, const std::string& peerUID) {
    PeerProgress progress;
    library.read("peerProgress", [&](common::Database& database) {
        auto row = database.query(
            "SELECT received_revision, acknowledged_revision FROM peer WHERE peer_uid = ?",
            peerUID);
        if (row.step())
            progress = {row->int64(0), row->int64(1)};
        return true;
    });
    return progress;
}

std::vector<std::string> knownPeers(Library& library) {
    std::vector<std::string> uids;
    library.read("knownPeers", [&](common::Database& database) {
        auto rows = database.query(
            "SELECT peer_uid FROM peer WHERE received_revision <> 0 OR acknowledged_revision <> 0"
            " ORDER BY peer_id");
        while (rows.step())
            uids.emplace_back(rows->text(0));
        return true;
    });
    return uids;
}

bool recordReceivedRevision(Library& library, const std::string& peerUID, std::int64_t revision) {
    return library.change("recordReceivedRevision", [&](common::Database& database) {
        addPeer(database, peerUID);
        database.execute("UPDATE peer SET received_revision = ? WHERE peer_uid = ?", revision,
                         peerUID);
        return true;
    });
}

bool recordAcknowledgedRevision(Library& library, const std::string& peerUID,
                                std::int64_t revision) {
    return library.change("recordAcknowledgedRevision", [&](common::Database& database) {
        addPeer(database, peerUID);
        database.execute("UPDATE peer SET acknowledged_revision = ? WHERE peer_uid = ?", revision,
                         peerUID);
        pruneChangeLog(database);
        return true;
    });
}

std::int64_t peersTrackID(Library& library, const std::string& peerUID,
                          std::int64_t assetIdentifier) {
    std::int64_t id = 0;
    library.read("peersTrackID", [&](common::Database& database) {
        id = database.int64(PeersTrackID, peerUID, assetIdentifier);
        return true;
    });
    return id;
}

}  // namespace korvane
