// Purpose: the other devices that this library exchanges changes with: how far each is, and its ids
//          beside ours. A peer is its library's uid (which is its revision version token): one that
//          was restored from a copy comes back with another, as a new peer.
// Calling thread: any.
// Failure: a database error is logged and answered as if nothing were known, or with false.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

class Library;

struct PeerProgress {
    std::int64_t receivedRevision = 0;      // of the peer's, that we have; 0: nothing
    std::int64_t acknowledgedRevision = 0;  // of ours, that the peer has
};
PeerProgress peerProgress(Library& library, const std::string& peerUID);

// The uids of those with which anything was exchanged.
std::vector<std::string> knownPeers(Library& library);

// A revision is recorded as it is, also when it is smaller than the one before.
bool recordReceivedRevision(Library& library, const std::string& peerUID, std::int64_t revision);
// Also forgets the deletions that all known peers have now.
bool recordAcknowledgedRevision(Library& library, const std::string& peerUID,
                                std::int64_t revision);

// The peer's persistent id of the track that an asset identifier of ours (its sync id, or else its
// persistent id) means; 0: the peer is not known to have it.
std::int64_t peersTrackID(Library& library, const std::string& peerUID,
                          std::int64_t assetIdentifier);

}  // namespace korvane
