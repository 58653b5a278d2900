#include "device/korvane/import/record_stream.h"

#include <algorithm>

#include "device/korvane/import/import_failure.h"

namespace korvane {

namespace {

// A batch is small enough for its records to stay in the processor's cache while they are gone
// through in another order. It fits into the arena's first block, which is kept from batch to
// batch; large records take memory of their own.
constexpr std::size_t RecordsPerBatch = 1'000;
constexpr std::size_t FirstBlock = 8u << 20;
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

// The memory of the records of a batch.
class RecordArena {
public:
    google::protobuf::Arena& operator*() { return _arena; }
    google::protobuf::Arena* operator->() { return &_arena; }

private:
    static google::protobuf::ArenaOptions options(char* block) {
        google::protobuf::ArenaOptions options;
        options.initial_block = block;
        options.initial_block_size = FirstBlock;
        return options;
    }

    std::unique_ptr<char[]> _block = std::make_unique_for_overwrite<char[]>(FirstBlock);
    google::protobuf::Arena _arena{options(_block.get())};
};

void throwIfFailed(const common::QorxReader& reader) {
    if (!reader.error()) {
        return;
    }
    // What the file system says is passed on; what the stream is, is ours to say.
    if (reader.error()->domain != common::QorxErrorDomain) {
        throw ImportFailure(*reader.error());
    }
    refuseStream(reader.error()->text());
}

}  // namespace

void refuseStream(std::string_view text) {
    throw ImportFailure(KVMediaLibraryServiceErrorDamagedData, text);
}

bool isPlausibleUID(std::string_view uid) {
    return !uid.empty() && uid.size() <= LongestUID;
}

OpenRecords recordsOf(std::function<std::unique_ptr<platform::InputStream>()> open) {
    return [open = std::move(open)] {
        std::shared_ptr<platform::InputStream> stream = open();
        if (!stream) {
            throw ImportFailure(KVMediaLibraryServiceErrorNoData, "the host has sent no data");
        }
        return std::make_unique<common::QorxReader>(sourceOf(std::move(stream)));
    };
}

RecordStreamContents RecordStream::verify(const RecordRules& rules) {
    RecordStreamContents contents;
    const auto stream = _open();
    if (const qorx::Header* header = stream->header()) {
        rules.checkHeader(*header);
        contents.header = *header;
    }
    RecordArena arena;
    std::size_t held = 0;
    while (const qorx::Record* record = stream->next(*arena)) {
        if (const std::int64_t id = rules.checkRecord(*record); id != 0) {
            contents.ids.push_back(id);
        }
        if (++held == RecordsPerBatch || arena->SpaceUsed() > ArenaBytesPerBatch) {
            _checkCancelled();
            arena->Reset();
            held = 0;
        }
    }
    throwIfFailed(*stream);
    contents.counts = stream->counts();
    std::ranges::sort(contents.ids);
    return contents;
}

void RecordStream::forEachBatch(qorx::Record::KindCase kind,
                                const std::function<void(Batch&)>& block) {
    const auto stream = _open();
    stream->handOutOnly(kind);
    RecordArena arena;
    Batch batch;
    const auto hand = [&] {
        _checkCancelled();
        block(batch);
        batch.clear();
        arena->Reset();
    };
    while (const qorx::Record* record = stream->next(*arena)) {
        batch.push_back(record);
        if (batch.size() >= RecordsPerBatch || arena->SpaceUsed() > ArenaBytesPerBatch) {
            hand();
        }
    }
    throwIfFailed(*stream);
    hand();
}

}  // namespace korvane
