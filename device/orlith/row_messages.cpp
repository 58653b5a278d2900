#include "device/orlith/row_messages.h"

#include <algorithm>

#include "device/orlith/names.h"
#include "platform/media_library_properties.h"

namespace orlith {
namespace {

constexpr std::size_t TracksOfOneRow = 100000;

// What a track is to people: the first of these whose bits it has, else music.
const char* kindOf(std::uint32_t mediaType) {
    struct Kind {
        std::uint32_t bits;
        const char* name;
    };
    static constexpr Kind Kinds[] = {
        {KV3MediaTypeTesselU, "TesselU"},           {KV3MediaTypeTesselUVideo, "TesselUVideo"},
        {KV3MediaTypeAudiobook, "Audiobook"},       {KV3MediaTypeMovie, "Movie"},
        {KV3MediaTypeHomeVideo, "HomeVideo"},       {KV3MediaTypeMusicVideo, "MusicVideo"},
        {KV3MediaTypePodcast, "Podcast"},           {KV3MediaTypeTVEpisode, "TVEpisode"},
        {KV3MediaTypeVideoPodcast, "VideoPodcast"},
    };
    for (const Kind& kind : Kinds)
        if ((mediaType & kind.bits) != 0)
            return kind.name;
    return "Music";
}

}  // namespace

void fillRow(const korvane::ListedTrack& track, link::TrackRow& row) {
    row.set_persistent_id(track.persistentID);
    row.set_sync_id(track.syncID);
    row.set_global_id(track.globalID);
    if (track.title)
        row.set_title(cleanUTF8(std::string(*track.title)));
    if (track.artist)
        row.set_artist(cleanUTF8(std::string(*track.artist)));
    if (track.album)
        row.set_album(cleanUTF8(std::string(*track.album)));
    row.set_disc_number(track.discNumber);
    row.set_track_number(track.trackNumber);
    row.set_media_type(track.mediaType);
    row.set_asset_type(kindOf(track.mediaType));
    if (!track.path.empty())
        row.set_path(cleanUTF8(track.path));
    row.set_size(track.size);
    row.set_artwork(track.hasArtwork);
    row.set_kenning(track.hasKenning);
    row.set_chapters(track.chapters);
    row.set_rating(track.rating);
    row.set_play_count(track.playCount);
    row.set_content_hash(std::string(track.contentHash));
    if (track.hostPath)
        row.set_host_path(std::string(*track.hostPath));
    row.set_from_host(track.isFromHost);
}

void splitPlaylist(const korvane::ListedPlaylist& playlist,
                   const std::function<void(const link::PlaylistRow&)>& callback) {
    std::size_t done = 0;
    do {
        link::PlaylistRow row;
        row.set_persistent_id(playlist.persistentID);
        row.set_sync_id(playlist.syncID);
        row.set_global_id(playlist.globalID);
        row.set_name(cleanUTF8(playlist.name));
        row.set_smart(playlist.isSmart);
        row.set_from_host(playlist.isFromHost);
        row.set_built_in(playlist.isBuiltIn);
        row.set_rules(cleanUTF8(playlist.rules));
        row.set_limit(playlist.limit);
        const std::size_t end = std::min(playlist.tracks.size(), done + TracksOfOneRow);
        for (; done < end; ++done)
            row.add_tracks(playlist.tracks[done]);
        callback(row);
    } while (done < playlist.tracks.size());
}

}  // namespace orlith
