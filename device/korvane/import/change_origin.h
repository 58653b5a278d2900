// Purpose: says whose changes the running transaction makes, so that the revisions that triggers
//          give carry it. Nothing is written until something is about to change.
// Calling thread: that of the transaction.
#pragma once

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
    // At the end of the transaction: what follows is the owner's again.
    void end();
    bool hasChanged() const { return _isSet; }

private:
    void write(std::string_view origin);

    common::Database& _database;
    const std::string _uid;
    bool _isSet = false;
};

}  // namespace korvane
