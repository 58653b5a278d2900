#include "device/korvane/video_snapshot.h"

#include <algorithm>

#include "common/sqlite/database.h"
#include "device/korvane/artwork_rows.h"
#include "device/korvane/library.h"

namespace korvane {

namespace {

constexpr std::uint32_t VideoMediaTypes = KV3MediaTypeVideoPodcast | KV3MediaTypeTVEpisode |
                                          KV3MediaTypeMusicVideo | KV3MediaTypeMovie |
                                          KV3MediaTypeTesselUVideo | KV3MediaTypeHomeVideo;

}  // namespace

std::optional<VideoSnapshotNeed> videoSnapshotNeed(Library& library, std::int64_t trackPID) {
    std::optional<VideoSnapshotNeed> need;
    library.read("needsVideoSnapshot", [&](common::Database& database) {
        auto row = database.query(
            "SELECT ?2 || bl.path || '/' || e.location_file_name, w.best_artwork_token, "
            "e.total_time_ms, i.media_type FROM item i JOIN item_extra e ON e.item_id = i.item_id "
            "JOIN item_artwork w ON w.item_id = i.item_id JOIN base_location bl ON "
            "bl.base_location_id = i.base_location_id WHERE i.item_pid = ?1 AND i.base_location_id "
            "<> 0 AND i.media_type & ?3 <> 0 AND w.best_artwork_token <> ''",
            trackPID, MediaDirectory, VideoMediaTypes);
        if (row.step())
            need = VideoSnapshotNeed{std::string(row->text(0)), std::string(row->text(1)),
                                     static_cast<double>(row->int64(2)) / 1000.0,
                                     static_cast<std::uint32_t>(row->int64(3))};
        return true;
    });
    if (need && library.artwork().hasOriginal(artworkRelativePath(need->token)))
        return std::nullopt;
    return need;
}

bool createVideoSnapshot(Library& library, std::int64_t trackPID, double seconds) {
    const auto need = videoSnapshotNeed(library, trackPID);
    if (!need)
        return false;
    const double length = need->length > 0 ? need->length : seconds;
    platform::OptionalError error;
    const auto picture = library.configuration().frameGrabber.grabFrame(
        need->path, std::clamp(seconds, 0.0, std::max(length, 0.0)), &error);
    if (picture)
        error = library.artwork().write(*picture, artworkRelativePath(need->token));
    if (error || !picture) {
        library.log().warning("createVideoSnapshotAtTime:",
                              error ? error->description() : "no frame");
        return false;
    }
    return library.change("createVideoSnapshotAtTime:", [&](common::Database& database) {
        recordArtwork(database,
                      {need->token, ArtworkTypeCover, ArtworkSourceSnapshot, need->mediaType});
        return true;
    });
}

}  // namespace korvane
