#include "device/korvane/built_in_playlists.h"

#include <array>

#include "common/sqlite/database.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/identifiers.h"
#include "device/korvane/schema.h"
#include "device/korvane/smart_rules.h"
#include "device/korvane/track_deletion.h"
#include "platform/media_library_properties.h"

namespace korvane {

namespace {

struct BuiltIn {
    BuiltInKind kind;
    const char* name;
    SmartRules rules;
};

SmartCondition condition(SmartField field, SmartOperation operation, std::int64_t value) {
    return {field, operation, value};
}

std::array<BuiltIn, 5> builtIns() {
    constexpr std::int64_t TwoWeeks = 14 * 24 * 60 * 60;
    constexpr std::int64_t FourStars = 80;
    constexpr std::uint32_t Limit = 100;
    const auto isMusic =
        condition(SmartField::MediaType, SmartOperation::AnyBits, KV3MediaTypeMusic);
    const auto music = [&](const SmartCondition& other, std::uint32_t limit, SmartField order,
                           bool isDescending) {
        return SmartRules{false, {isMusic, other}, limit, order, isDescending};
    };
    using enum SmartOperation;
    return {
        {{BuiltInKind::RecentlyAdded, "Recently Added",
          music(condition(SmartField::DateAdded, WithinLast, TwoWeeks), 0, SmartField::DateAdded,
                true)},
         {BuiltInKind::MostPlayed, "Most Played",
          music(condition(SmartField::PlayCount, Greater, 0), Limit, SmartField::PlayCount, true)},
         {BuiltInKind::TopRated, "Top Rated",
          music(condition(SmartField::Rating, GreaterOrEqual, FourStars), 0, SmartField::Rating,
                true)},
         {BuiltInKind::RecentlyPlayed, "Recently Played",
          music(condition(SmartField::LastPlayed, WithinLast, TwoWeeks), 0, SmartField::LastPlayed,
                true)},
         {BuiltInKind::NotPlayedYet, "Not Played Yet",
          music(condition(SmartField::PlayCount, Equal, 0), Limit, SmartField::DateAdded, true)}}};
}

}  // namespace

void createBuiltInPlaylists(common::Database& database, std::int64_t nowMs) {
    if (databaseProperty(database, CreatedBuiltInSmartPlaylistsProperty).boolValue() ||
        databaseProperty(database, AutoCreatedSmartPlaylistsDeletedProperty).boolValue())
        return;
    for (const BuiltIn& playlist : builtIns()) {
        const auto kind = static_cast<int>(playlist.kind);
        if (database.int64("SELECT count(*) FROM container WHERE built_in_kind = ?", kind) != 0)
            continue;
        database.execute(
            "INSERT INTO container (container_pid, name, kind, smart_rules, built_in_kind, "
            "auto_created, added_ms, name_changed_ms, items_changed_ms) "
            "VALUES (?1, ?2, ?3, ?4, ?5, 1, ?6, ?6, ?6)",
            newPersistentID(database), playlist.name, static_cast<int>(ContainerKind::Smart),
            encodeSmartRules(playlist.rules).value(), kind, nowMs);
    }
    setDatabaseProperty(database, CreatedBuiltInSmartPlaylistsProperty, 1);
}

std::vector<std::int64_t> autoCreatedPlaylists(common::Database& database) {
    std::vector<std::int64_t> pids;
    auto rows = database.query(
        "SELECT container_pid FROM container WHERE auto_created <> 0 ORDER BY container_id");
    while (rows.step())
        pids.push_back(rows->int64(0));
    return pids;
}

void deleteAutoCreatedPlaylists(common::Database& database, std::span<const std::int64_t> pids) {
    for (const std::int64_t pid : pids)
        if (database.int64(
                "SELECT count(*) FROM container WHERE container_pid = ? AND auto_created <> 0",
                pid) != 0)
            deletePlaylist(database, pid, DeletionReach::here());
    if (autoCreatedPlaylists(database).empty())
        setDatabaseProperty(database, AutoCreatedSmartPlaylistsDeletedProperty, true);
}

}  // namespace korvane
