// Purpose: says whose changes the running transaction makes, so that the revisions that triggers
//          give carry it. Nothing is written until something is about to change. From then on new
//          tracks get their revisions from giveRevisionsToNewTracks.
// Calling thread: that of the transaction.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

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
    // At the end of the transaction: what follows is the owner's again.
    void end();
    bool hasChanged() const { return _isSet; }

private:
    void write(std::string_view origin, bool insertsInBulk);

    common::Database& _database;
    const std::string _uid;
    bool _isSet = false;
};

}  // namespace korvane
