// Purpose: setting properties of a track: one statement per table, however many they are.
// Calling thread: that of the connection, inside its write transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/media_library_properties.h"

namespace common {
class Database;
}

namespace korvane {

class TrackUpdate {
public:
    // Absent when the library computes one of the properties.
    static std::optional<TrackUpdate> of(std::span<const KV3TrackProperty> properties);

    bool isOf(std::span<const KV3TrackProperty> properties) const;
    // One value for each property. What is equal already is not written. The rating's moment
    // becomes `nowMs` (milliseconds since 1970).
    void run(common::Database& database, std::int64_t itemID,
             std::span<const platform::Value> values, std::int64_t nowMs) const;

private:
    // A table's columns, by their places among the properties.
    struct Part {
        std::string table;
        std::vector<std::size_t> places;
        std::string sql;
    };

    std::vector<KV3TrackProperty> _properties;
    std::vector<Part> _parts;
    std::optional<std::size_t> _rating;  // its place among the properties
};

}  // namespace korvane
