#include "device/korvane/import/track_places.h"

#include <initializer_list>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/sort_orders.h"

namespace korvane {

namespace {

// Names are looked up again when there are more: memory stays bounded whatever a host sends.
constexpr std::size_t NamesKept = 200'000;

std::string_view firstOf(std::initializer_list<std::string_view> names) {
    for (const std::string_view name : names) {
        if (!name.empty()) {
            return name;
        }
    }
    return {};
}

// The names that a track is placed by, as for tracks that are placed later.
std::string_view albumArtistName(const qorx::Track& track) {
    return firstOf(
        {track.sort_album_artist(), track.album_artist(), track.sort_artist(), track.artist()});
}
std::string_view albumName(const qorx::Track& track) {
    return firstOf({track.sort_album(), track.album()});
}

}  // namespace

void TrackPlaces::note(std::string_view name) {
    if (_orders.find(name) == _orders.end()) {
        _unknown.push_back(&*_orders.emplace(name, 0).first);
    }
}

void TrackPlaces::placeUnknown() {
    std::vector<std::string> keys;
    keys.reserve(_unknown.size());
    for (const auto* entry : _unknown) {
        keys.push_back(sortKey(entry->first));
    }
    if (ensureSortOrders(_database, keys)) {
        for (auto& [name, order] : _orders) {
            order = sortOrder(_database, sortKey(name));
        }
    } else {
        for (std::size_t i = 0; i < keys.size(); ++i) {
            _unknown[i]->second = sortOrder(_database, keys[i]);
        }
    }
    _unknown.clear();
}

std::vector<TrackPlace> TrackPlaces::of(std::span<const qorx::Track* const> tracks) {
    if (_orders.size() > NamesKept) {
        _orders.clear();
    }
    for (const qorx::Track* track : tracks) {
        note(albumArtistName(*track));
        note(albumName(*track));
    }
    if (!_unknown.empty()) {
        placeUnknown();
    }
    std::vector<TrackPlace> places;
    places.reserve(tracks.size());
    for (const qorx::Track* track : tracks) {
        places.push_back({_orders.find(albumArtistName(*track))->second,
                          _orders.find(albumName(*track))->second});
    }
    return places;
}

}  // namespace korvane
