#include "host/session/host_data.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/qorx/writer.h"
#include "common/unique_fd.h"

namespace host {

namespace {

using platform::OptionalError;

OptionalError writeAll(int fd, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return platform::Error::posix(errno);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return std::nullopt;
}

OptionalError writeTracks(const HostDataInput& input, common::QorxWriter& writer) {
    for (const PlannedTrack& planned : input.plan.tracks) {
        qorx::Track record;
        fillTrackRecord(input.state.files[planned.file], input.materials.tracks[planned.file],
                        record);
        if (auto error = writer.write(record))
            return error;
    }
    for (const DeviceTrack& track : input.named) {
        qorx::Track record;
        record.set_own_id(track.persistentId);
        record.set_sync_id(track.syncId);
        record.set_global_id(track.globalId);
        record.set_title(track.title);
        record.set_artist(track.artist);
        record.set_album(track.album);
        record.set_disc_number(track.discNumber);
        record.set_track_number(track.trackNumber);
        record.set_media_type(track.mediaType);
        record.set_total_size(track.size);
        if (auto error = writer.write(record))
            return error;
    }
    return std::nullopt;
}

OptionalError writeRest(const HostDataInput& input, common::QorxWriter& writer) {
    for (const PlannedPlaylist& planned : input.plan.playlists) {
        qorx::Playlist record;
        fillPlaylistRecord(input.state.playlists[planned.playlist], input.state, record);
        if (auto error = writer.write(record))
            return error;
    }
    for (const std::size_t place : input.plan.removedTracks) {
        const KnownFile& file = input.state.files[place];
        qorx::Deletion record;
        record.set_entity(qorx::Deletion::TRACK);
        record.set_sync_id(file.syncId);
        record.set_global_id(file.globalId);
        record.set_media_type(file.media.mediaType);
        if (auto error = writer.write(record))
            return error;
    }
    for (const std::size_t place : input.plan.removedPlaylists) {
        const KnownPlaylist& playlist = input.state.playlists[place];
        qorx::Deletion record;
        record.set_entity(qorx::Deletion::PLAYLIST);
        record.set_sync_id(playlist.syncId);
        record.set_global_id(playlist.globalId);
        if (auto error = writer.write(record))
            return error;
    }
    return std::nullopt;
}

}  // namespace

HostDataFile::HostDataFile(const std::string& directory)
    : _path(directory + "/host-data-" + std::to_string(::getpid()) + ".qorx") {}

HostDataFile::~HostDataFile() {
    ::unlink(_path.c_str());
}

OptionalError HostDataFile::write(const HostDataInput& input) {
    const common::UniqueFd fd(
        ::open(_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!fd)
        return platform::Error::posix(errno);
    common::QorxWriter writer(
        [&](std::span<const std::uint8_t> bytes) { return writeAll(fd.get(), bytes); });
    qorx::Header header;
    header.set_purpose(qorx::Header::HOST_DATA);
    header.set_exporter_uid(input.state.hostUid);
    header.set_importer_uid(input.libraryUid);
    header.set_complete(input.plan.complete);
    header.set_covered_revision(input.coveredRevision);
    if (auto error = writer.begin(header))
        return error;
    if (auto error = writeTracks(input, writer))
        return error;
    if (auto error = writeRest(input, writer))
        return error;
    return writer.end();
}

}  // namespace host
