#include "host/artwork/artwork_cache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "common/unique_fd.h"
#include "host/scan/byte_codec.h"
#include "host/scan/small_file.h"

namespace host {

namespace {

constexpr std::uint32_t IndexMark = 0x41490002;     // "AI" and the version
constexpr std::size_t IndexSizeLimit = 256u << 20;  // bytes
constexpr std::string_view IndexName = "index";

// Beside it, then over it: a reader never sees half a file.
bool replaceFile(const std::string& path, std::string_view bytes) {
    const std::string beside = path + ".new";
    common::UniqueFd fd(
        ::open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!fd)
        return false;
    while (!bytes.empty()) {
        const ssize_t count = ::write(fd.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            ::unlink(beside.c_str());
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    fd.reset();
    return ::rename(beside.c_str(), path.c_str()) == 0;
}

ContentHash readHash(ByteReader& in) {
    return contentHashOfBytes(in.raw(sizeof(ContentHash))).value_or(ContentHash{});
}

void writeHash(ByteWriter& out, const ContentHash& hash) {
    out.raw(bytesOfContentHash(hash));
}

}  // namespace

ArtworkCache::ArtworkCache(std::string directory) : _directory(std::move(directory)) {
    std::error_code ignored;
    std::filesystem::create_directories(_directory, ignored);
    load();
}

std::optional<ContentHash> ArtworkCache::hashOf(const FileStamp& image) const {
    const auto place = _places.find(image.path);
    if (place == _places.end() || place->second.size != image.size ||
        place->second.modifiedNanoseconds != image.modifiedNanoseconds)
        return std::nullopt;
    return place->second.hash;
}

void ArtworkCache::rememberHash(const FileStamp& image, const ContentHash& hash) {
    _places[image.path] = {image.size, image.modifiedNanoseconds, hash};
    _changed = true;
}

std::optional<PreparedArtwork> ArtworkCache::find(const ContentHash& hash) const {
    const auto found = _outcomes.find(hash);
    if (found == _outcomes.end())
        return std::nullopt;
    PreparedArtwork artwork = artworkOf(hash, found->second);
    struct stat status {};
    if (artwork.usable() &&
        (::stat(artwork.path.c_str(), &status) != 0 || status.st_size != artwork.size))
        return std::nullopt;
    return artwork;
}

PreparedArtwork ArtworkCache::add(const PreparedImage& image) {
    Outcome outcome{image.reason, image.extension, std::ssize(image.bytes), image.width,
                    image.height};
    if (image.reason.empty() && !replaceFile(pathOf(image.hash, image.extension), image.bytes)) {
        outcome.reason = "the picture cannot be kept in the cache directory";
        return artworkOf(image.hash, outcome);
    }
    _changed = true;
    return artworkOf(image.hash, _outcomes[image.hash] = std::move(outcome));
}

void ArtworkCache::save() {
    if (!_changed)
        return;
    ByteWriter out;
    out.number(IndexMark);
    out.number(static_cast<std::uint32_t>(_places.size()));
    for (const auto& [path, place] : _places) {
        out.text(path);
        out.number(place.size);
        out.number(place.modifiedNanoseconds);
        writeHash(out, place.hash);
    }
    out.number(static_cast<std::uint32_t>(_outcomes.size()));
    for (const auto& [hash, outcome] : _outcomes) {
        writeHash(out, hash);
        out.text(outcome.reason);
        out.text(outcome.extension);
        out.number(outcome.size);
        out.number(outcome.width);
        out.number(outcome.height);
    }
    _changed = !replaceFile(_directory + '/' + std::string(IndexName), out.bytes());
}

void ArtworkCache::load() {
    std::string bytes;
    if (!readSmallFile(_directory + '/' + std::string(IndexName), IndexSizeLimit, bytes).empty())
        return;
    ByteReader in(bytes);
    if (in.number<std::uint32_t>() != IndexMark)
        return;
    for (auto count = in.number<std::uint32_t>(); count > 0 && in.ok(); --count) {
        Place& place = _places[std::string(in.text())];
        place.size = in.number<std::int64_t>();
        place.modifiedNanoseconds = in.number<std::int64_t>();
        place.hash = readHash(in);
    }
    for (auto count = in.number<std::uint32_t>(); count > 0 && in.ok(); --count) {
        Outcome& outcome = _outcomes[readHash(in)];
        outcome.reason = in.text();
        outcome.extension = in.text();
        outcome.size = in.number<std::int64_t>();
        outcome.width = in.number<std::int32_t>();
        outcome.height = in.number<std::int32_t>();
    }
    if (!in.complete()) {
        _places.clear();
        _outcomes.clear();
    }
}

PreparedArtwork ArtworkCache::artworkOf(const ContentHash& hash, const Outcome& outcome) const {
    PreparedArtwork artwork;
    artwork.reason = outcome.reason;
    artwork.hash = hash;
    if (!artwork.usable())
        return artwork;
    artwork.token = common::hexText(hash);
    artwork.path = pathOf(hash, outcome.extension);
    artwork.extension = outcome.extension;
    artwork.size = outcome.size;
    artwork.width = outcome.width;
    artwork.height = outcome.height;
    return artwork;
}

std::string ArtworkCache::pathOf(const ContentHash& hash, const std::string& extension) const {
    return _directory + '/' + common::hexText(hash) + '.' + extension;
}

}  // namespace host
