#include "device/korvane/import/host_data_import.h"

#include <algorithm>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/connections.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/import/import_cancellation.h"
#include "device/korvane/import/import_context.h"
#include "device/korvane/import/import_failure.h"
#include "device/korvane/import/late_index.h"
#include "device/korvane/import/names.h"
#include "device/korvane/import/playlist_import.h"
#include "device/korvane/import/removals.h"
#include "device/korvane/import/track_import.h"
#include "device/korvane/library_identity.h"
#include "device/korvane/schema.h"
#include "platform/media_library_properties.h"

namespace korvane {

namespace {

using platform::Value;

std::int64_t checkHostRecord(const qorx::Record& record) {
    if (record.has_track()) {
        if (record.track().sync_id() == 0) {
            refuseStream("a track has no sync id");
        }
        return record.track().sync_id();
    }
    if (record.has_playlist() && record.playlist().sync_id() == 0 &&
        record.playlist().global_id() == 0) {
        refuseStream("a playlist has no id");
    }
    return 0;
}

void checkHostHeader(const qorx::Header& header) {
    if (header.purpose() != qorx::Header::HOST_DATA) {
        refuseStream("the stream is no host's data");
    }
    if (!isPlausibleUID(header.exporter_uid())) {
        refuseStream("the stream does not say which host it is from");
    }
}

class HostDataImport {
public:
    HostDataImport(common::Database& database, RecordStream& stream,
                   const RecordStreamContents& contents, const HostDataImportOptions& options)
        : _stream(stream),
          _contents(contents),
          _options(options),
          _origin(database, contents.header.exporter_uid()),
          _newIDs(database, contents.counts.tracks(), contents.ids, options.randomNumber),
          _unreported(database, reportedRevision(database)),
          _context{.database = database,
                   .origin = _origin,
                   .newIDs = _newIDs,
                   .unreported = _unreported,
                   .peerID = database.int64("SELECT peer_id FROM peer WHERE peer_uid = ?",
                                            contents.header.exporter_uid()),
                   .sourceBit = sourceBit(KV3SourceHostData),
                   .nowMs = options.nowMs,
                   .hadNoTracks = database.int64("SELECT EXISTS (SELECT 1 FROM item)") == 0,
                   .hasTwins = std::ranges::adjacent_find(contents.ids) != contents.ids.end()} {}

    void run() {
        importTracks();
        importPlaylists();
        removeEntries();
        if (_context.namesMayBeUnused) {
            removeUnusedNames(_context.database);
        }
        if (_origin.hasChanged()) {
            _unreported.markAgain(_context.database);
        }
        _origin.end();
        storeProgress();
    }

private:
    // What this session's save covers; less, when the host says that it has merged less.
    std::optional<std::int64_t> coveredRevision() const {
        const std::int64_t merged = _contents.header.covered_revision();
        if (!_options.savedRevision || merged == 0) {
            return _options.savedRevision;
        }
        return std::clamp<std::int64_t>(merged, 0, *_options.savedRevision);
    }

    // Up to here the host knows what the owner changed.
    std::int64_t reportedRevision(common::Database& database) const {
        const auto covered = coveredRevision();
        return covered ? *covered
                       : databaseProperty(database, LastSyncedRevisionProperty).int64Value();
    }

    void importTracks() {
        LateIndex globalIDs(_context.database, _context.hadNoTracks, _contents.ids.size());
        TrackImport tracks(_context);
        _stream.forEachBatch(qorx::Record::kTrack, [&](RecordStream::Batch& batch) {
            std::ranges::stable_sort(
                batch, {}, [](const qorx::Record* record) { return record->track().sync_id(); });
            tracks.apply(batch);
        });
        globalIDs.build();
        tracks.finish();
    }

    void importPlaylists() {
        if (_contents.counts.playlists() == 0) {
            return;
        }
        PlaylistImport playlists(_context);
        _stream.forEachBatch(qorx::Record::kPlaylist, [&](RecordStream::Batch& batch) {
            for (const qorx::Record* record : batch) {
                playlists.apply(record->playlist());
            }
        });
    }

    void removeEntries() {
        Removals removals(_context);
        if (_contents.counts.deletions() != 0) {
            _stream.forEachBatch(qorx::Record::kDeletion, [&](RecordStream::Batch& batch) {
                for (const qorx::Record* record : batch) {
                    const qorx::Deletion& deletion = record->deletion();
                    removals.applyDeletion(deletion.entity() == qorx::Deletion::PLAYLIST
                                               ? EntityKind::Playlist
                                               : EntityKind::Track,
                                           RecordIDs::of(deletion));
                }
            });
        }
        if (_options.isReset || _contents.header.complete()) {
            removals.takeClaimOffUnnamed();
        }
    }

    void storeProgress() {
        store(SyncAnchorProperty, Value(_options.anchor));
        if (const auto covered = coveredRevision()) {
            store(LastSyncedRevisionProperty, Value(*covered));
        }
    }

    void store(std::string_view key, const Value& value) {
        if (databaseProperty(_context.database, key) != value) {
            setDatabaseProperty(_context.database, key, value);
        }
    }

    RecordStream& _stream;
    const RecordStreamContents& _contents;
    const HostDataImportOptions& _options;
    ChangeOrigin _origin;
    NewIDs _newIDs;
    UnreportedChanges _unreported;
    ImportContext _context;
};

}  // namespace

platform::OptionalError importHostData(Connections& connections, const OpenRecords& open,
                                       const HostDataImportOptions& options,
                                       ImportCancellation& cancellation) {
    try {
        cancellation.check();
        RecordStream stream(open, [&] { cancellation.check(); });
        const RecordStreamContents contents = stream.verify({checkHostHeader, checkHostRecord});
        connections.write([&](common::Database& database) {
            const ImportCancellation::Scope scope(cancellation, database);
            cancellation.check();
            HostDataImport(database, stream, contents, options).run();
            return true;
        });
        return std::nullopt;
    } catch (const ImportFailure& failure) {
        return failure.error();
    } catch (const common::SqliteError& error) {
        return importError(error, cancellation);
    }
}

}  // namespace korvane
