#include "device/orlith/mirror/asset_source.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "device/orlith/asset.h"
#include "device/orlith/incoming_file.h"
#include "device/orlith/mirror/chapter_pictures.h"
#include "device/orlith/names.h"
#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

// Requests without an answer.
constexpr std::size_t MostPending = 1000;
constexpr std::size_t PieceSize = 256 << 10;
// Bytes; more than any picture that the plug-in takes.
constexpr std::uint64_t LargestPicture = 64 << 20;
// A request that has had no answer for so long waits, and others go first.
constexpr std::chrono::milliseconds ToldAfter{100};
constexpr char Dataclass[] = "Media";

std::shared_ptr<Asset> assetOf(const link::AssetRequest& request) {
    auto asset = Asset::make(Asset::Direction::Pulled, request.identifier(), Dataclass, "");
    platform::Dictionary options{{std::string(AssetPartsKey), std::uint64_t{request.parts()}}};
    if (request.dimensions_size() == 2)
        options.emplace(DimensionsKey,
                        platform::Array{request.dimensions(0), request.dimensions(1)});
    asset->setVariantOptions(options);
    return asset;
}

// The plug-in's own error has no words.
Error refusalOf(const AssetAnswer& answer, std::uint32_t parts) {
    const char* words = parts == PartFile ? "the other device does not have the file"
                                          : "the other device does not have the picture";
    if (!answer.error)
        return Error(platform::POSIXErrorDomain, ENOENT, words);
    return answer.error->text().empty() ? Error(answer.error->domain, answer.error->code, words)
                                        : *answer.error;
}

Error contentsChanged() {
    return Error(
        platform::POSIXErrorDomain, EBADMSG,
        "the other device's file is not what came there: its contents have changed. There, "
        "\"orlith check --full --repair\" sets it aside, and the next sync or mirror brings it "
        "again");
}

SessionError badRequest(const std::string& text) {
    return SessionError(Error(OrlithErrorDomain, OrlithErrorProtocol, text));
}

// In one piece: a copy between the types of bytes by iterators goes byte by byte.
std::string textOf(const platform::Data& data) {
    return {reinterpret_cast<const char*>(data.data()), data.size()};
}

// All of a stream, or why not.
OptionalError readAll(platform::InputStream& stream, std::string& bytes) {
    platform::Data data;
    for (;;) {
        const std::size_t before = data.size();
        if (OptionalError error = stream.read(data, PieceSize))
            return error;
        if (data.size() == before)
            break;
        if (data.size() > LargestPicture)
            return Error(platform::POSIXErrorDomain, EFBIG, "the picture is too large");
    }
    bytes = textOf(data);
    return std::nullopt;
}

}  // namespace

AssetSource::AssetSource(const MirrorServices& services, Send send, Deliver deliver)
    : _services(services), _send(std::move(send)), _deliver(std::move(deliver)) {}

AssetSource::~AssetSource() {
    for (const auto& [number, pending] : _pending)
        stopWatching(pending.request);
}

void AssetSource::ask(const link::AssetRequest& request) {
    if (request.request() == 0 || _pending.contains(request.request()) ||
        _pending.size() >= MostPending)
        throw badRequest("a request for an asset without a number of its own, or too many");
    if (!parseIdentifier(request.identifier()))
        throw badRequest("\"" + printable(request.identifier()) + "\" is no asset");
    if (request.parts() != PartFile && request.parts() != PartArtwork)
        throw badRequest("a part of a kind that this device does not give");
    if (request.dimensions_size() != 0 && request.dimensions_size() != 2)
        throw badRequest("a picture's size without width and height");
    // The plug-in keeps one request for a file and forgets the earlier one.
    for (const auto& [number, pending] : _pending)
        if (pending.request.identifier() == request.identifier() &&
            pending.request.parts() == request.parts())
            return sendEnd(request.request(), Error(platform::POSIXErrorDomain, EALREADY,
                                                    "this asset is being asked for already"));
    // Only files are downloaded; the picture of one may come and go while the file is waited for.
    if (request.parts() == PartFile)
        _services.downloads.watch(request.identifier());
    _pending.emplace(request.request(), Pending{request, Clock::now()});
    _services.assets.getDataForAsset(
        assetOf(request),
        [deliver = _deliver, number = request.request()](
            const OptionalError& error, std::unique_ptr<platform::InputStream> stream,
            const std::optional<std::string>& fileName) {
            deliver({number, error, std::move(stream), fileName.value_or(std::string())});
        });
}

void AssetSource::answer(AssetAnswer answer) {
    const auto pending = _pending.find(answer.request);
    if (pending == _pending.end())
        return;  // it came too late
    const link::AssetRequest request = pending->second.request;
    forget(answer.request);
    if (answer.error || !answer.stream)
        return sendEnd(request.request(), refusalOf(answer, request.parts()));
    if (request.parts() == PartFile)
        sendFile(request, answer);
    else
        sendPictures(request, answer);
}

// Sends the bytes before it can know that they are wrong: a file is read once.
void AssetSource::sendFile(const link::AssetRequest& request, AssetAnswer& answer) {
    const std::shared_ptr<KV3Track> track = trackOf(request);
    const auto path = track->absoluteFilePath();
    const auto attributes = path ? _services.device.files.attributes(*path, nullptr) : std::nullopt;
    if (!attributes)
        return sendEnd(request.request(), Error(platform::POSIXErrorDomain, ENOENT,
                                                "the other device has lost the file just now"));
    common::XXH3Stream hasher;
    if (request.offset() > attributes->size || !skipPrefix(request, *answer.stream, hasher))
        return sendEnd(request.request(), Error(platform::POSIXErrorDomain, ESTALE,
                                                "what was kept of the file is not its beginning"));
    link::FromFirst message;
    link::AssetBegin& begin = *message.mutable_asset()->mutable_begin();
    message.mutable_asset()->set_request(request.request());
    begin.set_file_name(cleanUTF8(answer.fileName));
    begin.set_size(attributes->size);
    begin.set_offset(request.offset());
    if (!_send(message))
        return;
    platform::Data data;
    for (;;) {
        data.clear();
        if (const OptionalError error = answer.stream->read(data, PieceSize))
            return sendEnd(request.request(), *error);
        if (data.empty())
            break;
        hasher.update(data);
        if (!sendData(request.request(), textOf(data)))
            return;
    }
    const std::string hash = hashText(hasher.digest());
    const std::string expected = _services.peers.hashOfFile(track->persistentID());
    if (!expected.empty() && hash != expected)
        return sendEnd(request.request(), contentsChanged());
    link::FromFirst last;
    last.mutable_asset()->set_request(request.request());
    last.mutable_asset()->mutable_end()->set_content_hash(hash);
    _send(last);
}

// Reads over what the companion has, and compares it.
bool AssetSource::skipPrefix(const link::AssetRequest& request, platform::InputStream& stream,
                             common::XXH3Stream& hasher) {
    std::uint64_t left = request.offset();
    platform::Data data;
    while (left != 0) {
        data.clear();
        if (stream.read(data, std::min<std::uint64_t>(left, PieceSize)) || data.empty())
            return false;
        hasher.update(data);
        left -= data.size();
    }
    return request.offset() == 0 || hashText(hasher.digest()) == request.prefix_hash();
}

void AssetSource::sendPictures(const link::AssetRequest& request, AssetAnswer& answer) {
    std::string cover;
    if (const OptionalError error = readAll(*answer.stream, cover))
        return sendEnd(request.request(), *error);
    std::vector<ChapterPicture> chapters =
        chapterPictures(_services.device.mediaLibrary, _services.peers, *trackOf(request));
    std::erase_if(chapters, [](const ChapterPicture& chapter) { return chapter.path.empty(); });
    if (!sendPicture(request.request(), cover, answer.fileName, {}, !chapters.empty()))
        return;
    for (const ChapterPicture& chapter : chapters) {
        const bool more = &chapter != &chapters.back();
        const auto stream = _services.device.files.openInputStream(chapter.path);
        std::string bytes;
        // One that cannot be read comes without bytes, and the companion goes without it.
        if (!stream || readAll(*stream, bytes))
            bytes.clear();
        if (!sendPicture(request.request(), bytes, {}, chapter.cacheID, more))
            return;
    }
}

bool AssetSource::sendPicture(std::uint32_t request, const std::string& bytes,
                              const std::string& name, const std::string& chapterCacheID,
                              bool more) {
    link::FromFirst message;
    message.mutable_asset()->set_request(request);
    link::AssetBegin& begin = *message.mutable_asset()->mutable_begin();
    begin.set_file_name(cleanUTF8(name));
    begin.set_size(bytes.size());
    begin.set_chapter_cache_id(chapterCacheID);
    if (!_send(message))
        return false;
    for (std::size_t done = 0; done < bytes.size(); done += PieceSize)
        if (!sendData(request, bytes.substr(done, PieceSize)))
            return false;
    link::FromFirst last;
    last.mutable_asset()->set_request(request);
    last.mutable_asset()->mutable_end()->set_more(more);
    last.mutable_asset()->mutable_end()->set_content_hash(hashText(
        common::xxh3({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()})));
    return _send(last);
}

std::shared_ptr<KV3Track> AssetSource::trackOf(const link::AssetRequest& request) {
    MediaLibraryFramework& library = _services.device.mediaLibrary;
    return library.trackWithPersistentID(*parseIdentifier(request.identifier()),
                                         library.sharedLibrary());
}

bool AssetSource::sendData(std::uint32_t request, std::string data) {
    link::FromFirst message;
    message.mutable_asset()->set_request(request);
    message.mutable_asset()->set_data(std::move(data));
    return _send(message);
}

void AssetSource::sendEnd(std::uint32_t request, const Error& error) {
    link::FromFirst message;
    message.mutable_asset()->set_request(request);
    fillFailure(error, *message.mutable_asset()->mutable_end()->mutable_failure());
    _send(message);
}

void AssetSource::forget(std::uint32_t request) {
    const auto pending = _pending.find(request);
    stopWatching(pending->second.request);
    _pending.erase(pending);
}

void AssetSource::stopWatching(const link::AssetRequest& request) {
    if (request.parts() == PartFile)
        _services.downloads.forget(request.identifier());
}

AssetSource::Clock::time_point AssetSource::deadlineOf(const Pending& pending) const {
    const auto moved = pending.request.parts() == PartFile
                           ? _services.downloads.lastMove(pending.request.identifier())
                           : std::nullopt;
    return std::max(pending.since, moved.value_or(pending.since)) + _services.assetPatience;
}

void AssetSource::lookAtTheClock() {
    const Clock::time_point now = Clock::now();
    std::vector<std::uint32_t> overdue;
    for (auto& [number, pending] : _pending) {
        if (now >= deadlineOf(pending)) {
            overdue.push_back(number);
        } else if (!pending.told && now >= pending.since + ToldAfter) {
            pending.told = true;
            link::FromFirst message;
            message.mutable_asset()->set_request(number);
            message.mutable_asset()->mutable_waiting();
            _send(message);
        }
    }
    for (const std::uint32_t number : overdue) {
        forget(number);
        sendEnd(number, Error(platform::POSIXErrorDomain, ETIMEDOUT,
                              "the other device did not get hold of the file in time"));
    }
}

AssetSource::Clock::time_point AssetSource::nextLook() const {
    Clock::time_point next = Clock::now() + std::chrono::hours(1);
    for (const auto& [number, pending] : _pending)
        next = std::min(next, pending.told ? deadlineOf(pending) : pending.since + ToldAfter);
    return next;
}

}  // namespace orlith
