#include "device/korvane/predicate_sql.h"

#include <stdexcept>

#include "device/korvane/track_properties.h"

namespace korvane {

namespace {

// The engine's own limit for expressions is 1000.
constexpr int MaximumDepth = 200;

const char* operatorOf(std::int32_t comparison) {
    switch (comparison) {
        case KV3ComparisonEqual:
            return " = ";
        case KV3ComparisonNotEqual:
            return " <> ";
        case KV3ComparisonGreater:
            return " > ";
        case KV3ComparisonGreaterOrEqual:
            return " >= ";
        case KV3ComparisonLess:
            return " < ";
        case KV3ComparisonLessOrEqual:
            return " <= ";
        default:
            return nullptr;
    }
}

platform::Value textOf(const platform::Value& value) {
    if (value.isString())
        return value;
    return value.isNull() ? platform::Value("") : platform::Value(value.description());
}

// What a column compares as: a null as 0 or "".
std::string comparable(const TrackColumn& column) {
    switch (column.type) {
        case ColumnType::NullableInteger:
            return std::string("ifnull(") + column.expression + ", 0)";
        case ColumnType::NullableText:
            return std::string("ifnull(") + column.expression + ", '')";
        case ColumnType::Blob:
            return std::string("ifnull(") + column.expression + ", x'')";
        case ColumnType::Integer:
        case ColumnType::Text:
            break;
    }
    return column.expression;
}

platform::Value operand(const TrackColumn& column, const platform::Value& value) {
    switch (column.type) {
        case ColumnType::Integer:
        case ColumnType::NullableInteger:
            return value.int64Value();
        case ColumnType::Text:
        case ColumnType::NullableText:
            return textOf(value);
        case ColumnType::Blob:
            break;
    }
    return value.isData() ? value : platform::Value(platform::Data());
}

bool isInteger(const TrackColumn& column) {
    return column.type == ColumnType::Integer || column.type == ColumnType::NullableInteger;
}

void addComparison(const KV3Predicate& predicate, SqlCondition& condition) {
    const TrackColumn& column = trackColumn(predicate.property);
    condition.joins |= column.joins;
    const std::string left = comparable(column);
    if (predicate.comparison == KV3ComparisonAnyBits && isInteger(column)) {
        condition.text += "(" + left + " & ?) <> 0";
    } else if (const char* comparison = operatorOf(predicate.comparison)) {
        const bool isEqualToOther =
            predicate.comparison == KV3ComparisonEqual && predicate.value.int64Value() != 0;
        // The index on sync ids leaves out 0, so the engine must see that 0 is not asked for.
        if (isEqualToOther && predicate.property == KV3TrackPropertySyncID)
            condition.text += "s.sync_id <> 0 AND ";
        condition.text += left + comparison + "?";
    } else {
        condition.text += "0";
        return;
    }
    condition.values.push_back(operand(column, predicate.value));
}

void addPredicate(const KV3Predicate& predicate, int depth, SqlCondition& condition) {
    if (depth > MaximumDepth)
        throw std::invalid_argument("predicate nested too deep");
    if (predicate.kind == KV3Predicate::Kind::Comparison)
        return addComparison(predicate, condition);
    const bool isAll = predicate.kind == KV3Predicate::Kind::All;
    if (predicate.operands.empty()) {
        condition.text += isAll ? "1" : "0";
        return;
    }
    const char* separator = "";
    for (const KV3Predicate& part : predicate.operands) {
        condition.text += separator;
        condition.text += "(";
        addPredicate(part, depth + 1, condition);
        condition.text += ")";
        separator = isAll ? " AND " : " OR ";
    }
}

bool namesAnID(const KV3Predicate& predicate) {
    switch (predicate.kind) {
        case KV3Predicate::Kind::Comparison:
            return predicate.comparison == KV3ComparisonEqual &&
                   (predicate.property == KV3TrackPropertyPersistentID ||
                    (predicate.property == KV3TrackPropertySyncID &&
                     predicate.value.int64Value() != 0));
        case KV3Predicate::Kind::All:
            for (const KV3Predicate& part : predicate.operands)
                if (part.kind == KV3Predicate::Kind::Comparison && namesAnID(part))
                    return true;
            return false;
        case KV3Predicate::Kind::Any:
            return false;
    }
    return false;
}

}  // namespace

SqlCondition sqlCondition(const KV3Predicate& predicate) {
    SqlCondition condition;
    condition.isLookup = namesAnID(predicate);
    addPredicate(predicate, 0, condition);
    return condition;
}

}  // namespace korvane
