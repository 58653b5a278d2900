#include "host/kenning/kenning.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <tuple>
#include <unordered_map>

#include "host/kenning/kenning_blobs.h"
#include "host/scan/file_names.h"
#include "platform/media_library_properties.h"

namespace host {

namespace {

// How far to either side a track looks for its like in a list of tracks that share a trait. This
// bounds the work per track where half a collection is of one genre.
constexpr std::size_t Window = 32;
constexpr std::size_t PlaylistWindow = 5;
constexpr std::size_t NeighbourLimit = 256;  // of one track, over all playlists

// Points; the sum of all stays below what a score holds.
constexpr std::uint32_t AlbumPoints = 4000;
constexpr std::uint32_t ArtistPoints = 3000;
constexpr std::uint32_t AlbumArtistPoints = 1000;
constexpr std::uint32_t GenrePoints = 1500;
constexpr std::int32_t YearSpan = 10;
constexpr std::uint32_t PointsPerYear = 100;
constexpr std::int32_t BeatSpan = 10;
constexpr std::uint32_t PointsPerBeat = 100;
constexpr std::uint32_t PlaylistPoints = 400;  // of the direct neighbour, less farther off
constexpr std::uint32_t PlaylistPointsLimit = 8000;

// What is compared. 0 stands for "not known", which is like nothing.
struct Traits {
    std::int64_t kenningId = 0;
    std::uint32_t artist = 0;
    std::uint32_t albumArtist = 0;
    std::uint32_t album = 0;
    std::uint32_t genre = 0;
    std::int32_t year = 0;
    std::int32_t beatsPerMinute = 0;
};

// A number from 1 up for each distinct text, without regard to case.
class Names {
public:
    std::uint32_t numberOf(const std::string& text) {
        if (text.empty())
            return 0;
        return _numbers
            .try_emplace(caseFoldedName(text), static_cast<std::uint32_t>(_numbers.size() + 1))
            .first->second;
    }

private:
    std::unordered_map<std::string, std::uint32_t> _numbers;
};

std::uint32_t closeness(std::int32_t a, std::int32_t b, std::int32_t span, std::uint32_t points) {
    if (a <= 0 || b <= 0)
        return 0;
    const std::int64_t distance = std::abs(std::int64_t{a} - b);
    return distance < span ? static_cast<std::uint32_t>(span - distance) * points : 0;
}

std::uint32_t sameness(std::uint32_t a, std::uint32_t b, std::uint32_t points) {
    return a != 0 && a == b ? points : 0;
}

std::uint32_t likeness(const Traits& a, const Traits& b) {
    return sameness(a.album, b.album, AlbumPoints) + sameness(a.artist, b.artist, ArtistPoints) +
           sameness(a.albumArtist, b.albumArtist, AlbumArtistPoints) +
           sameness(a.genre, b.genre, GenrePoints) +
           closeness(a.year, b.year, YearSpan, PointsPerYear) +
           closeness(a.beatsPerMinute, b.beatsPerMinute, BeatSpan, PointsPerBeat);
}

bool carriesKenning(const KenningTrack& track) {
    return track.file && track.file->readable() &&
           (track.file->mediaType & (KV3MediaTypeMusic | KV3MediaTypeMusicVideo)) != 0;
}

// A neighbour in a playlist, and what that is worth.
struct Neighbour {
    std::uint32_t place = 0;
    std::uint32_t points = 0;
};

class Comparison {
public:
    Comparison(std::span<const KenningTrack> tracks,
               std::span<const std::vector<std::size_t>> playlists)
        : _traits(tracks.size()), _neighbours(tracks.size()) {
        for (std::size_t place = 0; place < tracks.size(); ++place)
            if (carriesKenning(tracks[place])) {
                _traits[place] = traitsOf(tracks[place]);
                _members.push_back(static_cast<std::uint32_t>(place));
            }
        _carries.resize(tracks.size());
        for (const std::uint32_t place : _members)
            _carries[place] = true;
        for (const auto& playlist : playlists)
            addPlaylist(playlist);
        for (std::size_t trait = 0; trait < TraitOrders.size(); ++trait)
            sortBy(trait);
    }

    const std::vector<std::uint32_t>& members() const { return _members; }

    std::vector<KenningSimilarity> mostLike(std::uint32_t place) {
        collectCandidates(place);
        std::vector<KenningSimilarity> all;
        all.reserve(_candidates.size());
        for (std::size_t at = 0; at < _candidates.size();) {
            const std::uint32_t other = _candidates[at].place;
            std::uint32_t fromPlaylists = 0;
            for (; at < _candidates.size() && _candidates[at].place == other; ++at)
                fromPlaylists += _candidates[at].points;
            const std::uint32_t score = likeness(_traits[place], _traits[other]) +
                                        std::min(fromPlaylists, PlaylistPointsLimit);
            if (score > 0 && _traits[other].kenningId != _traits[place].kenningId)
                all.push_back({_traits[other].kenningId, static_cast<std::uint16_t>(score)});
        }
        const auto kept = std::min(all.size(), KenningMaximumSimilar);
        std::ranges::partial_sort(all, all.begin() + static_cast<std::ptrdiff_t>(kept),
                                  [](const KenningSimilarity& a, const KenningSimilarity& b) {
                                      return std::tie(b.score, a.kenningId) <
                                             std::tie(a.score, b.kenningId);
                                  });
        all.resize(kept);
        return all;
    }

private:
    static constexpr std::array TraitOrders{&Traits::album, &Traits::artist, &Traits::albumArtist,
                                            &Traits::genre};

    // Members by one trait, then by year, beat and id; and where each stands there.
    struct Order {
        std::vector<std::uint32_t> members;
        std::vector<std::uint32_t> position;  // by place
    };

    Traits traitsOf(const KenningTrack& track) {
        const Tags& tags = track.file->tags;
        Traits traits;
        traits.kenningId = track.kenningId;
        traits.artist = _artists.numberOf(tags.artist);
        traits.albumArtist = _artists.numberOf(tags.albumArtist);
        if (!tags.album.empty())
            traits.album = _albums.numberOf(
                (tags.albumArtist.empty() ? tags.artist : tags.albumArtist) + '\n' + tags.album);
        traits.genre = _genres.numberOf(tags.genre);
        traits.year = tags.year;
        traits.beatsPerMinute = tags.beatsPerMinute;
        return traits;
    }

    void addPlaylist(const std::vector<std::size_t>& playlist) {
        for (std::size_t at = 0; at < playlist.size(); ++at)
            for (std::size_t apart = 1; apart <= PlaylistWindow && at + apart < playlist.size();
                 ++apart)
                addNeighbours(playlist[at], playlist[at + apart],
                              PlaylistPoints / static_cast<std::uint32_t>(apart));
    }

    void addNeighbours(std::size_t a, std::size_t b, std::uint32_t points) {
        if (a == b || a >= _traits.size() || b >= _traits.size() || !_carries[a] || !_carries[b])
            return;
        for (const auto& [from, to] : {std::pair(a, b), std::pair(b, a)})
            if (_neighbours[from].size() < NeighbourLimit)
                _neighbours[from].push_back({static_cast<std::uint32_t>(to), points});
    }

    void sortBy(std::size_t trait) {
        Order& order = _orders[trait];
        order.members = _members;
        std::ranges::sort(order.members, {}, [&](std::uint32_t place) {
            const Traits& t = _traits[place];
            return std::tuple(t.*TraitOrders[trait], t.year, t.beatsPerMinute, t.kenningId, place);
        });
        order.position.resize(_traits.size());
        for (std::size_t at = 0; at < order.members.size(); ++at)
            order.position[order.members[at]] = static_cast<std::uint32_t>(at);
    }

    // Fills _candidates, by place; one place may stand there several times.
    void collectCandidates(std::uint32_t place) {
        _candidates = _neighbours[place];
        for (std::size_t trait = 0; trait < TraitOrders.size(); ++trait) {
            const std::uint32_t own = _traits[place].*TraitOrders[trait];
            if (own == 0)
                continue;
            const Order& order = _orders[trait];
            const auto shares = [&](std::size_t at) {
                return _traits[order.members[at]].*TraitOrders[trait] == own;
            };
            const std::size_t middle = order.position[place];
            for (std::size_t at = middle; at-- > 0 && middle - at <= Window && shares(at);)
                _candidates.push_back({order.members[at], 0});
            for (std::size_t at = middle + 1;
                 at < order.members.size() && at - middle <= Window && shares(at); ++at)
                _candidates.push_back({order.members[at], 0});
        }
        std::ranges::sort(_candidates, {}, &Neighbour::place);
    }

    Names _artists;
    Names _albums;
    Names _genres;
    std::vector<Traits> _traits;  // by place
    std::vector<bool> _carries;   // by place: whether it is a member
    std::vector<std::uint32_t> _members;
    std::vector<std::vector<Neighbour>> _neighbours;  // by place
    std::array<Order, TraitOrders.size()> _orders;
    std::vector<Neighbour> _candidates;  // of the track that is being compared
};

KenningMetadata metadataOf(const KenningTrack& track) {
    const Tags& tags = track.file->tags;
    return {track.kenningId,
            tags.artist,
            tags.album,
            tags.genre,
            tags.year,
            tags.beatsPerMinute,
            track.file->durationMilliseconds};
}

}  // namespace

std::vector<KenningRecord> makeKenningRecords(std::span<const KenningTrack> tracks,
                                              std::span<const std::vector<std::size_t>> playlists) {
    Comparison comparison(tracks, playlists);
    std::vector<KenningRecord> records;
    records.reserve(comparison.members().size());
    for (const std::uint32_t place : comparison.members()) {
        KenningRecord& record = records.emplace_back();
        record.kenningId = tracks[place].kenningId;
        record.metadata = encodeKenningMetadata(metadataOf(tracks[place]));
        record.similarities = encodeKenningSimilarities(comparison.mostLike(place));
        record.checksum = kenningChecksum(record.metadata, record.similarities);
    }
    return records;
}

}  // namespace host
