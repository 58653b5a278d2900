#include "device/korvane/track_query.h"

#include <algorithm>
#include <array>

#include "common/sqlite/database.h"
#include "device/korvane/import/names.h"
#include "device/korvane/library.h"
#include "device/korvane/predicate_sql.h"
#include "device/korvane/row_store.h"
#include "device/korvane/track_deletion.h"
#include "device/korvane/track_properties.h"

namespace korvane {

namespace {

using platform::ValueView;

// The values of a row that it is sorted by. Nearly all orders are of a few integers.
constexpr std::size_t InlineKeys = 4;
struct IntegerKey {
    std::array<std::int64_t, InlineKeys> values{};
    std::uint32_t row = 0;
    auto operator<=>(const IntegerKey&) const = default;
};

bool isInteger(KV3TrackProperty property) {
    const ColumnType type = trackColumn(property).type;
    return type == ColumnType::Integer || type == ColumnType::NullableInteger;
}

// Numbers by value, null as 0; texts and blobs by their bytes, null as empty.
int compareViews(const ValueView& left, const ValueView& right) {
    using Type = platform::Value::Type;
    if (left.type() != Type::Signed && right.type() != Type::Signed)
        return left.string().compare(right.string());
    const auto a = left.int64Value(), b = right.int64Value();
    return a < b ? -1 : static_cast<int>(a > b);
}

// The rows of one enumeration: persistent id, properties, and what they are sorted by.
class Listing {
public:
    Listing(std::span<const KV3TrackProperty> properties,
            const std::vector<KV3OrderingTerm>& orderingTerms)
        : _propertyCount(properties.size()),
          _orderingTerms(orderingTerms),
          _sortsByIntegers(!orderingTerms.empty() && orderingTerms.size() <= InlineKeys &&
                           std::ranges::all_of(orderingTerms,
                                               [](const KV3OrderingTerm& term) {
                                                   return isInteger(term.property);
                                               })),
          _rows(1 + properties.size() + (_sortsByIntegers ? 0 : orderingTerms.size())) {
        add(KV3TrackPropertyPersistentID);
        for (const KV3TrackProperty property : properties)
            add(property);
        for (const KV3OrderingTerm& term : orderingTerms)
            add(term.property);
    }

    void read(common::Database& database, const SqlCondition& condition) {
        auto query = select(database, condition);
        while (query.step())
            readRow(*query);
    }

    // Hands each row to the block as it is read, and keeps none.
    template <typename Block>
    void stream(common::Database& database, const SqlCondition& condition, const Block& block) {
        auto query = select(database, condition);
        std::vector<ValueView> row(1 + _propertyCount);
        while (query.step()) {
            readColumns(*query, row);
            block(row.front().int64Value(), KV3TrackRow(row).subspan(1));
        }
    }

    void sort() {
        if (_orderingTerms.empty())
            return;
        if (_sortsByIntegers) {
            std::ranges::sort(_integerKeys);
            return;
        }
        _order.resize(_rows.size());
        for (std::uint32_t row = 0; row < _order.size(); ++row)
            _order[row] = row;
        std::ranges::stable_sort(_order, [&](std::uint32_t left, std::uint32_t right) {
            return comesBefore(_rows.row(left), _rows.row(right));
        });
    }

    std::size_t size() const { return _rows.size(); }
    std::span<const ValueView> inOrder(std::size_t place) {
        return _rows.row(rowAt(place)).first(1 + _propertyCount);
    }

private:
    std::size_t rowAt(std::size_t place) const {
        if (_orderingTerms.empty())
            return place;
        return _sortsByIntegers ? _integerKeys[place].row : _order[place];
    }

    common::Query select(common::Database& database, const SqlCondition& condition) const {
        auto query = database.prepare("SELECT " + _selection + " FROM " +
                                      trackTables(_joins | condition.joins, !condition.isLookup) +
                                      " WHERE " + condition.text +
                                      (condition.isLookup ? " ORDER BY i.item_id" : ""));
        int index = 0;
        for (const platform::Value& value : condition.values)
            query->bind(++index, value);
        return query;
    }

    void add(KV3TrackProperty property) {
        const TrackColumn& column = trackColumn(property);
        if (!_selection.empty())
            _selection += ", ";
        _selection += column.expression;
        _joins |= column.joins;
        _columns.push_back(column.type);
    }

    void readColumns(const common::Statement& row, std::span<ValueView> values) const {
        for (std::size_t column = 0; column < values.size(); ++column)
            values[column] = readColumn(row, column);
    }

    // An empty text is null to whoever asks.
    ValueView readColumn(const common::Statement& row, std::size_t column) const {
        const int index = static_cast<int>(column);
        switch (_columns[column]) {
            case ColumnType::Integer:
                return ValueView(row.int64(index));
            case ColumnType::Text: {
                const std::string_view text = row.text(index);
                return text.empty() ? ValueView() : ValueView(text);
            }
            default:
                return row.view(index);
        }
    }

    void readRow(common::Statement& row) {
        const auto number = static_cast<std::uint32_t>(_rows.size());
        const auto values = _rows.add();
        readColumns(row, values);
        for (ValueView& value : values)
            value = _rows.keep(value);
        if (!_sortsByIntegers)
            return;
        IntegerKey& key = _integerKeys.emplace_back();
        key.row = number;
        for (std::size_t term = 0; term < _orderingTerms.size(); ++term)
            key.values[term] = row.int64(static_cast<int>(values.size() + term));
    }

    bool comesBefore(std::span<const ValueView> left, std::span<const ValueView> right) const {
        for (std::size_t key = 1 + _propertyCount; key < left.size(); ++key)
            if (const int order = compareViews(left[key], right[key]))
                return order < 0;
        return false;
    }

    const std::size_t _propertyCount;
    const std::vector<KV3OrderingTerm>& _orderingTerms;
    const bool _sortsByIntegers;
    std::string _selection;
    unsigned _joins = 0;
    std::vector<ColumnType> _columns;  // of the selection
    RowStore _rows;
    std::vector<IntegerKey> _integerKeys;  // one of these two, or none without an order
    std::vector<std::uint32_t> _order;
};

}  // namespace

void TrackQuery::enumeratePersistentIDsAndProperties(
    std::span<const KV3TrackProperty> properties,
    const std::function<void(std::int64_t persistentID, KV3TrackRow values)>& block) {
    const SqlCondition condition = sqlCondition(_predicate);
    Listing listing(properties, _orderingTerms);
    constexpr char Operation[] = "enumeratePersistentIDsAndProperties:usingBlock:";
    // A part of a transaction must see what that has written, and the block may write more.
    if (_orderingTerms.empty() && !_library->connections().isUsedByThisThread()) {
        _library->readApart(Operation, [&](common::Database& database) {
            listing.stream(database, condition, block);
        });
        return;
    }
    if (!_library->read(Operation, [&](common::Database& database) {
            listing.read(database, condition);
            return true;
        }))
        return;
    listing.sort();
    for (std::size_t place = 0; place < listing.size(); ++place) {
        const auto row = listing.inOrder(place);
        block(row.front().int64Value(), row.subspan(1));
    }
}

bool TrackQuery::deleteAllEntitiesFromLibrary() {
    return _library->change("deleteAllEntitiesFromLibrary", [&](common::Database& database) {
        deleteTracksHere(database, sqlCondition(_predicate));
        removeUnusedNames(database);
        return true;
    });
}

}  // namespace korvane
