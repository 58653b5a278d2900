#include "device/korvane/smart_fill.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "common/sqlite/database.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/library_identity.h"
#include "device/korvane/schema.h"
#include "device/korvane/smart_rules.h"
#include "device/korvane/track_properties.h"

namespace korvane {

namespace {

using platform::Value;

struct FieldColumn {
    const char* expression;
    unsigned joins;
};

FieldColumn columnOf(SmartField field) {
    switch (field) {
        case SmartField::MediaType:
            return {"i.media_type", 0};
        case SmartField::Rating:
            return {"st.user_rating", JoinsStats};
        case SmartField::PlayCount:
            return {"st.play_count", JoinsStats};
        case SmartField::SkipCount:
            return {"st.skip_count", JoinsStats};
        case SmartField::LastPlayed:
            return {"(st.last_played_ms / 1000)", JoinsStats};
        case SmartField::LastSkipped:
            return {"(st.last_skipped_ms / 1000)", JoinsStats};
        case SmartField::DateAdded:
            return {"i.date_added", 0};
        case SmartField::Year:
            return {"e.year", JoinsExtra};
        case SmartField::TotalTime:
            return {"e.total_time_ms", JoinsExtra};
        case SmartField::TotalSize:
            return {"e.total_size", JoinsExtra};
        case SmartField::BitRate:
            return {"e.bit_rate", JoinsExtra};
        case SmartField::Bpm:
            return {"e.bpm", JoinsExtra};
        case SmartField::DiscNumber:
            return {"i.disc_number", 0};
        case SmartField::TrackNumber:
            return {"i.track_number", 0};
        case SmartField::Compilation:
            return {"e.compilation", JoinsExtra};
        case SmartField::SeasonNumber:
            return {"e.season_number", JoinsExtra};
        case SmartField::Title:
            return {"ifnull(e.title, '')", JoinsExtra};
        case SmartField::Artist:
            return {"ifnull(ar.name, '')", JoinsItemArtist};
        case SmartField::Album:
            return {"ifnull(al.name, '')", JoinsAlbum};
        case SmartField::AlbumArtist:
            return {"ifnull(aa.name, '')", JoinsAlbumArtist};
        case SmartField::Genre:
            return {"ifnull(e.genre, '')", JoinsExtra};
        case SmartField::Composer:
            return {"ifnull(e.composer, '')", JoinsExtra};
        case SmartField::Comment:
            return {"ifnull(e.comment, '')", JoinsExtra};
        case SmartField::Grouping:
            return {"ifnull(e.grouping, '')", JoinsExtra};
        case SmartField::Show:
            return {"ifnull(e.show, '')", JoinsExtra};
    }
    throw std::logic_error("rules were not checked");
}

// `value` names the parameter.
std::string comparison(const char* column, SmartOperation operation, const std::string& value) {
    const auto text = [&](const char* format) {
        return fmt::format(fmt::runtime(format), column, value);
    };
    switch (operation) {
        case SmartOperation::Equal:
            return text("{} = {} COLLATE NOCASE");
        case SmartOperation::NotEqual:
            return text("{} <> {} COLLATE NOCASE");
        case SmartOperation::Greater:
            return text("{} > {}");
        case SmartOperation::GreaterOrEqual:
        case SmartOperation::WithinLast:
            return text("{} >= {}");
        case SmartOperation::Less:
        case SmartOperation::NotWithinLast:
            return text("{} < {}");
        case SmartOperation::LessOrEqual:
            return text("{} <= {}");
        case SmartOperation::AnyBits:
            return text("({} & {}) <> 0");
        case SmartOperation::NoBits:
            return text("({} & {}) = 0");
        // Not LIKE: % and _ are letters here.
        case SmartOperation::Contains:
            return text("instr(lower({}), lower({})) > 0");
        case SmartOperation::DoesNotContain:
            return text("instr(lower({}), lower({})) = 0");
        case SmartOperation::BeginsWith:
            return text("instr(lower({}), lower({})) = 1");
        case SmartOperation::EndsWith:
            return text("({1} = '' OR substr(lower({0}), -length({1})) = lower({1}))");
    }
    throw std::logic_error("rules were not checked");
}

Value operand(const SmartCondition& condition, std::int64_t now) {
    if (const auto* text = std::get_if<std::string>(&condition.value))
        return *text;
    const std::int64_t number = std::get<std::int64_t>(condition.value);
    const bool isAgo = condition.operation == SmartOperation::WithinLast ||
                       condition.operation == SmartOperation::NotWithinLast;
    if (!isAgo)
        return number;
    // A number of seconds from a stranger's rules may be anything.
    std::int64_t moment = 0;
    if (__builtin_sub_overflow(now, number, &moment))
        moment = number > 0 ? std::numeric_limits<std::int64_t>::min()
                            : std::numeric_limits<std::int64_t>::max();
    return moment;
}

// `among`: pids as a JSON array; absent for all tracks of the library.
std::vector<std::int64_t> matchingTracks(common::Database& database, const SmartRules& rules,
                                         std::int64_t now,
                                         const std::optional<std::string>& among) {
    std::string where;
    std::vector<Value> values;
    const FieldColumn order = columnOf(rules.order);
    unsigned joins = order.joins;
    for (const SmartCondition& condition : rules.conditions) {
        const FieldColumn column = columnOf(condition.field);
        joins |= column.joins;
        where += where.empty() ? "" : rules.matchesAny ? " OR " : " AND ";
        values.push_back(operand(condition, now));
        where +=
            "(" +
            comparison(column.expression, condition.operation, fmt::format("?{}", values.size())) +
            ")";
    }
    if (where.empty())
        where = "1";
    values.push_back(rules.limit == 0 ? std::int64_t{-1} : std::int64_t{rules.limit});
    const std::size_t limit = values.size();
    if (among) {
        values.push_back(*among);
        where = fmt::format("({}) AND i.item_pid IN (SELECT value FROM json_each(?{}))", where,
                            values.size());
    }
    auto query = database.prepare(fmt::format(
        "SELECT i.item_pid FROM {} WHERE {} ORDER BY {} COLLATE NOCASE {}, i.item_id LIMIT ?{}",
        trackTables(joins, !among), where, order.expression, rules.isDescending ? "DESC" : "ASC",
        limit));
    int index = 0;
    for (const Value& value : values)
        query->bind(++index, value);
    std::vector<std::int64_t> found;
    while (query.step())
        found.push_back(query->int64(0));
    return found;
}

// Differs after every change of a track: a deletion that nobody is told of gives no revision.
std::string stateOfTracks(common::Database& database) {
    return fmt::format("{} {}", revisionCounter(database),
                       database.int64("SELECT items FROM row_count"));
}

bool hasHourPassed(common::Database& database, std::int64_t now) {
    constexpr std::int64_t Hour = 3'600;
    const std::int64_t filled =
        databaseProperty(database, SmartPlaylistsFilledProperty).int64Value();
    return filled > now || now - filled >= Hour;
}

}  // namespace

std::vector<std::int64_t> tracksMatchingRules(common::Database& database, const SmartRules& rules,
                                              std::int64_t now) {
    return matchingTracks(database, rules, now, std::nullopt);
}

std::vector<std::int64_t> tracksMatchingRulesAmong(common::Database& database,
                                                   const SmartRules& rules, std::int64_t now,
                                                   const std::vector<std::int64_t>& trackPIDs) {
    return matchingTracks(database, rules, now, fmt::format("[{}]", fmt::join(trackPIDs, ",")));
}

void fillSmartPlaylists(common::Database& database, std::int64_t now) {
    auto playlists =
        database.query("SELECT container_id, smart_rules FROM container WHERE kind = ?",
                       static_cast<int>(ContainerKind::Smart));
    while (playlists.step())
        if (const auto rules = decodeSmartRules(playlists->blob(1)))
            replaceEntries(database, playlists->int64(0),
                           tracksMatchingRules(database, *rules, now));
    if (hasHourPassed(database, now))
        setDatabaseProperty(database, SmartPlaylistsFilledProperty, now);
    keepSmartPlaylistsCurrent(database);
}

bool isFillingDue(common::Database& database, std::int64_t now) {
    return !areSmartPlaylistsCurrent(database) || hasHourPassed(database, now);
}

bool areSmartPlaylistsCurrent(common::Database& database) {
    const Value followed = databaseProperty(database, SmartPlaylistsStateProperty);
    return followed.string() && *followed.string() == stateOfTracks(database);
}

void keepSmartPlaylistsCurrent(common::Database& database) {
    if (!areSmartPlaylistsCurrent(database))
        setDatabaseProperty(database, SmartPlaylistsStateProperty, stateOfTracks(database));
}

void replaceEntries(common::Database& database, std::int64_t containerID,
                    const std::vector<std::int64_t>& trackPIDs) {
    std::vector<std::int64_t> positions, present;
    {
        auto entries = database.query(
            "SELECT position, item_pid FROM container_item WHERE container_id = ? ORDER BY "
            "position",
            containerID);
        while (entries.step()) {
            positions.push_back(entries->int64(0));
            present.push_back(entries->int64(1));
        }
    }
    const std::size_t common = std::min(present.size(), trackPIDs.size());
    for (std::size_t i = 0; i < common; ++i)
        if (present[i] != trackPIDs[i])
            database.execute(
                "UPDATE container_item SET item_pid = ? WHERE container_id = ? AND position = ?",
                trackPIDs[i], containerID, positions[i]);
    for (std::size_t i = common; i < present.size(); ++i)
        database.execute("DELETE FROM container_item WHERE container_id = ? AND position = ?",
                         containerID, positions[i]);
    std::int64_t position = positions.empty() ? -1 : positions.back();
    for (std::size_t i = common; i < trackPIDs.size(); ++i)
        database.execute(
            "INSERT INTO container_item (container_id, position, item_pid) VALUES (?, ?, ?)",
            containerID, ++position, trackPIDs[i]);
}

}  // namespace korvane
