#include "device/korvane/import/track_places.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_map>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/sort_orders.h"

namespace korvane {

namespace {

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

std::vector<TrackPlace> placesOf(common::Database& database,
                                 std::span<const qorx::Track* const> tracks) {
    // Many tracks have few names: each is folded and looked up once.
    std::unordered_map<std::string_view, std::int64_t> orders;
    for (const qorx::Track* track : tracks) {
        orders.emplace(albumArtistName(*track), 0);
        orders.emplace(albumName(*track), 0);
    }
    std::vector<std::string> keys;
    keys.reserve(orders.size());
    for (const auto& [name, order] : orders) {
        keys.push_back(sortKey(name));
    }
    ensureSortOrders(database, keys);
    std::size_t index = 0;
    for (auto& [name, order] : orders) {
        order = sortOrder(database, keys[index++]);
    }
    std::vector<TrackPlace> places;
    places.reserve(tracks.size());
    for (const qorx::Track* track : tracks) {
        places.push_back({orders[albumArtistName(*track)], orders[albumName(*track)]});
    }
    return places;
}

}  // namespace korvane
