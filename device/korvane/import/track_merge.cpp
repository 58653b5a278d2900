#include "device/korvane/import/track_merge.h"

#include <algorithm>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/change_times.h"
#include "device/korvane/import/record_columns.h"

namespace korvane {

using platform::Value;
using platform::ValueView;

namespace {

TrackFieldSet knownFields() {
    TrackFieldSet fields;
    for (const RecordTable& table : recordTables()) {
        for (const RecordColumn& column : table.columns) {
            fields.set(static_cast<std::size_t>(column.field));
        }
    }
    fields.reset(0);
    return fields;
}

int rankOf(const ValueView& value) {
    if (value.isNull()) {
        return 0;
    }
    return value.type() == Value::Type::Signed ? 1 : 2;
}

template <typename T>
int sign(const T& a, const T& b) {
    return a < b ? -1 : a == b ? 0 : 1;
}

}  // namespace

FieldMoments FieldMoments::of(const qorx::Track& record) {
    static const TrackFieldSet known = knownFields();
    FieldMoments moments;
    moments.base = boundedMs(record.metadata_changed_ms());
    for (const qorx::FieldChange& change : record.field_changes()) {
        if (change.field() < TrackFieldLimit && known.test(change.field())) {
            std::int64_t& moment = moments._changed[change.field()];
            moment = std::max(moment, boundedMs(change.changed_ms()));
        }
    }
    return moments;
}

FieldMoments FieldMoments::joined(const FieldMoments& a, const FieldMoments& b) {
    FieldMoments joined;
    joined.base = std::max(a.base, b.base);
    for (std::size_t field = 0; field < TrackFieldLimit; ++field) {
        joined._changed[field] = std::max(a._changed[field], b._changed[field]);
    }
    return joined;
}

bool FieldMoments::operator==(const FieldMoments& other) const {
    if (base != other.base) {
        return false;
    }
    for (std::size_t field = 0; field < TrackFieldLimit; ++field) {
        if (own(field) != other.own(field)) {
            return false;
        }
    }
    return true;
}

int compareValues(const ValueView& a, const ValueView& b) {
    if (const int ranks = sign(rankOf(a), rankOf(b)); ranks != 0 || a.isNull()) {
        return ranks;
    }
    return rankOf(a) == 1 ? sign(a.int64Value(), b.int64Value()) : sign(a.string(), b.string());
}

FieldComparison::Outcome FieldComparison::decide(const FieldMoments& held,
                                                 const FieldMoments& theirs) const {
    Outcome outcome;
    for (std::size_t field = 0; field < TrackFieldLimit; ++field) {
        if (_order[field] == 0) {
            continue;
        }
        const std::int64_t ours = held.at(field);
        const std::int64_t other = theirs.at(field);
        if (other > ours || (other == ours && _order[field] > 0)) {
            outcome.taken.set(field);
        } else {
            outcome.recordLacksSomething = true;
        }
    }
    return outcome;
}

}  // namespace korvane
