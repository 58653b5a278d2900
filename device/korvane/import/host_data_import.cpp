#include "device/korvane/import/host_data_import.h"

#include <algorithm>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/connections.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/import/import_cancellation.h"
#include "device/korvane/import/import_context.h"
#include "device/korvane/import/import_failure.h"
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

class HostDataImport {
public:
    HostDataImport(common::Database& database, HostStream& stream,
                   const HostStreamContents& contents, const HostDataImportOptions& options)
        : _stream(stream),
          _contents(contents),
          _options(options),
          _origin(database, contents.header.exporter_uid()),
          _newIDs(database, contents.counts.tracks(), contents.trackSyncIDs, options.randomNumber),
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
                   .hasTwins = std::ranges::adjacent_find(contents.trackSyncIDs) !=
                               contents.trackSyncIDs.end()} {}

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
        TrackImport tracks(_context);
        _stream.forEachBatch(qorx::Record::kTrack, [&](HostStream::Batch& batch) {
            std::ranges::stable_sort(
                batch, {}, [](const qorx::Record* record) { return record->track().sync_id(); });
            tracks.apply(batch);
        });
        tracks.finish();
    }

    void importPlaylists() {
        if (_contents.counts.playlists() == 0) {
            return;
        }
        PlaylistImport playlists(_context);
        _stream.forEachBatch(qorx::Record::kPlaylist, [&](HostStream::Batch& batch) {
            for (const qorx::Record* record : batch) {
                playlists.apply(record->playlist());
            }
        });
    }

    void removeEntries() {
        Removals removals(_context);
        if (_contents.counts.deletions() != 0) {
            _stream.forEachBatch(qorx::Record::kDeletion, [&](HostStream::Batch& batch) {
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

    HostStream& _stream;
    const HostStreamContents& _contents;
    const HostDataImportOptions& _options;
    ChangeOrigin _origin;
    NewIDs _newIDs;
    UnreportedChanges _unreported;
    ImportContext _context;
};

platform::Error importError(const common::SqliteError& error,
                            const ImportCancellation& cancellation) {
    const auto code = error.isInterrupted() && cancellation.isAsked()
                          ? KVMediaLibraryServiceErrorCancelled
                      : error.isDiskFull() ? KVMediaLibraryServiceErrorNoSpace
                                           : KVMediaLibraryServiceErrorDatabase;
    return platform::Error(KVMediaLibraryServiceErrorDomain, code, error.what());
}

}  // namespace

platform::OptionalError importHostData(Connections& connections, const OpenHostData& open,
                                       const HostDataImportOptions& options,
                                       ImportCancellation& cancellation) {
    try {
        cancellation.check();
        HostStream stream(open, [&] { cancellation.check(); });
        const HostStreamContents contents = stream.verify();
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
