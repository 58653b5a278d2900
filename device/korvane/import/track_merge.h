// Purpose: which values of a track win when another device's record of it meets our own. A join:
//          whatever the order in which devices meet, all come to the same values.
// Calling thread: that of the import.
// Ownership: the values of a record are borrowed.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "device/korvane/field_times.h"
#include "platform/values.h"

namespace qorx {
class Track;
}

namespace korvane {

// The moments of a track's metadata, milliseconds since 1970.
class FieldMoments {
public:
    FieldMoments() = default;
    // Bounded; what is no field is left out.
    static FieldMoments of(const qorx::Track& record);

    std::int64_t base = 0;
    // Of a field's last change.
    std::int64_t at(std::size_t field) const { return std::max(base, _changed[field]); }
    // That of the field's own change; 0: it came with the others.
    std::int64_t own(std::size_t field) const {
        return _changed[field] > base ? _changed[field] : 0;
    }
    // As its row has it, earlier than the others or not.
    std::int64_t stored(std::size_t field) const { return _changed[field]; }
    void setOwn(std::size_t field, std::int64_t milliseconds) { _changed[field] = milliseconds; }

    // The later of each.
    static FieldMoments joined(const FieldMoments& a, const FieldMoments& b);
    bool operator==(const FieldMoments& other) const;

private:
    std::array<std::int64_t, TrackFieldLimit> _changed{};
};

// Null, then numbers, then text and bytes; the order that decides between values of one moment.
int compareValues(const platform::ValueView& a, const platform::ValueView& b);

// How the values of a record's fields compare with those held: the first column in which they
// differ decides for what is one field together.
class FieldComparison {
public:
    void add(std::size_t field, int theirsAgainstHeld) {
        if (_order[field] == 0)
            _order[field] = theirsAgainstHeld;
    }

    struct Outcome {
        TrackFieldSet taken;                // theirs won and is another value
        bool recordLacksSomething = false;  // ours won somewhere
    };
    Outcome decide(const FieldMoments& held, const FieldMoments& theirs) const;

private:
    std::array<int, TrackFieldLimit> _order{};
};

}  // namespace korvane
