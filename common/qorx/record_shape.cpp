#include "common/qorx/record_shape.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include "common/qorx/format.h"
#include "common/qorx/qorx.pb.h"

namespace common {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

namespace {

// Below this even the worst record is a small object.
constexpr std::size_t SmallRecord = 64u << 10;
constexpr std::size_t LeastBytesPerField = 4;

class ShapeWalk {
public:
    explicit ShapeWalk(std::size_t bytes) : _fieldsLeft(bytes / LeastBytesPerField) {}

    // Counts the fields of a message that reaches to the stream's limit; depth 0 is the record, 1
    // its kind and 2 the elements of that.
    bool walk(CodedInputStream& in, int depth) {
        while (const std::uint32_t tag = in.ReadTag()) {
            if (_fieldsLeft-- == 0) {
                return false;
            }
            switch (WireFormatLite::GetTagWireType(tag)) {
                case WireFormatLite::WIRETYPE_START_GROUP:
                case WireFormatLite::WIRETYPE_END_GROUP:
                    return false;  // the format has none, and they nest at two bytes each
                case WireFormatLite::WIRETYPE_LENGTH_DELIMITED:
                    if (!walkInside(in, WireFormatLite::GetTagFieldNumber(tag), depth)) {
                        return false;
                    }
                    break;
                default:
                    if (!WireFormatLite::SkipField(&in, tag)) {
                        return false;
                    }
            }
        }
        return true;
    }

    bool elementsBounded() const { return _elementsLeft >= 0; }

private:
    bool walkInside(CodedInputStream& in, int field, int depth) {
        std::uint32_t length = 0;
        if (!in.ReadVarint32(&length) || length > QorxRecordLimit) {
            return false;
        }
        if (!isMessage(field, depth)) {
            return in.Skip(static_cast<int>(length));
        }
        const auto outer = in.PushLimit(static_cast<int>(length));
        const bool whole = walk(in, depth + 1) && in.BytesUntilLimit() == 0;
        in.PopLimit(outer);
        return whole;
    }

    // Notes the kind and counts the elements on the way.
    bool isMessage(int field, int depth) {
        if (depth == 0) {
            _kind = field;
            return true;
        }
        const bool element = depth == 1 && isElement(field);
        _elementsLeft -= element ? 1 : 0;
        return element;
    }

    bool isElement(int field) const {
        switch (_kind) {
            case qorx::Record::kTrack:
                return (field >= qorx::Track::kStoreFieldNumber &&
                        field <= qorx::Track::kBookmarkFieldNumber) ||
                       field == qorx::Track::kFieldChangesFieldNumber;
            case qorx::Record::kPlaylist:
                return field == qorx::Playlist::kItemsFieldNumber;
            default:
                return false;
        }
    }

    std::size_t _fieldsLeft;
    std::int64_t _elementsLeft = QorxElementLimit;
    int _kind = 0;
};

}  // namespace

bool hasBoundedShape(std::span<const std::uint8_t> record) {
    if (record.size() <= SmallRecord) {
        return true;
    }
    CodedInputStream in(record.data(), static_cast<int>(record.size()));
    ShapeWalk walk(record.size());
    return walk.walk(in, 0) && walk.elementsBounded();
}

}  // namespace common
