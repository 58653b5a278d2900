#include "host/records/record_text.h"

#include <fmt/format.h>

#include "common/qorx/qorx.pb.h"
#include "host/progress/progress.h"
#include "host/scan/file_names.h"

namespace host {

namespace {

// A host names its records by their sync ids, a device by its own.
template <typename Entry>
std::int64_t nameOf(const Entry& entry) {
    return entry.persistent_id() != 0 ? entry.persistent_id() : entry.sync_id();
}

std::string line(const char* kind, std::int64_t id, const std::string& text) {
    return fmt::format("{:<9} {:>20}  {}", kind, id, text);
}

std::string trackText(const qorx::Track& track) {
    std::string text = track.has_title() ? displayText(track.title()) : "(no title)";
    if (track.has_artist())
        text += " - " + displayText(track.artist());
    if (track.has_album())
        text += " (" + displayText(track.album()) + ")";
    if (track.total_size() > 0)
        text += ", " + formatBytes(track.total_size());
    return line("track", nameOf(track), text);
}

std::string playlistText(const qorx::Playlist& playlist) {
    return line(
        "playlist", nameOf(playlist),
        displayText(playlist.name()) +
            (playlist.kind() == qorx::Playlist::SMART
                 ? ", smart"
                 : ", " + plural(static_cast<std::uint64_t>(playlist.items_size()), "track")));
}

const char* purposeOf(const qorx::Header& header) {
    switch (header.purpose()) {
        case qorx::Header::HOST_DATA:
            return "a host's data";
        case qorx::Header::SAVED_METADATA:
            return "tracks that were changed on a device";
        case qorx::Header::SAVED_PLAYLISTS:
            return "playlists that were changed on a device";
        case qorx::Header::CHANGES:
            return "changes of a library";
        default:
            return "records";
    }
}

}  // namespace

std::string recordText(const qorx::Record& record) {
    switch (record.kind_case()) {
        case qorx::Record::kTrack:
            return trackText(record.track());
        case qorx::Record::kPlaylist:
            return playlistText(record.playlist());
        case qorx::Record::kDeletion:
            return line(
                "deleted", nameOf(record.deletion()),
                record.deletion().entity() == qorx::Deletion::PLAYLIST ? "a playlist" : "a track");
        default:
            return "";  // the framing's own
    }
}

std::string headerText(const qorx::Header& header) {
    return fmt::format(
        "{}, from {}", purposeOf(header),
        header.exporter_uid().empty() ? "nobody" : displayText(header.exporter_uid()));
}

}  // namespace host
