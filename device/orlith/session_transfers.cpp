// A session's assets: their parts arrive on the reader and are filed on the worker.
#include <fmt/format.h>

#include <cerrno>

#include "device/orlith/asset.h"
#include "device/orlith/names.h"
#include "device/orlith/session.h"
#include "device/orlith/session_error.h"
#include "device/orlith/sync_files.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::size_t LargestChunk = 256 << 10;
constexpr std::size_t HashSize = 16;
constexpr int MostPartialQueries = 10000;
// Bytes; more than any picture or recommendation data that the plug-in takes.
constexpr std::uint64_t LargestStagedPart = 64 << 20;
constexpr std::size_t MostStagedParts = 1000;  // of one asset

const char* nameOf(link::Transfer::Part part) {
    switch (part) {
        case link::Transfer::FILE:
            return "the media file";
        case link::Transfer::KENNING:
            return "the recommendation data";
        default:
            return "a picture";
    }
}

// The asset's part that a message's part belongs to; 0 for none.
std::uint32_t listedPart(link::Transfer::Part part) {
    switch (part) {
        case link::Transfer::FILE:
            return PartFile;
        case link::Transfer::ARTWORK:
        case link::Transfer::CHAPTER_ARTWORK:
            return PartArtwork;
        case link::Transfer::KENNING:
            return PartKenning;
        default:
            return 0;
    }
}

std::string partialPathOf(const link::Transfer& transfer) {
    std::optional<std::uint64_t> chapter;
    if (transfer.part() == link::Transfer::CHAPTER_ARTWORK)
        chapter = transfer.chapter_ms();
    return StagingArea::partialPath(transfer.identifier(),
                                    static_cast<std::uint32_t>(transfer.part()), chapter);
}

std::string stagedPathOf(const link::Transfer& transfer) {
    switch (transfer.part()) {
        case link::Transfer::KENNING:
            return StagingArea::kenningPath(transfer.kenning_id());
        case link::Transfer::CHAPTER_ARTWORK:
            return StagingArea::artworkPath(
                fmt::format("{}-{}", transfer.identifier(), transfer.chapter_ms()));
        default:
            return StagingArea::artworkPath(transfer.identifier());
    }
}

// What would make the part's names or numbers unusable; none when all is well.
OptionalError checkPart(const link::Transfer& transfer) {
    const bool isFile = transfer.part() == link::Transfer::FILE;
    if (isFile && !isFileExtension(transfer.file_extension()))
        return Error(platform::POSIXErrorDomain, EINVAL,
                     fmt::format("\"{}\" is no file extension that the device takes",
                                 printable(transfer.file_extension())));
    if (transfer.part() == link::Transfer::KENNING && !parseIdentifier(transfer.kenning_id()))
        return Error(platform::POSIXErrorDomain, EINVAL, "the recommendation id is no number");
    if (!isFile && transfer.offset() != 0)
        return Error(platform::POSIXErrorDomain, EINVAL, "only a media file can be resumed");
    if (!isFile && transfer.size() > LargestStagedPart)
        return Error(platform::POSIXErrorDomain, EFBIG, "the part is too large");
    return std::nullopt;
}

}  // namespace

void Session::answerPartialQuery(const link::PartialQuery& message) {
    require(Step::Transferring, Step::Transferring, "a question for partial files");
    if (message.identifiers_size() > MostPartialQueries)
        throw protocolError("a question for too many partial files");
    link::FromDevice answer;
    link::PartialReply& reply = *answer.mutable_partial();
    for (const std::string& identifier : message.identifiers()) {
        FilePrefix prefix;
        if (parseIdentifier(identifier))
            prefix = readPrefix(_services.files,
                                StagingArea::partialPath(identifier, link::Transfer::FILE));
        reply.add_bytes(prefix.length);
        reply.add_prefix_hash(prefix.length != 0 ? hashText(prefix.hash) : std::string());
    }
    // In order with the answers that are still being worked on.
    post([this, answer = std::move(answer)] { send(answer); });
}

void Session::beginTransfer(const link::Transfer& message) {
    require(Step::Transferring, Step::Transferring, "a transfer");
    if (!parseIdentifier(message.identifier()))
        throw protocolError("\"" + printable(message.identifier()) + "\" is no asset");
    if (!_assembly) {
        _assembly.emplace();
        _assemblyIdentifier = message.identifier();
    } else if (_assemblyIdentifier != message.identifier()) {
        throw protocolError("the parts of two assets were mixed");
    }
    if (message.part() == link::Transfer::NONE)
        return completeAsset(message);
    openPart(message);
}

void Session::openPart(const link::Transfer& message) {
    const std::uint32_t part = listedPart(message.part());
    if (part == 0)
        throw protocolError("a part of a kind that this device does not know");
    if (message.content_hash().size() != HashSize)
        throw protocolError("a part without a hash");
    _reception.emplace();
    _reception->transfer = message;
    if (!isListed(message.identifier(), part))
        return;
    OptionalError error = checkPart(message);
    if (!error && _assembly->staged.size() >= MostStagedParts)
        error = Error(platform::POSIXErrorDomain, E2BIG, "too many pictures");
    if (!error)
        _reception->file = IncomingFile::open(_services.files, partialPathOf(message),
                                              message.size(), message.offset(), error);
    if (error)
        dropReception(*error);
}

// The rest of the part is read and thrown away. A media file that cannot be stored is an install
// that failed, one that arrived wrong a transfer that failed; without another part the file is
// still filed.
void Session::dropReception(const Error& error) {
    if (_reception->file)
        _reception->file->remove();
    _reception->file.reset();
    const link::Transfer& transfer = _reception->transfer;
    if (transfer.part() != link::Transfer::FILE) {
        _assembly->complaint = fmt::format("{}: {}", nameOf(transfer.part()), error.text());
        return;
    }
    const bool arrivedWrong =
        error.code == EBADMSG || error.code == EMSGSIZE || error.code == EFBIG;
    (arrivedWrong ? _assembly->transferFailure : _assembly->installFailure) = error;
}

void Session::receiveChunk(const link::Chunk& message) {
    if (!_reception)
        throw protocolError("bytes of no file");
    if (message.data().size() > LargestChunk)
        throw protocolError(fmt::format("a chunk of {} bytes", message.data().size()));
    if (_reception->file) {
        const OptionalError error = _reception->file->write(message.data());
        if (error && _reception->sessionFile)
            throw SessionError(*error);
        if (error)
            dropReception(*error);
    }
    if (message.last())
        finishReception();
}

void Session::finishReception() {
    Reception reception = std::move(*_reception);
    if (reception.sessionFile) {
        _reception.reset();
        return finishSessionFile(std::move(reception));
    }
    const link::Transfer transfer = reception.transfer;
    *_reception = std::move(reception);
    if (_reception->file) {
        OptionalError error = _reception->file->finish(transfer.content_hash());
        if (!error && transfer.part() != link::Transfer::FILE) {
            _services.files.unlink(stagedPathOf(transfer));
            error = _reception->file->moveTo(stagedPathOf(transfer));
        }
        if (error)
            dropReception(*error);
    }
    if (_reception->file)
        keepPart(std::move(_reception->file), transfer);
    _reception.reset();
    if (transfer.asset_complete())
        completeAsset(transfer);
}

void Session::keepPart(std::unique_ptr<IncomingFile> file, const link::Transfer& transfer) {
    if (transfer.part() != link::Transfer::FILE) {
        _assembly->staged.push_back(std::move(file));
        if (transfer.part() == link::Transfer::CHAPTER_ARTWORK)
            _assembly->chapterPictures.push_back(transfer.chapter_ms());
        return;
    }
    _assembly->file = std::move(file);
    _assembly->fileExtension = transfer.file_extension();
}

void Session::completeAsset(const link::Transfer& message) {
    if (!message.asset_complete())
        throw protocolError("an announcement of nothing");
    const auto received = std::make_shared<ReceivedAsset>(std::move(*_assembly));
    _assembly.reset();
    const std::optional<ListedAsset> listed =
        takeListed(message.identifier(), true, message.parts());
    if (!listed) {
        if (received->file)
            received->file->remove();
        return answerUnlisted(message.identifier(), message.parts());
    }
    received->asset = listed->asset;
    received->parts = listed->parts;
    const std::uint64_t size = received->file ? received->file->size() : 0;
    post(
        [this, received] {
            const FilingResult result = _filer.file(*received);
            sendAssetResult(received->asset->identifier(), received->parts, result);
        },
        static_cast<std::size_t>(size));
}

void Session::transferFailed(const link::TransferFailed& message) {
    require(Step::Transferring, Step::Transferring, "a failed transfer");
    if (!parseIdentifier(message.identifier()))
        throw protocolError("\"" + printable(message.identifier()) + "\" is no asset");
    // It may break off an asset of which some parts have come.
    const auto received = std::make_shared<ReceivedAsset>();
    if (_assembly) {
        if (_assemblyIdentifier != message.identifier())
            throw protocolError("the parts of two assets were mixed");
        *received = std::move(*_assembly);
        _assembly.reset();
    }
    const std::optional<ListedAsset> listed =
        takeListed(message.identifier(), true, message.parts());
    if (!listed)
        return answerUnlisted(message.identifier(), message.parts());
    received->asset = listed->asset;
    received->parts = listed->parts;
    received->installFailure.reset();
    received->transferFailure =
        message.recoverable() ? Error(platform::POSIXErrorDomain, EIO, printable(message.reason()))
                              : Error(platform::URLErrorDomain, URLErrorFileDoesNotExist,
                                      printable(message.reason()));
    post([this, received] {
        const FilingResult result = _filer.file(*received);
        sendAssetResult(received->asset->identifier(), received->parts, result);
    });
}

std::optional<Session::ListedAsset> Session::takeListed(const std::string& identifier,
                                                        bool isDownload, std::uint32_t parts) {
    const std::scoped_lock lock(_listedMutex);
    const auto [begin, end] = _listed.equal_range(identifier);
    for (auto entry = begin; entry != end; ++entry)
        if (entry->second.asset->isDownload() == isDownload && entry->second.parts == parts) {
            ListedAsset listed = std::move(entry->second);
            _listed.erase(entry);
            return listed;
        }
    return std::nullopt;
}

bool Session::isListed(const std::string& identifier, std::uint32_t part) {
    const std::scoped_lock lock(_listedMutex);
    const auto [begin, end] = _listed.equal_range(identifier);
    for (auto entry = begin; entry != end; ++entry)
        if (entry->second.asset->isDownload() && (entry->second.parts & part) != 0)
            return true;
    return false;
}

void Session::answerUnlisted(const std::string& identifier, std::uint32_t parts) {
    post([this, identifier, parts] {
        sendAssetResult(identifier, parts,
                        {Error(OrlithErrorDomain, OrlithErrorNotListed,
                               "the device does not ask for this asset"),
                         {}});
    });
}

void Session::sendAssetResult(const std::string& identifier, std::uint32_t parts,
                              const FilingResult& result) {
    link::FromDevice answer;
    link::AssetResult& outcome = *answer.mutable_asset_result();
    outcome.set_identifier(identifier);
    outcome.set_parts(parts);
    outcome.set_success(!result.failure);
    if (result.failure)
        fillFailure(*result.failure, *outcome.mutable_failure());
    else if (!result.complaint.empty())
        fillFailure(Error(platform::POSIXErrorDomain, EBADMSG, result.complaint),
                    *outcome.mutable_failure());
    send(answer);
}

}  // namespace orlith
