#include <map>
#include <utility>

#include "host/artwork/artwork.h"
#include "host/artwork/artwork_cache.h"
#include "host/artwork/prepared_image.h"
#include "host/scan/byte_codec.h"
#include "host/scan/small_file.h"

namespace host {

namespace {

// The token of a purpose, a track and, where there is one, a picture with those of chapters.
std::string derivedToken(std::string_view purpose, std::int64_t globalId,
                         const ContentHash& picture, std::span<const Chapter> chapters = {}) {
    ByteWriter out;
    out.text(purpose);
    out.number(globalId);
    out.raw(bytesOfContentHash(picture));
    for (const Chapter& chapter : chapters) {
        out.number(chapter.startMilliseconds);
        out.raw(bytesOfContentHash(chapter.picture.value_or(ContentHash{})));
    }
    return common::hexText(contentHashOfText(out.bytes()));
}

PreparedArtwork refusal(std::string reason) {
    PreparedArtwork artwork;
    artwork.reason = std::move(reason);
    return artwork;
}

}  // namespace

std::string artworkTokenOfTrack(const ContentHash& picture, std::int64_t globalId,
                                std::span<const Chapter> chapters) {
    return derivedToken("track", globalId, picture, chapters);
}

std::string artworkTokenOfSnapshot(std::int64_t globalId) {
    return derivedToken("snapshot", globalId, {});
}

struct ArtworkPreparer::Impl {
    Impl(std::string givenFolder, std::string cacheDirectory, MediaWorkers& givenWorkers)
        : folder(std::move(givenFolder)), cache(std::move(cacheDirectory)), workers(givenWorkers) {}

    // The picture's hash, or why its file cannot be read.
    std::string hashOf(const ArtworkCandidate& candidate, ContentHash& hash) {
        if (candidate.hash) {
            hash = *candidate.hash;
            return {};
        }
        FileStamp place = candidate.file;
        place.path = folder + '/' + place.path;
        if (const auto known = cache.hashOf(place)) {
            hash = *known;
            return {};
        }
        std::string bytes;
        std::string reason = readSmallFile(place.path, ImageSourceLimit, bytes);
        if (!reason.empty())
            return "the picture: " + reason;
        hash = contentHashOfText(bytes);
        cache.rememberHash(place, hash);
        return {};
    }

    MediaRequest requestFor(const ArtworkCandidate& candidate) const {
        const bool isImage = candidate.source == ArtworkCandidate::Source::ImageFile;
        return {isImage ? MediaRequest::Kind::PrepareImage : MediaRequest::Kind::PrepareEmbedded,
                folder + '/' + candidate.file.path, candidate.chapter};
    }

    PreparedArtwork take(MediaAnswer answer, const ContentHash& expected) {
        if (!answer.reason.empty())
            return refusal(std::move(answer.reason));
        const auto image = decodePreparedImage(answer.bytes);
        if (!image)
            return refusal("the picture confused the reader");
        if (image->hash != expected)
            return refusal("the picture changed while it was read");
        return cache.add(*image);
    }

    std::string folder;
    ArtworkCache cache;
    MediaWorkers& workers;
};

ArtworkPreparer::ArtworkPreparer(std::string folder, std::string cacheDirectory,
                                 MediaWorkers& workers)
    : _impl(std::make_unique<Impl>(std::move(folder), std::move(cacheDirectory), workers)) {}

ArtworkPreparer::~ArtworkPreparer() {
    _impl->cache.save();
}

platform::OptionalError ArtworkPreparer::prepare(std::span<const ArtworkCandidate> candidates,
                                                 std::vector<PreparedArtwork>& prepared,
                                                 const std::stop_token& stop) {
    prepared.assign(candidates.size(), refusal("the preparing was stopped"));
    std::map<ContentHash, std::vector<std::size_t>> placesByHash;
    for (std::size_t place = 0; place < candidates.size() && !stop.stop_requested(); ++place) {
        ContentHash hash;
        std::string reason = _impl->hashOf(candidates[place], hash);
        if (reason.empty())
            placesByHash[hash].push_back(place);
        else
            prepared[place] = refusal(std::move(reason));
    }
    std::vector<MediaRequest> requests;
    std::vector<ContentHash> requestedHashes;
    const auto answerAll = [&](const ContentHash& hash, const PreparedArtwork& artwork) {
        for (const std::size_t place : placesByHash[hash])
            prepared[place] = artwork;
    };
    for (const auto& [hash, places] : placesByHash) {
        if (const auto known = _impl->cache.find(hash)) {
            answerAll(hash, *known);
        } else {
            requests.push_back(_impl->requestFor(candidates[places.front()]));
            requestedHashes.push_back(hash);
        }
    }
    auto error = _impl->workers.run(
        requests,
        [&](std::size_t request, MediaAnswer answer) {
            const ContentHash& hash = requestedHashes[request];
            answerAll(hash, _impl->take(std::move(answer), hash));
        },
        stop);
    _impl->cache.save();
    return error;
}

}  // namespace host
