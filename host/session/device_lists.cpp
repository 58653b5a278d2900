#include "host/session/device_lists.h"

#include "host/scan/content_hash.h"
#include "host/session/device_connection.h"
#include "link/orlith.pb.h"

namespace host {

namespace link = ::orlith::link;

platform::OptionalError readDeviceLists(DeviceConnection& connection, DeviceLists& lists) {
    const auto addTrack = [&](const link::TrackRow& row) {
        DeviceTrack& track = lists.tracks.emplace_back();
        track.persistentId = row.persistent_id();
        track.syncId = row.sync_id();
        track.globalId = row.global_id();
        track.title = row.title();
        track.artist = row.artist();
        track.album = row.album();
        track.discNumber = row.disc_number();
        track.trackNumber = row.track_number();
        track.mediaType = row.media_type();
        track.size = row.size();
        track.contentHash = contentHashOfBytes(row.content_hash());
        if (row.has_host_path())
            track.hostPath = row.host_path();
        track.hasFile = row.has_path();
        track.fromHost = row.from_host();
    };
    const auto addPlaylist = [&](const link::PlaylistRow& row) {
        lists.playlists.push_back({row.sync_id(), row.global_id(), row.name(), row.from_host()});
    };
    if (auto error = connection.listTracks(addTrack))
        return error;
    return connection.listPlaylists(addPlaylist);
}

}  // namespace host
