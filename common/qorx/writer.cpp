#include "common/qorx/writer.h"

#include <fmt/format.h>
#include <google/protobuf/io/coded_stream.h>
#include <xxhash.h>

#include <string>
#include <vector>

#include "common/qorx/record_shape.h"

namespace common {

using google::protobuf::io::CodedOutputStream;
using platform::OptionalError;

namespace {

constexpr std::size_t PieceSize = 64u << 10;
constexpr std::uint32_t LengthDelimited = 2;

struct HashDeleter {
    void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
};

}  // namespace

struct QorxWriter::State {
    QorxSink sink;
    std::unique_ptr<XXH3_state_t, HashDeleter> hash{XXH3_createState()};
    std::vector<std::uint8_t> pending;
    qorx::End counts;
    OptionalError error;

    // Makes room for `size` more bytes and returns where they go.
    std::uint8_t* grow(std::size_t size) {
        const std::size_t old = pending.size();
        pending.resize(old + size);
        return pending.data() + old;
    }

    OptionalError flush() {
        if (error || pending.empty()) {
            return error;
        }
        XXH3_64bits_update(hash.get(), pending.data(), pending.size());
        error = sink(pending);
        pending.clear();
        return error;
    }

    // A record is one field of qorx::Record, so its outer message is written by hand.
    OptionalError writeRecord(int field, const google::protobuf::MessageLite& body) {
        if (error) {
            return error;
        }
        const std::size_t bodySize = body.ByteSizeLong();
        const std::uint32_t tag = static_cast<std::uint32_t>(field) << 3 | LengthDelimited;
        const std::size_t size = CodedOutputStream::VarintSize32(tag) +
                                 CodedOutputStream::VarintSize64(bodySize) + bodySize;
        if (size > QorxRecordLimit) {
            return platform::Error(QorxErrorDomain, QorxErrorTooLarge,
                                   fmt::format("a record of {} bytes is too large", size));
        }
        const std::size_t before = pending.size();
        std::uint8_t* at = grow(CodedOutputStream::VarintSize64(size) + size);
        at = CodedOutputStream::WriteVarint64ToArray(size, at);
        at = CodedOutputStream::WriteVarint32ToArray(tag, at);
        at = CodedOutputStream::WriteVarint64ToArray(bodySize, at);
        body.SerializeWithCachedSizesToArray(at);
        if (!hasBoundedShape(std::span(pending).last(size))) {
            pending.resize(before);
            return platform::Error(QorxErrorDomain, QorxErrorTooLarge,
                                   fmt::format("a record of {} bytes has too many parts", size));
        }
        return pending.size() >= PieceSize ? flush() : std::nullopt;
    }
};

QorxWriter::QorxWriter(QorxSink sink) : _state(std::make_unique<State>()) {
    _state->sink = std::move(sink);
    XXH3_64bits_reset(_state->hash.get());
}

QorxWriter::~QorxWriter() = default;

OptionalError QorxWriter::begin(const qorx::Header& header) {
    std::uint8_t* at = _state->grow(QorxPrologueSize);
    std::copy(QorxMagic.begin(), QorxMagic.end(), at);
    at[QorxMagic.size()] = QorxVersion;
    return _state->writeRecord(qorx::Record::kHeader, header);
}

OptionalError QorxWriter::write(const qorx::Track& track) {
    OptionalError error = _state->writeRecord(qorx::Record::kTrack, track);
    if (!error) {
        _state->counts.set_tracks(_state->counts.tracks() + 1);
    }
    return error;
}

OptionalError QorxWriter::write(const qorx::Playlist& playlist) {
    OptionalError error = _state->writeRecord(qorx::Record::kPlaylist, playlist);
    if (!error) {
        _state->counts.set_playlists(_state->counts.playlists() + 1);
    }
    return error;
}

OptionalError QorxWriter::write(const qorx::Deletion& deletion) {
    OptionalError error = _state->writeRecord(qorx::Record::kDeletion, deletion);
    if (!error) {
        _state->counts.set_deletions(_state->counts.deletions() + 1);
    }
    return error;
}

OptionalError QorxWriter::end() {
    if (OptionalError error = _state->writeRecord(qorx::Record::kEnd, _state->counts)) {
        return error;
    }
    if (OptionalError error = _state->flush()) {
        return error;
    }
    CodedOutputStream::WriteLittleEndian64ToArray(XXH3_64bits_digest(_state->hash.get()),
                                                  _state->grow(QorxChecksumSize));
    return _state->flush();
}

const qorx::End& QorxWriter::counts() const {
    return _state->counts;
}

}  // namespace common
