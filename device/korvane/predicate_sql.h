// Purpose: a predicate as a condition in SQL, its values always bound.
// Calling thread: any.
// Failure: std::invalid_argument for a predicate that is nested too deep.
#pragma once

#include <string>
#include <vector>

#include "platform/media_library_properties.h"

namespace korvane {

struct SqlCondition {
    std::string text;  // over the tables of trackTables()
    std::vector<platform::Value> values;
    unsigned joins = 0;
    // Names tracks by an id that has an index: few rows match.
    bool isLookup = false;
};

// Null compares as 0, in texts as "". An unknown comparison code matches nothing.
SqlCondition sqlCondition(const KV3Predicate& predicate);

}  // namespace korvane
