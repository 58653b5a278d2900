#include "host/state/state_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <span>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "common/sqlite/transaction.h"
#include "common/unique_fd.h"
#include "host/scan/content_hash.h"
#include "host/scan/media_record.h"
#include "host/state/schema.h"

namespace host {

namespace {

namespace fs = std::filesystem;

std::string directoryOf(const char* variable, const char* fallback) {
    const char* given = std::getenv(variable);
    if (given != nullptr && given[0] == '/')
        return std::string(given) + "/orlith";
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : "") + fallback + "/orlith";
}

std::span<const std::uint8_t> asBlob(std::string_view bytes) {
    return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

std::string_view asText(std::span<const std::uint8_t> blob) {
    return {reinterpret_cast<const char*>(blob.data()), blob.size()};
}

std::string bytesOfOptionalHash(const std::optional<ContentHash>& hash) {
    return hash ? bytesOfContentHash(*hash) : std::string();
}

ContentHash hashColumn(common::Query& query, int column) {
    return contentHashOfBytes(asText(query->blob(column))).value_or(ContentHash{});
}

std::string encodeItems(const std::vector<std::int64_t>& items) {
    const auto bytes = std::as_bytes(std::span(items));
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::vector<std::int64_t> decodeItems(std::span<const std::uint8_t> blob) {
    std::vector<std::int64_t> items(blob.size() / 8);
    if (!items.empty())
        std::memcpy(items.data(), blob.data(), items.size() * 8);
    return items;
}

platform::Error unusable(const std::string& path, const std::string& why) {
    return platform::Error(StateErrorDomain, StateErrorUnusable,
                           "the host's state " + path + " cannot be used: " + why);
}

}  // namespace

std::string defaultStateDirectory() {
    return directoryOf("XDG_STATE_HOME", "/.local/state");
}

std::string defaultCacheDirectory() {
    return directoryOf("XDG_CACHE_HOME", "/.cache");
}

struct StateStore::Impl {
    std::string path;
    std::string setAside;
    common::UniqueFd lock;
    std::unique_ptr<common::Database> database;
    std::map<std::string, DeviceState> savedDevices;  // as they are on disk

    platform::OptionalError takeLock(const std::string& folder);
    void openDatabase();
    void moveAside();
    void load(const std::string& folder, FolderState& state, IdentitySource& ids);
    void loadFiles(FolderState& state, IdentitySource& ids);
    void loadPlaylists(FolderState& state, IdentitySource& ids);
    void loadDevices(FolderState& state);
    void saveFile(const KnownFile& file);
    void savePlaylist(const KnownPlaylist& playlist);
    std::int64_t saveDeviceRow(const DeviceState& device);
    void saveSentTracks(std::int64_t row, const DeviceState& before, const DeviceState& device);
    void saveSentPlaylists(std::int64_t row, const DeviceState& before, const DeviceState& device);
    void saveFailed(std::int64_t row, const DeviceState& device);
};

StateStore::StateStore() : _impl(std::make_unique<Impl>()) {}
StateStore::~StateStore() = default;

const std::string& StateStore::setAside() const {
    return _impl->setAside;
}

platform::OptionalError StateStore::open(const std::string& directory, const std::string& folder,
                                         FolderState& state, IdentitySource& ids) {
    std::error_code failed;
    fs::create_directories(directory, failed);
    if (failed)
        return unusable(directory, failed.message());
    const std::string name = common::hexText(contentHashOfText(folder));
    _impl->path = directory + "/" + name + ".sqlite";
    if (auto error = _impl->takeLock(folder))
        return error;
    // A first complaint is no verdict: the file is opened once more before it is believed.
    for (int attempt = 0;; ++attempt) {
        try {
            state = FolderState();
            _impl->savedDevices.clear();
            _impl->openDatabase();
            if (!migrateState(*_impl->database))
                return platform::Error(StateErrorDomain, StateErrorNewer,
                                       "the host's state " + _impl->path +
                                           " was written by a newer version of this program");
            _impl->load(folder, state, ids);
            return std::nullopt;
        } catch (const common::SqliteError& error) {
            _impl->database.reset();
            if (!error.isDamage() || attempt >= 2)
                return unusable(_impl->path, error.what());
            if (attempt == 1)
                _impl->moveAside();
        }
    }
}

platform::OptionalError StateStore::Impl::takeLock(const std::string& folder) {
    const std::string lockPath = path + ".lock";
    lock = common::UniqueFd(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (lock.get() < 0)
        return unusable(lockPath, std::strerror(errno));
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) == 0) {
        // For the one who finds it locked.
        const std::string owner = std::to_string(::getpid());
        if (::ftruncate(lock.get(), 0) != 0 ||
            ::pwrite(lock.get(), owner.data(), owner.size(), 0) < 0)
            return unusable(lockPath, std::strerror(errno));
        return std::nullopt;
    }
    char owner[32] = {};
    if (::pread(lock.get(), owner, sizeof owner - 1, 0) < 0)
        owner[0] = '\0';
    return platform::Error(StateErrorDomain, StateErrorLocked,
                           "another run (process " + std::string(owner) + ") syncs " + folder);
}

void StateStore::Impl::openDatabase() {
    common::DatabaseOptions options;
    options.fullSync = true;
    database = std::make_unique<common::Database>(path, options);
}

void StateStore::Impl::moveAside() {
    setAside = path + ".damaged";
    std::error_code ignored;
    fs::rename(path, setAside, ignored);
    fs::remove(path + "-wal", ignored);
    fs::remove(path + "-shm", ignored);
}

void StateStore::Impl::load(const std::string& folder, FolderState& state, IdentitySource& ids) {
    common::Query host = database->query("SELECT key, value FROM host");
    while (host.step()) {
        if (host->text(0) == "uid")
            state.hostUid = host->text(1);
        else if (host->text(0) == "anchor_counter")
            state.anchorCounter = static_cast<std::uint64_t>(host->int64(1));
    }
    if (state.hostUid.empty()) {
        state.hostUid = ids.nextUid();
        common::Transaction transaction(*database, common::TransactionKind::Write);
        database->execute("INSERT OR REPLACE INTO host VALUES ('uid', ?)", state.hostUid);
        database->execute("INSERT OR REPLACE INTO host VALUES ('folder', ?)", asBlob(folder));
        transaction.commit();
    }
    common::Transaction view(*database, common::TransactionKind::Read);
    loadFiles(state, ids);
    loadPlaylists(state, ids);
    loadDevices(state);
    view.commit();
    savedDevices = state.devices;
}

void StateStore::Impl::loadFiles(FolderState& state, IdentitySource& ids) {
    const auto count = static_cast<std::size_t>(database->int64("SELECT count(*) FROM files"));
    state.files.reserve(count);
    state.byPath.reserve(count);
    state.bySyncId.reserve(count);
    state.byGlobalId.reserve(count);
    common::Query rows = database->query(
        "SELECT sync_id, global_id, date_added, record, content_hash, removed_by_owner, "
        "device_only, failure, rating, rating_changed, bookmark, bookmark_changed, path FROM "
        "files");
    while (rows.step()) {
        KnownFile file;
        file.syncId = rows->int64(0);
        file.globalId = rows->int64(1);
        file.dateAdded = rows->int64(2);
        // A record that another version wrote does not decode: the file is read again, and its
        // identity found by the path.
        if (auto media = decodeMediaFile(asText(rows->blob(3))))
            file.media = std::move(*media);
        file.media.stamp.path = asText(rows->blob(12));
        file.contentHash = contentHashOfBytes(asText(rows->blob(4)));
        file.removedByOwner = rows->int64(5) != 0;
        file.knownFromDeviceOnly = rows->int64(6) != 0;
        file.failure = rows->text(7);
        if (!rows->isNull(8))
            file.owner.rating =
                OwnerRating{static_cast<std::uint32_t>(rows->int64(8)), rows->int64(9)};
        if (!rows->isNull(10))
            file.owner.bookmark =
                OwnerBookmark{static_cast<std::uint64_t>(rows->int64(10)), rows->int64(11)};
        ids.reserve(file.syncId);
        ids.reserve(file.globalId);
        state.add(std::move(file));
    }
    common::Query plays = database->query(
        "SELECT sync_id, origin, plays, skips, last_played, last_skipped FROM plays");
    while (plays.step())
        if (KnownFile* file = state.fileWithSyncId(plays->int64(0)))
            file->owner.plays[std::string(plays->text(1))] = {
                static_cast<std::uint64_t>(plays->int64(2)),
                static_cast<std::uint64_t>(plays->int64(3)), plays->int64(4), plays->int64(5)};
}

void StateStore::Impl::loadPlaylists(FolderState& state, IdentitySource& ids) {
    common::Query rows = database->query(
        "SELECT sync_id, global_id, path, name, items, changed, removed_by_owner FROM playlists");
    while (rows.step()) {
        KnownPlaylist playlist;
        playlist.syncId = rows->int64(0);
        playlist.globalId = rows->int64(1);
        playlist.path = asText(rows->blob(2));
        playlist.name = rows->text(3);
        playlist.items = decodeItems(rows->blob(4));
        playlist.changedMilliseconds = rows->int64(5);
        playlist.removedByOwner = rows->int64(6) != 0;
        ids.reserve(playlist.syncId);
        ids.reserve(playlist.globalId);
        state.playlists.push_back(std::move(playlist));
    }
}

void StateStore::Impl::loadDevices(FolderState& state) {
    std::map<std::int64_t, DeviceState*> byRow;
    common::Query devices = database->query("SELECT device, uid, anchor, digest FROM devices");
    while (devices.step()) {
        const std::string uid(devices->text(1));
        DeviceState& device = state.devices[uid];
        device.libraryUid = uid;
        device.anchor = devices->text(2);
        device.digest = hashColumn(devices, 3);
        byRow[devices->int64(0)] = &device;
    }
    common::Query tracks = database->query(
        "SELECT device, sync_id, metadata, recommendation, owner, content, delivered FROM "
        "sent_tracks");
    while (tracks.step()) {
        const auto device = byRow.find(tracks->int64(0));
        if (device == byRow.end())
            continue;
        SentTrack& sent = device->second->tracks[tracks->int64(1)];
        sent.metadata = hashColumn(tracks, 2);
        sent.recommendation = hashColumn(tracks, 3);
        sent.owner = hashColumn(tracks, 4);
        sent.content = contentHashOfBytes(asText(tracks->blob(5)));
        sent.delivered = tracks->int64(6) != 0;
    }
    common::Query playlists =
        database->query("SELECT device, sync_id, fingerprint FROM sent_playlists");
    while (playlists.step()) {
        const auto device = byRow.find(playlists->int64(0));
        if (device != byRow.end())
            device->second->playlists[playlists->int64(1)] = hashColumn(playlists, 2);
    }
    common::Query failed = database->query(
        "SELECT device, path, reason, next_step FROM failed_items ORDER BY device, place");
    while (failed.step()) {
        const auto device = byRow.find(failed->int64(0));
        if (device != byRow.end())
            device->second->failed.push_back({std::string(asText(failed->blob(1))),
                                              std::string(failed->text(2)),
                                              std::string(failed->text(3))});
    }
}

platform::OptionalError StateStore::save(FolderState& state) {
    try {
        common::Database& database = *_impl->database;
        common::Transaction transaction(database, common::TransactionKind::Write);
        database.execute("INSERT OR REPLACE INTO host VALUES ('anchor_counter', ?)",
                         static_cast<std::int64_t>(state.anchorCounter));
        for (const KnownFile& file : state.files)
            if (file.changed)
                _impl->saveFile(file);
        for (const KnownPlaylist& playlist : state.playlists)
            if (playlist.changed)
                _impl->savePlaylist(playlist);
        transaction.commit();
    } catch (const common::SqliteError& error) {
        return unusable(_impl->path, error.what());
    }
    for (KnownFile& file : state.files)
        file.changed = false;
    for (KnownPlaylist& playlist : state.playlists)
        playlist.changed = false;
    return std::nullopt;
}

void StateStore::Impl::saveFile(const KnownFile& file) {
    const std::string record = encodeMediaFile(file.media);
    const std::string hash = bytesOfOptionalHash(file.contentHash);
    std::optional<std::int64_t> rating, ratingChanged, bookmark, bookmarkChanged;
    if (file.owner.rating) {
        rating = file.owner.rating->value;
        ratingChanged = file.owner.rating->changedMilliseconds;
    }
    if (file.owner.bookmark) {
        bookmark = static_cast<std::int64_t>(file.owner.bookmark->positionMilliseconds);
        bookmarkChanged = file.owner.bookmark->changedMilliseconds;
    }
    database->execute(
        "INSERT OR REPLACE INTO files (sync_id, global_id, date_added, record, content_hash, "
        "removed_by_owner, device_only, failure, rating, rating_changed, bookmark, "
        "bookmark_changed, path) VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?)",
        file.syncId, file.globalId, file.dateAdded, asBlob(record), asBlob(hash),
        file.removedByOwner, file.knownFromDeviceOnly, file.failure, rating, ratingChanged,
        bookmark, bookmarkChanged, asBlob(file.media.stamp.path));
    for (const auto& [origin, plays] : file.owner.plays)
        database->execute("INSERT OR REPLACE INTO plays VALUES (?,?,?,?,?,?)", file.syncId, origin,
                          static_cast<std::int64_t>(plays.plays),
                          static_cast<std::int64_t>(plays.skips), plays.lastPlayedMilliseconds,
                          plays.lastSkippedMilliseconds);
}

void StateStore::Impl::savePlaylist(const KnownPlaylist& playlist) {
    const std::string items = encodeItems(playlist.items);
    database->execute("INSERT OR REPLACE INTO playlists VALUES (?,?,?,?,?,?,?)", playlist.syncId,
                      playlist.globalId, asBlob(playlist.path), playlist.name, asBlob(items),
                      playlist.changedMilliseconds, playlist.removedByOwner);
}

platform::OptionalError StateStore::saveDevice(const FolderState& state,
                                               const DeviceState& device) {
    try {
        common::Transaction transaction(*_impl->database, common::TransactionKind::Write);
        _impl->database->execute("INSERT OR REPLACE INTO host VALUES ('anchor_counter', ?)",
                                 static_cast<std::int64_t>(state.anchorCounter));
        const DeviceState& before = _impl->savedDevices[device.libraryUid];
        const std::int64_t row = _impl->saveDeviceRow(device);
        _impl->saveSentTracks(row, before, device);
        _impl->saveSentPlaylists(row, before, device);
        if (before.failed != device.failed)
            _impl->saveFailed(row, device);
        transaction.commit();
    } catch (const common::SqliteError& error) {
        return unusable(_impl->path, error.what());
    }
    _impl->savedDevices[device.libraryUid] = device;
    return std::nullopt;
}

std::int64_t StateStore::Impl::saveDeviceRow(const DeviceState& device) {
    const std::string digest = bytesOfContentHash(device.digest);
    database->execute(
        "INSERT INTO devices (uid, anchor, digest) VALUES (?,?,?) ON CONFLICT (uid) DO UPDATE SET "
        "anchor = excluded.anchor, digest = excluded.digest",
        device.libraryUid, device.anchor, asBlob(digest));
    return database->int64("SELECT device FROM devices WHERE uid = ?", device.libraryUid);
}

void StateStore::Impl::saveSentTracks(std::int64_t row, const DeviceState& before,
                                      const DeviceState& device) {
    for (const auto& [syncId, sent] : before.tracks)
        if (!device.tracks.contains(syncId))
            database->execute("DELETE FROM sent_tracks WHERE device = ? AND sync_id = ?", row,
                              syncId);
    for (const auto& [syncId, sent] : device.tracks) {
        const auto known = before.tracks.find(syncId);
        if (known != before.tracks.end() && known->second == sent)
            continue;
        const std::string metadata = bytesOfContentHash(sent.metadata);
        const std::string recommendation = bytesOfContentHash(sent.recommendation);
        const std::string owner = bytesOfContentHash(sent.owner);
        const std::string content = bytesOfOptionalHash(sent.content);
        database->execute("INSERT OR REPLACE INTO sent_tracks VALUES (?,?,?,?,?,?,?)", row, syncId,
                          asBlob(metadata), asBlob(recommendation), asBlob(owner), asBlob(content),
                          sent.delivered);
    }
}

void StateStore::Impl::saveSentPlaylists(std::int64_t row, const DeviceState& before,
                                         const DeviceState& device) {
    for (const auto& [syncId, fingerprint] : before.playlists)
        if (!device.playlists.contains(syncId))
            database->execute("DELETE FROM sent_playlists WHERE device = ? AND sync_id = ?", row,
                              syncId);
    for (const auto& [syncId, fingerprint] : device.playlists) {
        const auto known = before.playlists.find(syncId);
        if (known != before.playlists.end() && known->second == fingerprint)
            continue;
        const std::string bytes = bytesOfContentHash(fingerprint);
        database->execute("INSERT OR REPLACE INTO sent_playlists VALUES (?,?,?)", row, syncId,
                          asBlob(bytes));
    }
}

void StateStore::Impl::saveFailed(std::int64_t row, const DeviceState& device) {
    database->execute("DELETE FROM failed_items WHERE device = ?", row);
    std::int64_t place = 0;
    for (const FailedItem& item : device.failed)
        database->execute("INSERT INTO failed_items VALUES (?,?,?,?,?)", row, place++,
                          asBlob(item.path), item.reason, item.nextStep);
}

}  // namespace host
