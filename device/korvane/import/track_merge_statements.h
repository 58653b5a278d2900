// Purpose: merges a record of another device into a track that is here: finds out what wins, and
//          writes only that.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/sqlite/database.h"
#include "device/korvane/import/entry_finder.h"
#include "device/korvane/import/track_merge.h"

namespace korvane {

class Names;
class TrackStatements;
struct IncomingTrack;

class TrackMergeStatements {
public:
    explicit TrackMergeStatements(common::Database& database);

    // What is to become of a track; knows nothing of its row any more.
    struct Plan {
        TrackFieldSet taken;
        bool takesOtherFile = false;  // the file's facts are taken
        FieldMoments heldMoments;
        FieldMoments moments;
        bool changesIdentity = false;     // global id, birth, or when its metadata came
        bool changesOwnerValues = false;  // rating or bookmark
        bool recordLacksSomething = false;
        std::array<std::int64_t, 3> heldNamePIDs{};  // album artist, album, artist
        std::string heldAlbum;

        bool changesAnything() const {
            return taken.any() || changesIdentity || changesOwnerValues ||
                   !(moments == heldMoments);
        }
    };
    // `statements` stands on the track's row. Afterwards `track` has the merged values of all that
    // is no field: ids, moments, rating and bookmark.
    Plan plan(const TrackStatements& statements, std::int64_t pid, IncomingTrack& track);
    // Whether an album or artist may have lost the track.
    bool write(const FoundEntry& found, const Plan& plan, const IncomingTrack& track, Names& names);
    void writeMoments(std::int64_t pid, const FieldMoments& held, const FieldMoments& moments);

private:
    FieldMoments momentsHeld(std::int64_t pid, std::int64_t base);
    void compareNames(Plan& plan, const IncomingTrack& track, FieldComparison& comparison);
    void writeColumns(std::int64_t itemID, const Plan& plan, const IncomingTrack& track);
    bool writeNames(std::int64_t itemID, const Plan& plan, const IncomingTrack& track,
                    Names& names);

    common::Database& _database;
    common::Query _moments;
    common::Query _names;
    common::Query _setMoment;
    common::Query _removeMoment;
    std::vector<std::optional<common::Query>> _setColumn;  // made when first needed
};

}  // namespace korvane
