#include "device/korvane/import/peer_changes_import.h"

#include <algorithm>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/connections.h"
#include "device/korvane/import/import_cancellation.h"
#include "device/korvane/import/import_failure.h"
#include "device/korvane/import/late_index.h"
#include "device/korvane/import/names.h"
#include "device/korvane/import/peer_import_context.h"
#include "device/korvane/import/peer_playlist_import.h"
#include "device/korvane/import/peer_removals.h"
#include "device/korvane/import/peer_track_import.h"
#include "device/korvane/import/record_stream.h"
#include "device/korvane/library_identity.h"

namespace korvane {

namespace {

void checkHeader(const qorx::Header& header) {
    if (header.purpose() != qorx::Header::CHANGES) {
        refuseStream("the stream holds no changes of a device");
    }
    if (!isPlausibleUID(header.exporter_uid())) {
        refuseStream("the stream does not say which library it is from");
    }
}

// The id of an entry that is in the right section. A deletion's is not that of an entry.
std::int64_t checkRecord(const qorx::Record& record, qorx::Record::KindCase kind,
                         qorx::Deletion::Entity entity) {
    if (record.has_deletion() && record.deletion().entity() == entity) {
        return 0;
    }
    if (record.kind_case() != kind) {
        refuseStream("a record stands in the wrong section");
    }
    const std::int64_t id =
        record.has_track() ? record.track().persistent_id() : record.playlist().persistent_id();
    if (id == 0) {
        refuseStream("an entry has no id");
    }
    return id;
}

// One of the two streams, verified; or nothing, in its place.
class Section {
public:
    Section(const platform::Data* data, EntityKind kind, ImportCancellation& cancellation)
        : _kind(kind) {
        if (data == nullptr) {
            return;
        }
        _stream.emplace([data] { return std::make_unique<common::QorxReader>(*data); },
                        [&cancellation] { cancellation.check(); });
        _contents = _stream->verify({checkHeader, [kind](const qorx::Record& record) {
                                         return kind == EntityKind::Track
                                                    ? checkRecord(record, qorx::Record::kTrack,
                                                                  qorx::Deletion::TRACK)
                                                    : checkRecord(record, qorx::Record::kPlaylist,
                                                                  qorx::Deletion::PLAYLIST);
                                     }});
        if (std::ranges::adjacent_find(_contents.ids) != _contents.ids.end()) {
            refuseStream("two records of one id");
        }
    }

    EntityKind kind() const { return _kind; }
    // Null without data.
    const qorx::Header* header() const { return _stream ? &_contents.header : nullptr; }
    // The peer's ids of the entries, ascending.
    const std::vector<std::int64_t>& ids() const { return _contents.ids; }
    bool hasDeletions() const { return _contents.counts.deletions() != 0; }
    bool isComplete() const { return _contents.header.complete(); }
    void forEachBatch(qorx::Record::KindCase kind,
                      const std::function<void(RecordStream::Batch&)>& block) {
        if (_stream) {
            _stream->forEachBatch(kind, block);
        }
    }

private:
    const EntityKind _kind;
    std::optional<RecordStream> _stream;
    RecordStreamContents _contents;
};

struct Sections {
    Section tracks;
    Section playlists;
};

// Whose changes these are.
std::string peerOf(const Sections& sections, const PeerImportOptions& options) {
    std::string uid = options.fullExchangeWith.value_or("");
    for (const Section* section : {&sections.tracks, &sections.playlists}) {
        if (section->header() == nullptr) {
            continue;
        }
        const std::string& exporter = section->header()->exporter_uid();
        if (!uid.empty() && uid != exporter) {
            refuseStream("the streams are of different libraries");
        }
        uid = exporter;
    }
    if (uid.empty()) {
        throw ImportFailure(KVMediaLibraryServiceErrorNoData, "there are no changes");
    }
    if (uid == options.ownUID) {
        refuseStream("the changes are this library's own");
    }
    return uid;
}

bool areForUs(const Sections& sections, const PeerImportOptions& options) {
    return std::ranges::all_of(
        std::initializer_list<const Section*>{&sections.tracks, &sections.playlists},
        [&](const Section* section) {
            return section->header() == nullptr ||
                   section->header()->importer_uid() == options.ownUID;
        });
}

// The entries of a kind that are here, as the triggers count them: going through a large library
// would take longer than a small import.
std::int64_t countOf(common::Database& database, EntityKind kind) {
    return database.int64(kind == EntityKind::Track ? "SELECT items FROM row_count"
                                                    : "SELECT containers FROM row_count");
}

std::int64_t knownPeer(common::Database& database, const std::string& uid) {
    return database.int64("SELECT peer_id FROM peer WHERE peer_uid = ?", uid);
}

std::int64_t receivedRevision(common::Database& database, const std::string& uid) {
    return database.int64("SELECT received_revision FROM peer WHERE peer_uid = ?", uid);
}

std::int64_t peerID(common::Database& database, const std::string& uid) {
    if (const std::int64_t known = knownPeer(database, uid)) {
        return known;
    }
    database.execute("INSERT INTO peer (peer_uid) VALUES (?)", uid);
    return database.lastInsertedRow();
}

class PeerChangesImport {
public:
    PeerChangesImport(common::Database& database, Sections& sections,
                      const PeerImportOptions& options, const std::string& uid)
        : _database(database),
          _sections(sections),
          _isFull(options.fullExchangeWith.has_value()),
          _wasKnown(knownPeer(database, uid) != 0),
          _hadReceived(receivedRevision(database, uid) != 0),
          _before(revisionCounter(database)),
          _tracksBefore(countOf(database, EntityKind::Track)),
          _playlistsBefore(countOf(database, EntityKind::Playlist)),
          _peerID(peerID(database, uid)),
          _origin(database, uid),
          _newIDs(database, sections.tracks.ids().size(), sections.tracks.ids(),
                  options.randomNumber),
          _deleted(database),
          _identities(database, _peerID),
          _context{.database = database,
                   .origin = _origin,
                   .newIDs = _newIDs,
                   .deleted = _deleted,
                   .identities = _identities,
                   .peerID = _peerID,
                   .knowsOwnIDs = areForUs(sections, options),
                   .hadNoTracks = database.int64("SELECT EXISTS (SELECT 1 FROM item)") == 0} {}

    PeerImportResult run() {
        importTracks();
        remove(_sections.tracks);
        importPlaylists();
        remove(_sections.playlists);
        if (_context.namesMayBeUnused) {
            removeUnusedNames(_database);
        }
        _origin.end();
        PeerImportResult result;
        if (const std::int64_t after = revisionCounter(_database); after != _before) {
            result.revisions = ImportRevisions{_before + 1, after, _origin.hasNewsForPeer()};
        }
        result.effects = effects();
        return result;
    }

private:
    ImportEffects effects() {
        return {
            changed(EntityKind::Track), changed(EntityKind::Playlist),
            _tracksBefore + _context.newTracks - countOf(_database, EntityKind::Track),
            _playlistsBefore + _context.newPlaylists - countOf(_database, EntityKind::Playlist)};
    }

    // What changed has a revision of this import; so has what the peer is to be told again.
    std::int64_t changed(EntityKind kind) {
        return _database.int64(
                   "SELECT COUNT(*) FROM entity_revision"
                   " WHERE revision > ? AND +entity_kind = ? AND deleted = 0",
                   _before, static_cast<int>(kind)) -
               _origin.toldUnchanged(kind);
    }

    void importTracks() {
        LateIndex globalIDs(_database, _context.hadNoTracks, _sections.tracks.ids().size());
        PeerTrackImport tracks(_context);
        _sections.tracks.forEachBatch(qorx::Record::kTrack, [&](RecordStream::Batch& batch) {
            // The indices on the peer's ids grow in order.
            std::ranges::stable_sort(batch, {}, [](const qorx::Record* record) {
                return record->track().persistent_id();
            });
            tracks.apply(batch);
        });
        globalIDs.build();
        tracks.finish();
    }

    void importPlaylists() {
        PeerPlaylistImport playlists(_context);
        _sections.playlists.forEachBatch(qorx::Record::kPlaylist, [&](RecordStream::Batch& batch) {
            for (const qorx::Record* record : batch) {
                playlists.apply(record->playlist());
            }
        });
    }

    void remove(Section& section) {
        PeerRemovals removals(_context, section.kind());
        if (section.hasDeletions()) {
            section.forEachBatch(qorx::Record::kDeletion, [&](RecordStream::Batch& batch) {
                for (const qorx::Record* record : batch) {
                    removals.apply(record->deletion());
                }
            });
        }
        if (_isFull || section.isComplete()) {
            // A peer that begins anew although we have received from it went back to an older
            // state: what it has lost is not what it has given up.
            if (!_hadReceived) {
                removals.dropUnnamed(section.ids());
            }
            // A peer that is met for the first time has yet to ask what is here.
            if (_wasKnown) {
                removals.tellUnnamed();
            }
        }
    }

    common::Database& _database;
    Sections& _sections;
    const bool _isFull;
    const bool _wasKnown;
    const bool _hadReceived;  // and so much that what is not named now may be lost there
    const std::int64_t _before;
    const std::int64_t _tracksBefore;
    const std::int64_t _playlistsBefore;
    const std::int64_t _peerID;
    ChangeOrigin _origin;
    NewIDs _newIDs;
    DeletedEntries _deleted;
    PeerIdentities _identities;
    PeerImportContext _context;
};

}  // namespace

PeerImportResult importPeerChanges(Connections& connections, const PeerChanges& changes,
                                   const PeerImportOptions& options,
                                   ImportCancellation& cancellation) {
    PeerImportResult result;
    try {
        cancellation.check();
        Sections sections{Section(changes.tracks, EntityKind::Track, cancellation),
                          Section(changes.playlists, EntityKind::Playlist, cancellation)};
        const std::string uid = peerOf(sections, options);
        connections.write([&](common::Database& database) {
            const ImportCancellation::Scope scope(cancellation, database);
            cancellation.check();
            result = PeerChangesImport(database, sections, options, uid).run();
            return true;
        });
    } catch (const ImportFailure& failure) {
        result = {failure.error(), std::nullopt, {}};
    } catch (const common::SqliteError& error) {
        result = {importError(error, cancellation), std::nullopt, {}};
    }
    return result;
}

}  // namespace korvane
