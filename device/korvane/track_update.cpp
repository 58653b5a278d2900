#include "device/korvane/track_update.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/sqlite/database.h"
#include "device/korvane/track_properties.h"

namespace korvane {

namespace {

using platform::Value;

// The number 0 in place of an id.
bool meansNone(const TrackColumn& column, const Value& value) {
    const bool isID = column.property == KV3TrackPropertyStoreVeskaID ||
                      column.property == KV3TrackPropertyDownloadIdentifier;
    return isID && !value.isString() && value.int64Value() == 0;
}

// What a column keeps of a value; the value lives until the statement has run.
void bindStored(common::Statement& statement, int parameter, const TrackColumn& column,
                const Value& value) {
    using enum ColumnType;
    const bool isAbsent = value.isNull() || meansNone(column, value);
    if (isAbsent && column.type == Integer)
        statement.bind(parameter, 0);
    else if (isAbsent && column.type == Text)
        statement.bind(parameter, "");
    else if (isAbsent || (column.type == Blob && !value.isData()))
        statement.bind(parameter, nullptr);
    else if (column.type == Integer || column.type == NullableInteger)
        statement.bind(parameter, value.int64Value());
    else if (value.isString() || column.type == Blob)
        statement.bind(parameter, value, common::BindLifetime::Borrowed);
    else
        statement.bind(parameter, value.description());
}

void setRating(common::Database& database, std::int64_t itemID, const Value& value,
               std::int64_t nowMs) {
    database.execute(
        "UPDATE item_stats SET user_rating = ?, rating_changed_ms = ? WHERE item_id = ?",
        std::clamp<std::int64_t>(value.int64Value(), 0, 100), nowMs, itemID);
}

}  // namespace

std::optional<TrackUpdate> TrackUpdate::of(std::span<const KV3TrackProperty> properties) {
    TrackUpdate update;
    update._properties.assign(properties.begin(), properties.end());
    for (std::size_t place = 0; place < properties.size(); ++place) {
        const TrackColumn& column = trackColumn(properties[place]);
        if (!column.table)
            return std::nullopt;
        if (properties[place] == KV3TrackPropertyUserRating) {
            update._rating = place;
            continue;
        }
        const auto known = std::ranges::find(update._parts, column.table, &Part::table);
        Part& part = known == update._parts.end()
                         ? update._parts.emplace_back(Part{column.table, {}, {}})
                         : *known;
        part.places.push_back(place);
    }
    for (Part& part : update._parts) {
        std::string assignments, differs;
        int parameter = 1;
        for (const std::size_t place : part.places) {
            const char* name = trackColumn(properties[place]).column;
            ++parameter;
            assignments +=
                fmt::format("{}{} = ?{}", assignments.empty() ? "" : ", ", name, parameter);
            differs +=
                fmt::format("{}{} IS NOT ?{}", differs.empty() ? "" : " OR ", name, parameter);
        }
        part.sql = fmt::format("UPDATE {} SET {} WHERE item_id = ?1 AND ({})", part.table,
                               assignments, differs);
    }
    return update;
}

bool TrackUpdate::isOf(std::span<const KV3TrackProperty> properties) const {
    return std::ranges::equal(_properties, properties);
}

void TrackUpdate::run(common::Database& database, std::int64_t itemID,
                      std::span<const Value> values, std::int64_t nowMs) const {
    for (const Part& part : _parts) {
        auto statement = database.prepare(part.sql);
        statement->bind(1, itemID);
        int parameter = 1;
        for (const std::size_t place : part.places)
            bindStored(*statement, ++parameter, trackColumn(_properties[place]), values[place]);
        statement.run();
    }
    if (_rating)
        setRating(database, itemID, values[*_rating], nowMs);
}

}  // namespace korvane
