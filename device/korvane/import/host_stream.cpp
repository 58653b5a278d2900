#include "device/korvane/import/host_stream.h"

#include <algorithm>

#include "device/korvane/import/import_failure.h"

namespace korvane {

namespace {

// Enough for the sort to pay, little enough to keep in memory.
constexpr std::size_t RecordsPerBatch = 10'000;
constexpr std::uint64_t ArenaBytesPerBatch = 32u << 20;
constexpr std::size_t LongestUID = 256;

common::QorxSource sourceOf(std::shared_ptr<platform::InputStream> stream) {
    return [stream, piece = platform::Data()](std::span<std::uint8_t> room,
                                              platform::OptionalError* error) mutable {
        piece.clear();
        *error = stream->read(piece, room.size());
        std::copy(piece.begin(), piece.end(), room.begin());
        return piece.size();
    };
}

[[noreturn]] void refuse(std::string_view text) {
    throw ImportFailure(KVMediaLibraryServiceErrorDamagedData, text);
}

void throwIfFailed(const common::QorxReader& reader) {
    if (!reader.error()) {
        return;
    }
    // What the file system says is passed on; what the stream is, is ours to say.
    if (reader.error()->domain != common::QorxErrorDomain) {
        throw ImportFailure(*reader.error());
    }
    refuse(reader.error()->text());
}

void requireHostData(const qorx::Header& header) {
    if (header.purpose() != qorx::Header::HOST_DATA) {
        refuse("the stream is no host's data");
    }
    if (header.exporter_uid().empty() || header.exporter_uid().size() > LongestUID) {
        refuse("the stream does not say which host it is from");
    }
}

}  // namespace

std::unique_ptr<common::QorxReader> HostStream::reader() {
    std::shared_ptr<platform::InputStream> stream = _open();
    if (!stream) {
        throw ImportFailure(KVMediaLibraryServiceErrorNoData, "the host has sent no data");
    }
    return std::make_unique<common::QorxReader>(sourceOf(std::move(stream)));
}

HostStreamContents HostStream::verify() {
    HostStreamContents contents;
    const auto stream = reader();
    if (const qorx::Header* header = stream->header()) {
        requireHostData(*header);
        contents.header = *header;
    }
    google::protobuf::Arena arena;
    while (const qorx::Record* record = stream->next(arena)) {
        if (record->has_track()) {
            if (record->track().sync_id() == 0) {
                refuse("a track has no sync id");
            }
            contents.trackSyncIDs.push_back(record->track().sync_id());
        } else if (record->has_playlist() && record->playlist().sync_id() == 0 &&
                   record->playlist().global_id() == 0) {
            refuse("a playlist has no id");
        }
        if (arena.SpaceUsed() > ArenaBytesPerBatch / 8) {
            _checkCancelled();
            arena.Reset();
        }
    }
    throwIfFailed(*stream);
    contents.counts = stream->counts();
    std::ranges::sort(contents.trackSyncIDs);
    return contents;
}

void HostStream::forEachBatch(qorx::Record::KindCase kind,
                              const std::function<void(Batch&)>& block) {
    const auto stream = reader();
    stream->handOutOnly(kind);
    google::protobuf::Arena arena;
    Batch batch;
    const auto hand = [&] {
        _checkCancelled();
        block(batch);
        batch.clear();
        arena.Reset();
    };
    while (const qorx::Record* record = stream->next(arena)) {
        batch.push_back(record);
        if (batch.size() >= RecordsPerBatch || arena.SpaceUsed() > ArenaBytesPerBatch) {
            hand();
        }
    }
    throwIfFailed(*stream);
    hand();
}

}  // namespace korvane
