#include "device/orlith/mirror/asset_puller.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <set>

#include "device/orlith/asset.h"
#include "device/orlith/names.h"
#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

// Asked for and not answered, beside those that wait at the first device.
constexpr std::size_t Window = 3;
// With those that wait: as many as the device lets one companion have.
constexpr std::size_t MostOpen = 100;
// What may wait for filing, in bytes of received files.
constexpr std::size_t QueueBudget = 16 << 20;
// Bytes; more than any picture that the plug-in takes.
constexpr std::uint64_t LargestPicture = 64 << 20;
constexpr std::size_t MostChapterPictures = 10000;

Error brokenProtocol() {
    return Error(OrlithErrorDomain, OrlithErrorProtocol,
                 "the other device does not keep to the protocol");
}

// The extension of a file's name in the form that the device takes; "" when there is none.
std::string extensionOf(const std::string& fileName) {
    const std::size_t dot = fileName.rfind('.');
    if (dot == std::string::npos)
        return {};
    std::string extension = fileName.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return isFileExtension(extension) ? extension : std::string();
}

// Pictures evenly among the files: the other device makes them fit while files come, rather than
// before.
std::vector<WantedAsset> spreadPictures(std::vector<WantedAsset> wanted) {
    const auto firstFile =
        std::stable_partition(wanted.begin(), wanted.end(),
                              [](const WantedAsset& asset) { return asset.parts == PartArtwork; });
    const auto pictures = static_cast<std::size_t>(firstFile - wanted.begin());
    const std::size_t files = wanted.size() - pictures;
    std::vector<WantedAsset> spread;
    spread.reserve(wanted.size());
    auto file = firstFile;
    for (std::size_t picture = 0; picture < pictures; ++picture) {
        const auto next = firstFile + static_cast<std::ptrdiff_t>(files * picture / pictures);
        std::move(file, next, std::back_inserter(spread));
        file = next;
        spread.push_back(std::move(wanted[picture]));
    }
    std::move(file, wanted.end(), std::back_inserter(spread));
    return spread;
}

bool isFull(const Error& error) {
    return error.domain == platform::POSIXErrorDomain &&
           (error.code == ENOSPC || error.code == EDQUOT);
}

}  // namespace

AssetPuller::AssetPuller(const MirrorServices& services, FirstDevice& first,
                         const MirrorEvents& events, std::string peerUID)
    : _services(services),
      _first(first),
      _events(events),
      _peerUID(std::move(peerUID)),
      _filer(services),
      _queue(QueueBudget) {
    _progress.set_phase(link::MirrorProgress::FETCHING_ASSETS);
}

AssetPuller::~AssetPuller() = default;

std::vector<WantedAsset> AssetPuller::listWanted() {
    std::vector<WantedAsset> wanted;
    std::set<std::pair<std::string, std::uint32_t>> seen;
    _services.device.library.adoptFoundPictures();
    _services.assets.assetsToSyncWithCompletion(
        [&](const OptionalError& error, const std::vector<std::shared_ptr<ORAsset>>& assets) {
            throwIf(error);
            for (const std::shared_ptr<ORAsset>& asset : assets) {
                const std::uint32_t parts = partsOf(*asset);
                const auto syncID = parseIdentifier(asset->identifier());
                if (!syncID || (parts != PartFile && parts != PartArtwork) ||
                    !seen.emplace(asset->identifier(), parts).second)
                    continue;
                // What this peer does not have comes from elsewhere.
                const auto idAtPeer = _services.peers.trackAtPeer(_peerUID, *syncID);
                if (!idAtPeer)
                    continue;
                // Every record was made by this daemon.
                const auto& own = static_cast<const Asset&>(*asset);
                wanted.push_back({asset, *syncID, parts,
                                  cleanUTF8(std::string(own.prettyName().value_or(""))),
                                  *idAtPeer});
            }
        });
    return spreadPictures(std::move(wanted));
}

void AssetPuller::run(std::vector<WantedAsset> wanted, link::MirrorSummary& summary) {
    {
        const std::scoped_lock lock(_mutex);
        _progress.set_total(wanted.size());
    }
    std::size_t next = 0;
    while (next < wanted.size() || !_again.empty() || !_open.empty()) {
        while (mayAsk() && (!_again.empty() || next < wanted.size())) {
            Reception reception;
            if (!_again.empty()) {
                reception = std::move(_again.front());
                _again.pop_front();
            } else {
                reception.pulled.wanted = std::move(wanted[next++]);
            }
            ask(std::move(reception));
        }
        throwIfFilingFailed();
        if (!_open.empty())
            take(_first.nextOfAssets());
    }
    _queue.drain();
    throwIfFilingFailed();
    const std::scoped_lock lock(_mutex);
    summary.set_assets(_filed);
    summary.set_failed(_failed);
    summary.set_bytes(summary.bytes() + _progress.bytes());
}

bool AssetPuller::mayAsk() const {
    const auto waiting = std::count_if(_open.begin(), _open.end(),
                                       [](const auto& entry) { return entry.second.waits; });
    return _open.size() - static_cast<std::size_t>(waiting) < Window && _open.size() < MostOpen;
}

void AssetPuller::ask(Reception reception) {
    const WantedAsset& wanted = reception.pulled.wanted;
    if (_deviceIsFull) {
        reception.pulled.failure = Error(platform::POSIXErrorDomain, ENOSPC, "the device is full");
        return post(std::move(reception.pulled), 0);
    }
    link::AssetRequest request;
    request.set_request(++_lastRequest);
    request.set_identifier(fmt::format("{}", wanted.idAtPeer));
    request.set_parts(wanted.parts);
    const platform::Value& dimensions = wanted.asset->variantOptions()[DimensionsKey];
    if (dimensions.isArray() && dimensions.array()->size() == 2)
        for (const platform::Value& side : *dimensions.array())
            request.add_dimensions(side.doubleValue());
    if (wanted.parts == PartFile && reception.mayResume) {
        const FilePrefix prefix = readPrefix(
            _services.device.files, StagingArea::partialPath(wanted.asset->identifier(), PartFile));
        reception.offset = prefix.length;
        request.set_offset(prefix.length);
        if (prefix.length != 0)
            request.set_prefix_hash(hashText(prefix.hash));
    }
    _first.askForAsset(request);
    _open.emplace(_lastRequest, std::move(reception));
}

void AssetPuller::take(const link::AssetMessage& message) {
    using Piece = link::AssetMessage::PieceCase;
    const auto open = _open.find(message.request());
    if (open == _open.end())
        throw SessionError(brokenProtocol());
    Reception& reception = open->second;
    switch (message.piece_case()) {
        case Piece::kWaiting:
            reception.waits = true;
            return;
        case Piece::kBegin:
            return begin(reception, message.begin());
        case Piece::kData:
            return append(reception, message.data());
        case Piece::kEnd: {
            if (!message.end().has_failure() && message.end().more()) {
                end(reception, message.end());
                return;
            }
            const bool again = end(reception, message.end());
            Reception finished = std::move(reception);
            _open.erase(open);
            if (again)
                _again.push_back(std::move(finished));
            else
                post(std::move(finished.pulled), finished.size);
            return;
        }
        case Piece::PIECE_NOT_SET:
            break;
    }
    throw SessionError(brokenProtocol());
}

void AssetPuller::begin(Reception& reception, const link::AssetBegin& message) {
    PulledAsset& pulled = reception.pulled;
    const bool isChapter = !message.chapter_cache_id().empty();
    const bool isFile = pulled.wanted.parts == PartFile;
    if (reception.isComing || (isChapter && isFile) ||
        (isChapter && (!isArtworkCacheID(message.chapter_cache_id()) ||
                       pulled.chapters.size() >= MostChapterPictures)) ||
        (message.offset() != 0 && (!isFile || message.offset() != reception.offset)))
        throw SessionError(brokenProtocol());
    reception.waits = false;
    reception.isComing = true;
    reception.chapterCacheID = message.chapter_cache_id();
    if (pulled.failure)
        return;
    if (!isFile && message.size() > LargestPicture)
        return drop(reception,
                    Error(platform::POSIXErrorDomain, EFBIG, "the picture is too large"));
    if (isFile)
        pulled.fileExtension = extensionOf(message.file_name());
    std::optional<std::uint64_t> chapter;
    if (isChapter)
        chapter = pulled.chapters.size();
    OptionalError error;
    reception.file = IncomingFile::open(
        _services.device.files,
        StagingArea::partialPath(pulled.wanted.asset->identifier(), pulled.wanted.parts, chapter),
        message.size(), message.offset(), error);
    if (error)
        drop(reception, *error);
}

void AssetPuller::append(Reception& reception, const std::string& data) {
    if (!reception.isComing)
        throw SessionError(brokenProtocol());
    reception.size += data.size();
    if (reception.file)
        if (const OptionalError error = reception.file->write(data))
            drop(reception, *error);
    if (reception.file)
        _services.assets.assetSyncDidUpdateProgress(reception.pulled.wanted.asset,
                                                    reception.file->progress());
    link::MirrorEvent event;
    {
        const std::scoped_lock lock(_mutex);
        _progress.set_bytes(_progress.bytes() + data.size());
        *event.mutable_progress() = _progress;
    }
    _events(event);
}

bool AssetPuller::end(Reception& reception, const link::AssetEnd& message) {
    OptionalError error;
    if (message.has_failure())
        error = errorOf(message.failure());
    else if (!reception.isComing)
        throw SessionError(brokenProtocol());
    else if (reception.file)
        error = reception.file->finish(message.content_hash());
    reception.isComing = false;
    if (!error) {
        keepPart(reception);
        return false;
    }
    // What an earlier run kept may be of another file.
    const bool isOld = reception.offset != 0 && (error->code == ESTALE || error->code == EBADMSG);
    if (isOld)
        _services.device.files.unlink(StagingArea::partialPath(
            reception.pulled.wanted.asset->identifier(), reception.pulled.wanted.parts));
    if (isOld && reception.mayResume) {
        reception.file.reset();
        reception.mayResume = false;
        reception.offset = 0;
        return true;
    }
    drop(reception, *error);
    return false;
}

void AssetPuller::keepPart(Reception& reception) {
    PulledAsset& pulled = reception.pulled;
    std::unique_ptr<IncomingFile> file = std::move(reception.file);
    if (!file)
        return;
    if (reception.chapterCacheID.empty())
        pulled.file = std::move(file);
    else if (file->size() != 0)
        pulled.chapters.push_back({reception.chapterCacheID, std::move(file)});
    else
        file->remove();
}

// The rest of the part is read and thrown away. A media file stays as far as it came, unless it is
// wrong.
void AssetPuller::drop(Reception& reception, const Error& error) {
    const bool isWrong = error.domain == platform::POSIXErrorDomain &&
                         (error.code == EBADMSG || error.code == EMSGSIZE || error.code == EFBIG);
    if (reception.file && (isWrong || reception.pulled.wanted.parts != PartFile))
        reception.file->remove();
    reception.file.reset();
    if (!reception.chapterCacheID.empty() && !isFull(error))
        return;  // the cover stands in
    _deviceIsFull = _deviceIsFull || isFull(error);
    if (!reception.pulled.failure)
        reception.pulled.failure = error;
}

void AssetPuller::post(PulledAsset pulled, std::uint64_t size) {
    const auto shared = std::make_shared<PulledAsset>(std::move(pulled));
    _queue.push(static_cast<std::size_t>(size), [this, shared, size] {
        OptionalError failure;
        try {
            throwIfFilingFailed();
            return file(*shared, size);
        } catch (const SessionError& error) {
            failure = error.error();
        } catch (const std::exception& error) {
            failure = internalError(error.what());
        } catch (...) {
            failure = internalError("an exception of unknown kind");
        }
        {
            const std::scoped_lock lock(_mutex);
            if (!_filingFailure)
                _filingFailure = failure;
        }
        _first.cancel(*failure);
    });
}

void AssetPuller::file(PulledAsset& pulled, std::uint64_t size) {
    if (!pulled.failure && !pulled.file)
        pulled.failure = Error(platform::POSIXErrorDomain, ENODATA, "the file did not come");
    const bool came = !pulled.failure;
    const OptionalError failure = _filer.file(pulled);
    // The plug-in has heard of what came.
    if (!came)
        _services.assets.assetSyncDidCompleteWithError(pulled.wanted.asset, failure);
    link::MirrorEvent result;
    link::MirrorAsset& asset = *result.mutable_asset();
    asset.set_identifier(pulled.wanted.asset->identifier());
    asset.set_parts(pulled.wanted.parts);
    asset.set_title(pulled.wanted.title);
    asset.set_size(pulled.file ? pulled.file->size() : size);
    asset.set_success(!failure);
    if (failure) {
        fillFailure(*failure, *asset.mutable_failure());
        asset.set_recoverable(failure->code != EFBIG);
    }
    link::MirrorEvent progress;
    {
        const std::scoped_lock lock(_mutex);
        ++(failure ? _failed : _filed);
        _progress.set_done(_progress.done() + 1);
        *progress.mutable_progress() = _progress;
    }
    _events(result);
    _events(progress);
}

void AssetPuller::throwIfFilingFailed() {
    const std::scoped_lock lock(_mutex);
    throwIf(_filingFailure);
}

}  // namespace orlith
