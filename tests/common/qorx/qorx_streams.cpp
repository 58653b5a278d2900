#include "tests/common/qorx/qorx_streams.h"

#include <xxhash.h>

#include <algorithm>

namespace qorx_streams {

common::QorxSink into(Bytes& bytes) {
    return [&bytes](std::span<const std::uint8_t> piece) -> platform::OptionalError {
        bytes.insert(bytes.end(), piece.begin(), piece.end());
        return std::nullopt;
    };
}

common::QorxSource from(const Bytes& bytes, std::size_t piece) {
    return [&bytes, piece, at = std::size_t{0}](std::span<std::uint8_t> room,
                                                platform::OptionalError*) mutable {
        const std::size_t size = std::min({piece, room.size(), bytes.size() - at});
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), size, room.begin());
        at += size;
        return size;
    };
}

qorx::Track track(std::int64_t syncID, const std::string& title) {
    qorx::Track result;
    result.set_sync_id(syncID);
    result.set_global_id(syncID * 7);
    result.set_media_type(8);
    result.set_title(title);
    return result;
}

Bytes sample() {
    Bytes bytes;
    common::QorxWriter writer(into(bytes));
    qorx::Header header;
    header.set_purpose(qorx::Header::HOST_DATA);
    header.set_exporter_uid("host-1");
    writer.begin(header);
    writer.write(track(11, "Eleven"));
    writer.write(track(-12, "Zwölf"));
    qorx::Playlist playlist;
    playlist.set_name("Both");
    playlist.add_items()->set_sync_id(11);
    playlist.add_items()->set_sync_id(-12);
    writer.write(playlist);
    qorx::Deletion deletion;
    deletion.set_sync_id(13);
    writer.write(deletion);
    writer.end();
    return bytes;
}

Bytes sealed(Bytes bytes) {
    std::uint64_t checksum = XXH3_64bits(bytes.data(), bytes.size());
    for (int i = 0; i < 8; ++i, checksum >>= 8) {
        bytes.push_back(static_cast<std::uint8_t>(checksum));
    }
    return bytes;
}

RawStream::RawStream() : _bytes{'Q', 'O', 'R', 'X', common::QorxVersion} {}

RawStream& RawStream::length(std::uint64_t value) {
    while (value >= 0x80) {
        _bytes.push_back(static_cast<std::uint8_t>(value | 0x80));
        value >>= 7;
    }
    _bytes.push_back(static_cast<std::uint8_t>(value));
    return *this;
}

RawStream& RawStream::raw(const Bytes& bytes) {
    _bytes.insert(_bytes.end(), bytes.begin(), bytes.end());
    return *this;
}

RawStream& RawStream::record(const qorx::Record& record) {
    const std::string body = record.SerializeAsString();
    return length(body.size()).raw(Bytes(body.begin(), body.end()));
}

Bytes RawStream::finish() const {
    return sealed(_bytes);
}

qorx::Record headerRecord() {
    qorx::Record record;
    record.mutable_header()->set_purpose(qorx::Header::HOST_DATA);
    return record;
}

qorx::Record trackRecord(std::int64_t syncID) {
    qorx::Record record;
    *record.mutable_track() = track(syncID, "A title");
    return record;
}

qorx::Record endRecord(std::uint64_t tracks, std::uint64_t playlists, std::uint64_t deletions) {
    qorx::Record record;
    record.mutable_end()->set_tracks(tracks);
    record.mutable_end()->set_playlists(playlists);
    record.mutable_end()->set_deletions(deletions);
    return record;
}

Outcome readAll(common::QorxReader& reader) {
    Outcome outcome;
    google::protobuf::Arena arena;
    while (const qorx::Record* record = reader.next(arena)) {
        outcome.records.push_back(*record);
    }
    outcome.error = reader.error();
    return outcome;
}

Outcome readAll(const Bytes& bytes) {
    common::QorxReader reader(bytes);
    return readAll(reader);
}

}  // namespace qorx_streams
