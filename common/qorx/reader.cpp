#include "common/qorx/reader.h"

#include <fmt/format.h>
#include <google/protobuf/io/coded_stream.h>

#include <utility>

#include "common/qorx/byte_window.h"
#include "common/qorx/record_shape.h"

namespace common {

using platform::Error;
using platform::OptionalError;

namespace {

// A record is one field, and its number the kind; any other beginning is a kind that is not known.
qorx::Record::KindCase kindOf(std::span<const std::uint8_t> record) {
    constexpr int LengthDelimited = 2;
    const int tag = record.empty() ? 0 : record[0];
    const int field = tag >> 3;
    const bool known = (tag & 7) == LengthDelimited && field >= qorx::Record::kHeader &&
                       field <= qorx::Record::kEnd;
    return known ? static_cast<qorx::Record::KindCase>(field) : qorx::Record::KIND_NOT_SET;
}

}  // namespace

struct QorxReader::State {
    State(QorxSource source, QorxLimits readLimits)
        : window(std::move(source), readLimits.totalBytes), limits(readLimits) {}
    State(std::span<const std::uint8_t> bytes, QorxLimits readLimits)
        : window(bytes, readLimits.totalBytes), limits(readLimits) {}

    ByteWindow window;
    QorxLimits limits;
    // Only of records read before their arena is known: the header.
    google::protobuf::Arena headerArena;
    const qorx::Header* header = nullptr;
    qorx::End counts;
    qorx::Record::KindCase handedOut = qorx::Record::KIND_NOT_SET;  // not set: every kind
    std::uint64_t records = 0;
    bool othersMayFollow = false;
    bool finished = false;
    OptionalError error;

    void fail(Error reason) {
        if (!error) {
            error = std::move(reason);
        }
        finished = true;
    }
    // What is wrong, and how far reading had come.
    void failHere(QorxErrorCode code, std::string_view text) {
        fail(Error(QorxErrorDomain, code, fmt::format("{} (byte {})", text, window.position())));
    }
    void damaged(std::string_view text) { failHere(QorxErrorDamaged, text); }

    // At least `size` bytes in the window, or the failure recorded.
    bool need(std::size_t size) {
        if (window.ensure(size)) {
            return true;
        }
        if (window.error()) {
            fail(*window.error());
        } else {
            damaged("the stream ends inside a record");
        }
        return false;
    }

    bool readPrologue() {
        if (!need(QorxPrologueSize)) {
            return false;
        }
        const std::uint8_t* bytes = window.data();
        if (!std::equal(QorxMagic.begin(), QorxMagic.end(), bytes)) {
            damaged("this is no QORX stream");
            return false;
        }
        const unsigned version = bytes[QorxMagic.size()];
        if (version > QorxVersion) {
            fail(Error(QorxErrorDomain, QorxErrorNewerVersion,
                       fmt::format("QORX version {} is newer than the version {} that this reads",
                                   version, QorxVersion)));
            return false;
        }
        if (version != QorxVersion) {
            damaged(fmt::format("there is no QORX version {}", version));
            return false;
        }
        window.consume(QorxPrologueSize);
        return true;
    }

    // The length before a record: a varint of at most four bytes, which reach the limit.
    bool readLength(std::size_t& length) {
        std::uint32_t value = 0;
        for (unsigned shift = 0; shift < 28; shift += 7) {
            if (!need(1)) {
                return false;
            }
            const std::uint8_t byte = *window.data();
            window.consume(1);
            value |= static_cast<std::uint32_t>(byte & 0x7f) << shift;
            if ((byte & 0x80) == 0) {
                length = value;
                return true;
            }
        }
        failHere(QorxErrorTooLarge, "a record is longer than 16 MiB");
        return false;
    }

    // Counts a record that is not to be read.
    bool isPassedOver(qorx::Record::KindCase kind) {
        switch (kind) {
            case qorx::Record::kTrack:
                counts.set_tracks(counts.tracks() + 1);
                break;
            case qorx::Record::kPlaylist:
                counts.set_playlists(counts.playlists() + 1);
                break;
            case qorx::Record::kDeletion:
                counts.set_deletions(counts.deletions() + 1);
                break;
            case qorx::Record::kHeader:
            case qorx::Record::kEnd:
                return false;
            case qorx::Record::KIND_NOT_SET:
                return true;
        }
        return header != nullptr && handedOut != qorx::Record::KIND_NOT_SET && kind != handedOut;
    }

    // The next record that is to be read; null on failure.
    const qorx::Record* readRecord(google::protobuf::Arena& arena) {
        while (const std::optional<std::span<const std::uint8_t>> bytes = readBytes()) {
            if (isPassedOver(kindOf(*bytes))) {
                window.consume(bytes->size());
                continue;
            }
            auto* record = google::protobuf::Arena::CreateMessage<qorx::Record>(&arena);
            if (!hasBoundedShape(*bytes) ||
                !record->ParseFromArray(bytes->data(), static_cast<int>(bytes->size()))) {
                damaged("a record cannot be read");
                return nullptr;
            }
            window.consume(bytes->size());
            return record;
        }
        return nullptr;
    }

    // The bytes of one record, not consumed yet; absent on failure.
    std::optional<std::span<const std::uint8_t>> readBytes() {
        std::size_t length = 0;
        if (!readLength(length)) {
            return std::nullopt;
        }
        if (length > QorxRecordLimit) {
            failHere(QorxErrorTooLarge, "a record is longer than 16 MiB");
            return std::nullopt;
        }
        if (++records > limits.records) {
            fail(Error(QorxErrorDomain, QorxErrorTooLarge,
                       fmt::format("more than {} records", limits.records)));
            return std::nullopt;
        }
        if (!need(length)) {
            return std::nullopt;
        }
        return std::span<const std::uint8_t>(window.data(), length);
    }

    void readHeader() {
        if (!readPrologue()) {
            return;
        }
        const qorx::Record* record = readRecord(headerArena);
        if (record == nullptr) {
            return;
        }
        if (record->kind_case() != qorx::Record::kHeader) {
            damaged("the first record is no header");
            return;
        }
        header = &record->header();
    }

    void finish(const qorx::End& expected) {
        if (expected.tracks() != counts.tracks() || expected.playlists() != counts.playlists() ||
            expected.deletions() != counts.deletions()) {
            damaged("the counts of the end record are not those of the stream");
            return;
        }
        const std::uint64_t checksum = window.checksumOfConsumed();
        if (!need(QorxChecksumSize)) {
            return;
        }
        std::uint64_t stored = 0;
        google::protobuf::io::CodedInputStream::ReadLittleEndian64FromArray(window.data(), &stored);
        window.consume(QorxChecksumSize);
        if (stored != checksum) {
            damaged("the checksum is wrong");
            return;
        }
        finished = true;
        if (!othersMayFollow && bytesFollow() && !error) {
            damaged("something follows the end of the stream");
        }
    }

    // Whether the source has more; a failure of it is kept.
    bool bytesFollow() {
        const bool more = window.ensure(1);
        if (window.error()) {
            fail(*window.error());
        }
        return more;
    }

    bool beginNext() {
        if (error || !finished || !bytesFollow()) {
            return false;
        }
        window.restartChecksum();
        header = nullptr;
        headerArena.Reset();
        counts.Clear();
        finished = false;
        return true;
    }

    // Whether the record is one to hand out.
    bool accept(const qorx::Record& record) {
        switch (record.kind_case()) {
            case qorx::Record::kHeader:
                damaged("there is a second header");
                return false;
            case qorx::Record::kEnd:
                finish(record.end());
                return false;
            default:
                return record.kind_case() != qorx::Record::KIND_NOT_SET;
        }
    }
};

QorxReader::QorxReader(QorxSource source, QorxLimits limits)
    : _state(std::make_unique<State>(std::move(source), limits)) {}

QorxReader::QorxReader(std::span<const std::uint8_t> bytes, QorxLimits limits)
    : _state(std::make_unique<State>(bytes, limits)) {}

QorxReader::~QorxReader() = default;

const qorx::Header* QorxReader::header() {
    if (_state->header == nullptr && !_state->finished) {
        _state->readHeader();
    }
    return _state->header;
}

const qorx::Record* QorxReader::next(google::protobuf::Arena& arena) {
    if (header() == nullptr) {
        return nullptr;
    }
    while (!_state->finished) {
        const qorx::Record* record = _state->readRecord(arena);
        if (record != nullptr && _state->accept(*record)) {
            return record;
        }
    }
    return nullptr;
}

void QorxReader::handOutOnly(qorx::Record::KindCase kind) {
    _state->handedOut = kind;
}

void QorxReader::letOthersFollow() {
    _state->othersMayFollow = true;
}

bool QorxReader::beginNext() {
    return _state->beginNext();
}

std::uint64_t QorxReader::position() const {
    return _state->window.position();
}

const OptionalError& QorxReader::error() const {
    return _state->error;
}

const qorx::End& QorxReader::counts() const {
    return _state->counts;
}

std::optional<QorxSummary> verifyQorx(QorxReader& reader, OptionalError* error) {
    google::protobuf::Arena arena;
    constexpr std::size_t ArenaBytesKept = 1u << 20;
    while (reader.next(arena) != nullptr) {
        if (arena.SpaceUsed() > ArenaBytesKept) {
            arena.Reset();
        }
    }
    if (reader.error()) {
        if (error != nullptr) {
            *error = reader.error();
        }
        return std::nullopt;
    }
    return QorxSummary{*reader.header(), reader.counts()};
}

}  // namespace common
