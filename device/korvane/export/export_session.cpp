#include "device/korvane/export/export_session.h"

#include <cerrno>
#include <optional>

#include "common/qorx/writer.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/connections.h"
#include "device/korvane/export/peer_ids.h"
#include "device/korvane/library.h"
#include "device/korvane/save/record_export.h"

namespace korvane {

using platform::OptionalError;

namespace {

// The library at one moment.
struct Reading {
    Reading(Library& library, const std::string& peerUID)
        : snapshot(library.connections()),
          records(snapshot.database()),
          peerIds(snapshot.database(), peerUID) {}

    Connections::Snapshot snapshot;  // outlives the statements
    RecordExport records;
    PeerIds peerIds;
};

}  // namespace

struct ExportSession::State {
    State(std::shared_ptr<Library> from, std::shared_ptr<platform::OutputStream> to)
        : library(std::move(from)),
          stream(std::move(to)),
          writer([this](std::span<const std::uint8_t> bytes) { return stream->write(bytes); }) {}

    OptionalError begin();
    OptionalError end();
    OptionalError playlist(Reading& reading, std::int64_t pid);
    OptionalError track(Reading& reading, std::int64_t pid);
    OptionalError deletion(Reading& reading, EntityKind kind, std::int64_t pid);

    // Writes what `write` makes of the library, unless something failed before.
    template <typename Write>
    OptionalError record(Write write) {
        if (!isOpen || failure)
            return failure ? failure : platform::Error::posix(EBADF);
        try {
            // Not before the first record: whoever lists the changes between the beginning and
            // here finds them in what is read.
            if (!reading)
                reading.emplace(*library, peerUID);
            failure = write(*reading);
        } catch (const common::SqliteError& error) {
            failure = error.platformError();
        }
        return failure;
    }

    const std::shared_ptr<Library> library;
    const std::shared_ptr<platform::OutputStream> stream;
    common::QorxWriter writer;
    std::string peerUID;
    bool isOpen = false;
    OptionalError failure;  // the first; no stream is completed after it
    std::optional<Reading> reading;
    qorx::Track trackRecord;
    qorx::Playlist playlistRecord;
    qorx::Deletion deletionRecord;
};

OptionalError ExportSession::State::begin() {
    peerUID = library->exportTarget().peerUID();
    qorx::Header header;
    header.set_purpose(qorx::Header::CHANGES);
    header.set_exporter_uid(library->uid());
    header.set_importer_uid(peerUID);
    return writer.begin(header);
}

OptionalError ExportSession::State::end() {
    reading.reset();
    return failure ? failure : writer.end();
}

OptionalError ExportSession::State::playlist(Reading& reading, std::int64_t pid) {
    if (!reading.records.playlist(pid, playlistRecord))
        return std::nullopt;
    playlistRecord.set_own_id(reading.peerIds.of(EntityKind::Playlist, pid));
    for (qorx::Playlist::Item& item : *playlistRecord.mutable_items())
        item.set_own_id(reading.peerIds.of(EntityKind::Track, item.persistent_id()));
    return leaveOutIfTooLarge(writer.write(playlistRecord), *library, "playlist", pid);
}

OptionalError ExportSession::State::track(Reading& reading, std::int64_t pid) {
    if (!reading.records.track(pid, trackRecord))
        return std::nullopt;
    trackRecord.set_own_id(reading.peerIds.of(EntityKind::Track, pid));
    return leaveOutIfTooLarge(writer.write(trackRecord), *library, "track", pid);
}

OptionalError ExportSession::State::deletion(Reading& reading, EntityKind kind, std::int64_t pid) {
    if (!reading.records.deletion(kind, pid, deletionRecord))
        return std::nullopt;
    deletionRecord.set_own_id(reading.peerIds.of(kind, pid));
    return writer.write(deletionRecord);
}

ExportSession::ExportSession(std::shared_ptr<Library> library,
                             std::shared_ptr<platform::OutputStream> stream)
    : _state(std::make_unique<State>(std::move(library), std::move(stream))) {}

ExportSession::~ExportSession() = default;

bool ExportSession::begin() {
    if (_state->isOpen || _state->failure)
        return false;
    _state->failure = _state->begin();
    _state->isOpen = !_state->failure;
    return _state->isOpen;
}

bool ExportSession::end() {
    if (!_state->isOpen)
        return false;
    _state->isOpen = false;
    _state->failure = _state->end();
    return !_state->failure;
}

OptionalError ExportSession::exportPlaylist(std::int64_t persistentID) {
    return _state->record(
        [&](Reading& reading) { return _state->playlist(reading, persistentID); });
}

OptionalError ExportSession::exportPlaylistDeleted(std::int64_t persistentID) {
    return _state->record([&](Reading& reading) {
        return _state->deletion(reading, EntityKind::Playlist, persistentID);
    });
}

OptionalError ExportSession::exportTrack(std::int64_t persistentID) {
    return _state->record([&](Reading& reading) { return _state->track(reading, persistentID); });
}

OptionalError ExportSession::exportTrackDeleted(std::int64_t persistentID) {
    return _state->record([&](Reading& reading) {
        return _state->deletion(reading, EntityKind::Track, persistentID);
    });
}

}  // namespace korvane
