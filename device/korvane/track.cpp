#include "device/korvane/track.h"

#include <fmt/format.h>

#include "common/sqlite/database.h"
#include "device/korvane/library.h"
#include "device/korvane/predicate_sql.h"
#include "device/korvane/track_deletion.h"
#include "device/korvane/track_location.h"
#include "device/korvane/track_properties.h"
#include "device/korvane/track_update.h"
#include "device/korvane/video_snapshot.h"

namespace korvane {

namespace {

using platform::Value;

bool exists(common::Database& database, std::int64_t pid) {
    return database.int64("SELECT EXISTS (SELECT 1 FROM item WHERE item_pid = ?)", pid) != 0;
}

// The statements of the properties that this thread set last: many tracks in a row are often given
// the same ones.
const TrackUpdate* updateOf(std::span<const KV3TrackProperty> properties) {
    static thread_local std::optional<TrackUpdate> last;
    if (!last || !last->isOf(properties))
        last = TrackUpdate::of(properties);
    return last ? &*last : nullptr;
}

}  // namespace

bool Track::existsInLibrary() {
    return _library->read("existsInLibrary", [&](common::Database& database) {
        return exists(database, _persistentID);
    });
}

std::optional<std::string> Track::absoluteFilePath() {
    const Value path = valueForProperty(KV3TrackPropertyFilePath);
    return path.string() ? std::optional(*path.string()) : std::nullopt;
}

bool Track::deleteFromLibrary() {
    return _library->change("deleteFromLibrary", [&](common::Database& database) {
        return deleteTrack(database, _persistentID,
                           DeletionReach::everywhere(_library->nowMilliseconds()));
    });
}

Value Track::valueForProperty(KV3TrackProperty property) {
    return getValues({&property, 1}).front();
}

std::vector<Value> Track::getValues(std::span<const KV3TrackProperty> properties) {
    std::vector<Value> values(properties.size());
    std::string selection;
    unsigned joins = 0;
    for (const KV3TrackProperty property : properties) {
        const TrackColumn& column = trackColumn(property);
        selection.append(selection.empty() ? "" : ", ").append(column.expression);
        joins |= column.joins;
    }
    if (properties.empty())
        return values;
    _library->read("getValues:forProperties:count:", [&](common::Database& database) {
        auto row = database.query(
            "SELECT " + selection + " FROM " + trackTables(joins, false) + " WHERE i.item_pid = ?",
            _persistentID);
        if (!row.step())
            return false;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const auto view = row->view(static_cast<int>(i));
            const bool isAbsent =
                trackColumn(properties[i]).type == ColumnType::Text && view.string().empty();
            values[i] = isAbsent ? Value() : view.value();
        }
        return true;
    });
    return values;
}

bool Track::setValue(const Value& value, KV3TrackProperty property) {
    return setValues({&value, 1}, {&property, 1});
}

bool Track::setValues(std::span<const Value> values, std::span<const KV3TrackProperty> properties) {
    if (values.size() != properties.size())
        return false;
    return _library->change("setValues:forProperties:count:", [&](common::Database& database) {
        auto item = database.query("SELECT item_id FROM item WHERE item_pid = ?", _persistentID);
        const TrackUpdate* update = item.step() ? updateOf(properties) : nullptr;
        if (update)
            update->run(database, item->int64(0), values, _library->nowMilliseconds());
        return update != nullptr;
    });
}

bool Track::populateLocationPropertiesWithPath(const std::string& path) {
    return _library->change("populateLocationPropertiesWithPath:", [&](common::Database& database) {
        return exists(database, _persistentID) &&
               recordLocation(database, _library->configuration().files, _persistentID, path);
    });
}

bool Track::needsVideoSnapshot() {
    return videoSnapshotNeed(*_library, _persistentID).has_value();
}

bool Track::createVideoSnapshotAtTime(double seconds) {
    return createVideoSnapshot(*_library, _persistentID, seconds);
}

std::string Track::description() const {
    std::string title;
    _library->read("description", [&](common::Database& database) {
        auto row = database.query("SELECT title FROM item_extra WHERE item_pid = ?", _persistentID);
        if (row.step())
            title = row->text(0);
        return true;
    });
    return title.empty() ? fmt::format("<KV3Track: {}>", _persistentID)
                         : fmt::format("<KV3Track: {}, {}>", _persistentID, title);
}

std::int64_t anyTrackMatching(Library& library, const KV3Predicate& predicate) {
    const SqlCondition condition = sqlCondition(predicate);
    std::int64_t pid = 0;
    library.read("anyInLibrary:predicate:", [&](common::Database& database) {
        auto query = database.prepare("SELECT i.item_pid FROM " +
                                      trackTables(condition.joins, !condition.isLookup) +
                                      " WHERE " + condition.text + " LIMIT 1");
        int index = 0;
        for (const Value& value : condition.values)
            query->bind(++index, value);
        if (query.step())
            pid = query->int64(0);
        return true;
    });
    return pid;
}

}  // namespace korvane
