#include "device/korvane/smart_refill.h"

#include "common/sqlite/database.h"
#include "device/korvane/schema.h"
#include "device/korvane/smart_fill.h"
#include "device/korvane/smart_rules.h"

namespace korvane {

namespace {

// The entries of a longer list are not asked one by one: reading through all tracks is as fast.
constexpr std::size_t LongestAskedByEntry = 10'000;

std::vector<std::int64_t> numbers(common::Query query) {
    std::vector<std::int64_t> all;
    while (query.step())
        all.push_back(query->int64(0));
    return all;
}

}  // namespace

struct SmartRefill::Playlist {
    std::int64_t containerID;
    const SmartRules& rules;
};

SmartRefill::SmartRefill(common::Database& database, std::int64_t trackPID, std::int64_t now)
    : _database(database), _trackPID(trackPID), _now(now), _fillsAll(isFillingDue(database, now)) {
    for (const std::int64_t containerID :
         numbers(database.query("SELECT container_id FROM container_item WHERE item_pid = ? AND "
                                "item_pid <> 0",
                                trackPID)))
        _held.insert(containerID);
}

void SmartRefill::run() {
    if (_fillsAll)
        return fillSmartPlaylists(_database, _now);
    auto playlists =
        _database.query("SELECT container_id, smart_rules FROM container WHERE kind = ?",
                        static_cast<int>(ContainerKind::Smart));
    while (playlists.step())
        if (const auto rules = decodeSmartRules(playlists->blob(1)))
            refill({playlists->int64(0), *rules});
    keepSmartPlaylistsCurrent(_database);
}

void SmartRefill::refill(const Playlist& playlist) {
    const auto& [containerID, rules] = playlist;
    const bool held = _held.contains(containerID);
    const bool belongs = !tracksMatchingRulesAmong(_database, rules, _now, {_trackPID}).empty();
    if (!held && !belongs)
        return;
    if (held && belongs && keepsItsPlace(playlist))
        return;
    if (!belongs && rules.limit == 0) {
        _database.execute("DELETE FROM container_item WHERE container_id = ? AND item_pid = ?",
                          containerID, _trackPID);
        return;
    }
    auto candidates = numbers(_database.query(
        "SELECT item_pid FROM container_item WHERE container_id = ? AND item_pid <> ?", containerID,
        _trackPID));
    candidates.push_back(_trackPID);
    if (candidates.size() > LongestAskedByEntry)
        return replaceEntries(_database, containerID, tracksMatchingRules(_database, rules, _now));
    const bool mayHaveBeenFull = held && rules.limit != 0 && candidates.size() >= rules.limit;
    auto entries = tracksMatchingRulesAmong(_database, rules, _now, candidates);
    // The place that the track left, or the last one that it has now, may be another's.
    if (mayHaveBeenFull && (entries.size() < rules.limit || entries.back() == _trackPID))
        entries = tracksMatchingRules(_database, rules, _now);
    replaceEntries(_database, containerID, entries);
}

// Between its neighbours, and not at the end of a list where another may come before it.
bool SmartRefill::keepsItsPlace(const Playlist& playlist) {
    const std::int64_t position = _database.int64(
        "SELECT position FROM container_item WHERE item_pid = ?2 AND item_pid <> 0 AND "
        "container_id = ?1",
        playlist.containerID, _trackPID);
    const std::int64_t before = _database.int64(
        "SELECT item_pid FROM container_item WHERE container_id = ? AND position < ? ORDER BY "
        "position DESC LIMIT 1",
        playlist.containerID, position);
    const std::int64_t after = _database.int64(
        "SELECT item_pid FROM container_item WHERE container_id = ? AND position > ? ORDER BY "
        "position LIMIT 1",
        playlist.containerID, position);
    if (after == 0 && playlist.rules.limit != 0)
        return false;
    std::vector<std::int64_t> asTheyStand;
    for (const std::int64_t pid : {before, _trackPID, after})
        if (pid != 0)
            asTheyStand.push_back(pid);
    SmartRules withoutLimit = playlist.rules;
    withoutLimit.limit = 0;
    return tracksMatchingRulesAmong(_database, withoutLimit, _now, asTheyStand) == asTheyStand;
}

}  // namespace korvane
