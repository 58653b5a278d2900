#include "device/korvane/export/change_list.h"

#include <string>

#include "common/sqlite/database.h"

namespace korvane {

namespace {

// By revision, which is the table's key. A deletion holds its media type itself.
std::string statement(const char* selection, const ChangeQuery& query) {
    std::string text = std::string("SELECT ") + selection + " FROM entity_revision r NOT INDEXED";
    if (query.mediaTypes)
        text += " LEFT JOIN item i ON i.item_pid = r.pid AND r.deleted = 0";
    text += " WHERE r.revision > ? AND r.entity_kind = ? AND r.deleted <= ?";
    text += " AND r.origin <> ?";
    if (query.mediaTypes)
        text += " AND ifnull(i.media_type, r.media_type) & ? <> 0";
    return text;
}

common::Query rowsOf(common::Database& database, const std::string& text,
                     const ChangeQuery& query) {
    auto rows = database.prepare(text);
    rows->bind(1, query.afterRevision);
    rows->bind(2, query.trackingCode);
    rows->bind(3, query.maximumRevisionType);
    // No change has this origin.
    constexpr std::string_view Nobody = " ";
    const bool leavesOut = query.afterRevision > 0 && !query.peerUID.empty();
    rows->bind(4, leavesOut ? std::string_view(query.peerUID) : Nobody);
    if (query.mediaTypes)
        rows->bind(5, *query.mediaTypes);
    return rows;
}

}  // namespace

std::deque<ListedChange> changesAfter(common::Database& database, const ChangeQuery& query) {
    std::deque<ListedChange> changes;
    auto rows = rowsOf(
        database, statement("r.pid, r.revision, r.deleted", query) + " ORDER BY r.revision", query);
    while (rows.step())
        changes.emplace_back(rows->int64(0), rows->int64(1), rows->int64(2) != 0);
    return changes;
}

std::uint64_t countOfChangesAfter(common::Database& database, const ChangeQuery& query) {
    auto rows = rowsOf(database, statement("count(*)", query), query);
    return rows.step() ? static_cast<std::uint64_t>(rows->int64(0)) : 0;
}

std::optional<std::int64_t> mediaTypesOf(const platform::Value& filter) {
    if (filter.isNumber())
        return filter.int64Value();
    const platform::Array* types = filter.array();
    if (!types)
        return std::nullopt;
    std::int64_t bits = 0;
    for (const platform::Value& type : *types)
        if (type.isNumber())
            bits |= type.int64Value();
    return bits;
}

}  // namespace korvane
