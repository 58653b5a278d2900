// Purpose: what changed after a revision, as another device is told.
// Calling thread: that of the connection, inside a transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "platform/values.h"

namespace common {
class Database;
}

namespace korvane {

// Which entries are asked for, in the terms of KV3Korvane.
struct ChangeQuery {
    std::int64_t afterRevision = 0;
    std::int64_t trackingCode = 0;         // KV3RevisionTrackingCodeTrack or ...Container
    std::int64_t maximumRevisionType = 0;  // 0: no deletions
    // Tracks whose media type has one of these bits; absent: all entries.
    std::optional<std::int64_t> mediaTypes{};
    // The library for which the changes are: what came from it is not told to it again, unless it
    // asks for everything. "": nobody in particular.
    std::string peerUID{};
};

// A change in two words, since there may be a million of them.
class ListedChange {
public:
    ListedChange(std::int64_t pid, std::int64_t revision, bool isDeletion)
        : _pid(pid), _revisionAndDeletion(revision * 2 + (isDeletion ? 1 : 0)) {}

    std::int64_t pid() const { return _pid; }
    std::int64_t revision() const { return _revisionAndDeletion / 2; }
    bool isDeletion() const { return _revisionAndDeletion % 2 != 0; }

private:
    std::int64_t _pid;
    std::int64_t _revisionAndDeletion;
};

// In ascending order of revision.
std::deque<ListedChange> changesAfter(common::Database& database, const ChangeQuery& query);
std::uint64_t countOfChangesAfter(common::Database& database, const ChangeQuery& query);

// The media types that a filter names: the bits of a number, or of all the numbers of an array,
// whose other elements are skipped. Absent for what is neither: there is no filter.
std::optional<std::int64_t> mediaTypesOf(const platform::Value& filter);

}  // namespace korvane
