#include "host/session/asset_feeder.h"

#include "host/scan/content_hash.h"
#include "host/session/part_reader.h"

namespace host {

namespace link = ::orlith::link;

namespace {

// What is read ahead of the stream, in bytes.
constexpr std::size_t ReadAhead = 8 << 20;

link::Transfer::Part linkPart(AssetPart::Kind kind) {
    switch (kind) {
        case AssetPart::Kind::File:
            return link::Transfer::FILE;
        case AssetPart::Kind::Artwork:
            return link::Transfer::ARTWORK;
        case AssetPart::Kind::ChapterArtwork:
            return link::Transfer::CHAPTER_ARTWORK;
        case AssetPart::Kind::Kenning:
            return link::Transfer::KENNING;
    }
    return link::Transfer::NONE;
}

}  // namespace

AssetFeeder::AssetFeeder(const std::vector<OutstandingAsset>& assets, AssetSource& source)
    : _assets(assets), _source(source), _thread([this] { run(); }) {}

AssetFeeder::~AssetFeeder() {
    {
        const std::scoped_lock lock(_mutex);
        _stopped = true;
    }
    _changed.notify_all();
    _thread.join();
}

std::optional<FedMessage> AssetFeeder::next() {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [this] { return _done || !_ready.empty(); });
    if (_ready.empty())
        return std::nullopt;
    FedMessage message = std::move(_ready.front());
    _ready.pop_front();
    _readyBytes -= message.message.chunk().data().size();
    _changed.notify_all();
    return message;
}

bool AssetFeeder::push(FedMessage message) {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [this] { return _stopped || _readyBytes < ReadAhead; });
    if (_stopped)
        return false;
    _readyBytes += message.message.chunk().data().size();
    _ready.push_back(std::move(message));
    _changed.notify_all();
    return true;
}

void AssetFeeder::run() {
    for (const OutstandingAsset& asset : _assets)
        if (!feed(asset))
            break;
    const std::scoped_lock lock(_mutex);
    _done = true;
    _changed.notify_all();
}

bool AssetFeeder::feed(const OutstandingAsset& asset) {
    const AssetContent content = _source.contentOf(asset);
    if (!content.failure.empty())
        return feedFailure(asset, content.failure);
    if (content.parts.empty())
        return feedNothing(asset);
    for (std::size_t i = 0; i < content.parts.size(); ++i) {
        std::string failure;
        if (!feedPart(asset, content.parts[i], i + 1 == content.parts.size(), failure))
            return false;
        if (!failure.empty())
            return feedFailure(asset, failure);
    }
    return true;
}

bool AssetFeeder::feedPart(const OutstandingAsset& asset, const AssetPart& part, bool endsAsset,
                           std::string& failure) {
    const std::uint64_t offset = part.kind == AssetPart::Kind::File ? asset.resumeFrom : 0;
    PartReader reader(part);
    failure = reader.open(offset);
    if (!failure.empty())
        return true;
    FedMessage announcement;
    link::Transfer& transfer = *announcement.message.mutable_transfer();
    transfer.set_identifier(asset.identifier);
    transfer.set_part(linkPart(part.kind));
    transfer.set_size(reader.size());
    transfer.set_offset(offset);
    if (part.contentHash)
        transfer.set_content_hash(bytesOfContentHash(*part.contentHash));
    transfer.set_file_extension(part.extension);
    transfer.set_kenning_id(part.kenningId);
    transfer.set_chapter_ms(part.chapterMilliseconds);
    transfer.set_asset_complete(endsAsset);
    transfer.set_parts(asset.parts);
    announcement.insideFile = true;
    return push(std::move(announcement)) && feedPieces(reader, part, endsAsset, failure);
}

bool AssetFeeder::feedPieces(PartReader& reader, const AssetPart& part, bool endsAsset,
                             std::string& failure) {
    for (;;) {
        PartReader::Piece piece = reader.next();
        const bool last = piece.last;
        FedMessage fed;
        link::Chunk& chunk = *fed.message.mutable_chunk();
        if (part.kind == AssetPart::Kind::File)
            fed.bytes = piece.data.size();
        fed.insideFile = !last;
        fed.endsAsset = last && endsAsset;
        chunk.set_data(std::move(piece.data));
        chunk.set_last(last);
        if (!piece.failure.empty()) {
            // Too short as it is now, the part is void to the device.
            (endsAsset ? fed.failure : failure) = piece.failure;
        } else if (last) {
            const ContentHash hash = reader.hash();
            chunk.set_content_hash(bytesOfContentHash(hash));
            if (part.kind == AssetPart::Kind::File)
                fed.fileHash = hash;
        }
        if (!push(std::move(fed)))
            return false;
        if (last)
            return true;
    }
}

bool AssetFeeder::feedFailure(const OutstandingAsset& asset, const std::string& reason) {
    FedMessage fed;
    link::TransferFailed& failed = *fed.message.mutable_transfer_failed();
    failed.set_identifier(asset.identifier);
    failed.set_parts(asset.parts);
    // Another source, or a later run, may have the file.
    failed.set_recoverable(true);
    failed.set_reason(reason);
    fed.endsAsset = true;
    fed.failure = reason;
    return push(std::move(fed));
}

bool AssetFeeder::feedNothing(const OutstandingAsset& asset) {
    FedMessage fed;
    link::Transfer& transfer = *fed.message.mutable_transfer();
    transfer.set_identifier(asset.identifier);
    transfer.set_asset_complete(true);
    transfer.set_parts(asset.parts);
    fed.endsAsset = true;
    return push(std::move(fed));
}

}  // namespace host
