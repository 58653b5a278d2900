#include "device/korvane/save/host_saver.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "common/qorx/reader.h"
#include "device/korvane/library.h"
#include "device/korvane/library_identity.h"
#include "device/korvane/save/record_export.h"
#include "device/korvane/save/saved_stream.h"
#include "device/system/rooted_file_system.h"
#include "platform/media_library_properties.h"

namespace korvane {

using platform::OptionalError;

namespace {

constexpr std::string_view TracksPrefix = "Tracks_";
constexpr std::string_view PlaylistsPrefix = "Playlists_";
constexpr std::string_view Extension = ".qorx";

// The owner's changes after a revision, oldest first; those that came from the owner's other
// devices too, where the host knows the track.
constexpr char OwnersTracks[] =
    "SELECT r.pid, r.deleted FROM entity_revision r LEFT JOIN item i ON i.item_pid = r.pid"
    " WHERE r.entity_kind = 0 AND r.revision > ?1 AND (r.origin = ''"
    "  OR (r.origin IN (SELECT peer_uid FROM peer) AND (r.deleted <> 0 OR i.sources & ?2 <> 0)))"
    " ORDER BY r.revision";
// And the playlists that no host has acknowledged by naming them. What the library made by itself
// is not the owner's.
constexpr std::int64_t HostBit = sourceBit(KV3SourceHostData);
constexpr char OwnersPlaylists[] =
    "SELECT r.pid, r.deleted FROM entity_revision r"
    " LEFT JOIN container c ON c.container_pid = r.pid"
    " WHERE r.entity_kind = 1 AND (r.origin = '' OR r.origin IN (SELECT peer_uid FROM peer))"
    " AND ifnull(c.auto_created, 0) = 0"
    " AND (r.revision > ?1 OR (r.deleted = 0 AND c.sources & ?2 = 0))"
    " ORDER BY r.revision";

qorx::Header header(qorx::Header::Purpose purpose, const Library& library,
                    std::int64_t coveredRevision) {
    qorx::Header header;
    header.set_purpose(purpose);
    header.set_exporter_uid(library.uid());
    header.set_covered_revision(coveredRevision);
    return header;
}

// What the earlier sessions saved has been fetched or is saved again.
void removeEarlierSaves(device::RootedFileSystem& files) {
    for (const std::string& name :
         files.contentsOfDirectory(SavedDirectory, nullptr).value_or(std::vector<std::string>())) {
        files.removeItem(SavedDirectory + name);
    }
}

void removeSave(device::RootedFileSystem& files, std::uint32_t torvelID) {
    files.removeItem(savedTracksPath(torvelID));
    files.removeItem(savedPlaylistsPath(torvelID));
}

// Writes the changed entries that the statement's rows name.
class ChangeWriter {
public:
    ChangeWriter(common::Database& database, const Library& library, common::QorxWriter& writer)
        : _library(library), _export(database), _writer(writer) {}

    OptionalError track(common::Query& row) {
        if (row->int64(1) != 0) {
            return deletion(EntityKind::Track, row->int64(0));
        }
        return _export.track(row->int64(0), _track)
                   ? leaveOutIfTooLarge(_writer.write(_track), _library, "track", row->int64(0))
                   : std::nullopt;
    }
    OptionalError playlist(common::Query& row) {
        if (row->int64(1) != 0) {
            return deletion(EntityKind::Playlist, row->int64(0));
        }
        return _export.playlist(row->int64(0), _playlist)
                   ? leaveOutIfTooLarge(_writer.write(_playlist), _library, "playlist",
                                        row->int64(0))
                   : std::nullopt;
    }

private:
    OptionalError deletion(EntityKind kind, std::int64_t pid) {
        return _export.deletion(kind, pid, _deletion) ? _writer.write(_deletion) : std::nullopt;
    }

    const Library& _library;
    RecordExport _export;
    common::QorxWriter& _writer;
    qorx::Track _track;
    qorx::Playlist _playlist;
    qorx::Deletion _deletion;
};

// A whole file: `write` writes its records.
OptionalError save(common::Database& database, Library& library, qorx::Header::Purpose purpose,
                   const std::string& path,
                   const std::function<OptionalError(ChangeWriter&)>& write) {
    device::RootedFileSystem& files = library.configuration().files;
    if (OptionalError error = files.createDirectory(SavedDirectory)) {
        return error;
    }
    SavedStream stream(files, path);
    if (OptionalError error = stream.open()) {
        return error;
    }
    if (OptionalError error =
            stream.writer().begin(header(purpose, library, revisionCounter(database)))) {
        return error;
    }
    ChangeWriter changes(database, library, stream.writer());
    if (OptionalError error = write(changes)) {
        return error;
    }
    return stream.commit();
}

OptionalError writeTracks(common::Database& database, std::int64_t since, ChangeWriter& changes) {
    common::Query rows = database.query(OwnersTracks, since, HostBit);
    while (rows.step()) {
        if (OptionalError error = changes.track(rows)) {
            return error;
        }
    }
    return std::nullopt;
}

OptionalError writePlaylists(common::Database& database, std::int64_t since,
                             ChangeWriter& changes) {
    common::Query rows = database.query(OwnersPlaylists, since, HostBit);
    while (rows.step()) {
        if (OptionalError error = changes.playlist(rows)) {
            return error;
        }
    }
    return std::nullopt;
}

// Runs one save inside the library's reading transaction. Whether it succeeded.
bool saveLogged(Library& library, const char* operation,
                const std::function<OptionalError(common::Database&)>& work) {
    return library.read(operation, [&](common::Database& database) {
        const OptionalError error = work(database);
        if (error) {
            library.log().error(operation, "could not save: " + error->description());
        }
        return !error;
    });
}

std::optional<std::int64_t> coveredRevision(device::RootedFileSystem& files,
                                            const std::string& path,
                                            const std::string& libraryUID) {
    std::shared_ptr<platform::InputStream> stream = files.openInputStream(path);
    if (!stream) {
        return std::nullopt;
    }
    common::QorxReader reader([stream](std::span<std::uint8_t> room, OptionalError* error) {
        platform::Data piece;
        *error = stream->read(piece, room.size());
        std::copy(piece.begin(), piece.end(), room.begin());
        return piece.size();
    });
    const qorx::Header* header = reader.header();
    if (header == nullptr || header->purpose() != qorx::Header::SAVED_METADATA ||
        header->exporter_uid() != libraryUID) {
        return std::nullopt;
    }
    return header->covered_revision();
}

}  // namespace

std::string savedTracksPath(std::uint32_t torvelID) {
    return fmt::format("{}{}{}{}", SavedDirectory, TracksPrefix, torvelID, Extension);
}

std::string savedPlaylistsPath(std::uint32_t torvelID) {
    return fmt::format("{}{}{}{}", SavedDirectory, PlaylistsPrefix, torvelID, Extension);
}

void HostSaver::saveTrackMetadata(Library& library, std::int64_t sinceRevision,
                                  std::uint32_t torvelID) {
    removeEarlierSaves(library.configuration().files);
    saveLogged(library,
               "saveTrackMetadataSinceRevision:withTorvelID:", [&](common::Database& database) {
                   return save(database, library, qorx::Header::SAVED_METADATA,
                               savedTracksPath(torvelID), [&](ChangeWriter& changes) {
                                   return writeTracks(database, sinceRevision, changes);
                               });
               });
}

void HostSaver::savePlaylists(Library& library, std::int64_t sinceRevision,
                              std::uint32_t torvelID) {
    const bool isSaved = saveLogged(
        library, "savePlaylistsSinceRevision:withTorvelID:", [&](common::Database& database) {
            return save(database, library, qorx::Header::SAVED_PLAYLISTS,
                        savedPlaylistsPath(torvelID), [&](ChangeWriter& changes) {
                            return writePlaylists(database, sinceRevision, changes);
                        });
        });
    // A save without its playlists must not count as one.
    if (!isSaved) {
        removeSave(library.configuration().files, torvelID);
    }
}

std::optional<std::int64_t> savedRevision(device::RootedFileSystem& files,
                                          const std::string& libraryUID) {
    std::optional<std::int64_t> newest;
    for (const std::string& name :
         files.contentsOfDirectory(SavedDirectory, nullptr).value_or(std::vector<std::string>())) {
        if (name.starts_with(TracksPrefix) && name.ends_with(Extension)) {
            newest = std::max(newest, coveredRevision(files, SavedDirectory + name, libraryUID));
        }
    }
    return newest;
}

}  // namespace korvane
