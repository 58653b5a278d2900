// Purpose: the records that describe the folder's tracks and playlists to a device, and the
// fingerprints by which a later run sees that one would say something else.
// Thread: any; functions of their arguments.
// Failure: none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/scan/content_hash.h"
#include "host/state/folder_state.h"

namespace qorx {
class Playlist;
class Track;
}  // namespace qorx

namespace host {

// What was made of a track beyond its file's own description.
struct TrackMaterial {
    std::string artworkToken;  // empty: none
    std::string chapterData;   // flattened table of contents; empty: none
    std::optional<std::int64_t> kenningChecksum;
};

struct TrackFingerprints {
    ContentHash metadata{};  // what the folder says of the track
    ContentHash recommendation{};
    ContentHash owner{};  // what owners changed
};

void fillTrackRecord(const KnownFile& file, const TrackMaterial& material, qorx::Track& record);
ContentHash ownerFingerprint(const OwnerData& owner);
TrackFingerprints trackFingerprints(const KnownFile& file, const TrackMaterial& material);

void fillPlaylistRecord(const KnownPlaylist& playlist, const FolderState& state,
                        qorx::Playlist& record);
ContentHash playlistFingerprint(const KnownPlaylist& playlist);

}  // namespace host
