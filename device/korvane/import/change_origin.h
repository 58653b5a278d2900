// Purpose: says whose changes the running transaction makes, so that the revisions that triggers
//          give carry it. Nothing is written until something is about to change. From then on new
//          tracks get their revisions from giveRevisionsToNewTracks.
// Calling thread: that of the transaction.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "device/korvane/schema.h"

namespace common {
class Database;
}

namespace korvane {

class ChangeOrigin {
public:
    // `uid`: the peer or host whose stream is imported; never empty, that is the owner.
    ChangeOrigin(common::Database& database, std::string uid)
        : _database(database), _uid(std::move(uid)) {}

    // Before each change; costs nothing after the first.
    void aboutToChange();
    // The new tracks of a range of item ids, which have none yet, are counted and get revisions in
    // that order: the triggers would do it one by one.
    void giveRevisionsToNewTracks(std::int64_t firstItemID, std::int64_t lastItemID);
    // The entry as it is now is news for everybody, the peer included: it gets a revision of the
    // owner's, in place of one that this transaction gave it.
    void tellEverybody(EntityKind kind, std::int64_t pid);
    // How many entries of a kind were told to everybody without having changed here.
    std::int64_t toldUnchanged(EntityKind kind) const {
        return _toldUnchanged[static_cast<std::size_t>(kind)];
    }
    // A deletion that everybody is told of has been written.
    void noteNewsForPeer() { _hasNewsForPeer = true; }
    // Whether a revision of this transaction is not the peer's.
    bool hasNewsForPeer() const { return _hasNewsForPeer; }
    const std::string& uid() const { return _uid; }
    // At the end of the transaction: what follows is the owner's again.
    void end();
    bool hasChanged() const { return _isSet; }

private:
    void write(std::string_view origin, bool insertsInBulk);

    common::Database& _database;
    const std::string _uid;
    bool _isSet = false;
    bool _hasNewsForPeer = false;
    std::array<std::int64_t, 2> _toldUnchanged{};  // by EntityKind
};

}  // namespace korvane
