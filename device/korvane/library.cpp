#include "device/korvane/library.h"

#include <cmath>

#include "common/sqlite/sqlite_error.h"
#include "device/korvane/account_cache.h"
#include "device/korvane/built_in_playlists.h"
#include "device/korvane/connection_view.h"
#include "device/korvane/database_health.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/library_identity.h"
#include "device/korvane/saver.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

namespace {

// A small database is read whole at every start; a large one after an end that was not in order.
constexpr std::uint64_t SmallDatabaseBytes = 32u << 20;

bool deservesThoroughCheck(device::RootedFileSystem& files, const std::string& path,
                           const std::optional<IdentityRecord>& beside) {
    const auto attributes = files.attributes(path, nullptr);
    return !attributes || attributes->size <= SmallDatabaseBytes || !beside ||
           !beside->closedInOrder;
}

platform::Error openingError(const common::SqliteError& error) {
    return platform::Error(LibraryErrorDomain,
                           error.isDamage() ? LibraryErrorDamaged : LibraryErrorCannotOpen,
                           error.what());
}

}  // namespace

std::shared_ptr<Library> Library::open(const Configuration& configuration,
                                       platform::OptionalError* error) {
    const LibraryLog log(configuration.logService);
    device::RootedFileSystem& files = configuration.files;
    const std::string& path = configuration.databasePath;
    const auto fail = [&](const platform::Error& reason) {
        log.error("open", reason.description());
        if (error)
            *error = reason;
        return nullptr;
    };
    for (const std::string& file : {path, configuration.accountDatabasePath})
        if (auto failure = files.createDirectory(file.substr(0, file.rfind('/'))))
            return fail(*failure);
    try {
        const std::string realPath = files.realPath(path);
        const auto beside = readIdentityRecord(files, path);
        const auto database = openChecked(realPath, deservesThoroughCheck(files, path, beside));
        const std::string uid = settleLibraryUID(*database, fileIdentity(realPath), beside);
        std::shared_ptr<Library> library(new Library(configuration, log, uid));
        library->writeIdentity(false, revisionCounter(*database));
        library->change("open", [&](common::Database& writer) {
            createBuiltInPlaylists(writer, library->nowMilliseconds());
            return true;
        });
        return library;
    } catch (const common::SqliteError& failure) {
        return fail(openingError(failure));
    }
}

Library::Library(const Configuration& configuration, LibraryLog log, std::string uid)
    : _configuration(configuration),
      _log(log),
      _uid(std::move(uid)),
      _artwork(configuration.files),
      _connections(std::make_unique<Connections>(ConnectionSettings{
          .realPath = configuration.files.realPath(configuration.databasePath)})),
      _accounts(std::make_unique<AccountCache>(
          configuration.files.realPath(configuration.accountDatabasePath), log)) {}

Library::~Library() {
    writeIdentity(true, currentRevision());
}

void Library::writeIdentity(bool closedInOrder, std::int64_t revision) {
    const std::string& path = _configuration.databasePath;
    const IdentityRecord record{_uid, fileIdentity(_configuration.files.realPath(path)), revision,
                                closedInOrder};
    if (const auto error = writeIdentityRecord(_configuration.files, path, record))
        _log.warning("writeIdentity", error->description());
}

bool Library::guarded(std::string_view operation, const std::function<bool()>& work) const {
    try {
        return work();
    } catch (const common::SqliteError& error) {
        _log.error(operation, error.what());
        return false;
    }
}

bool Library::change(std::string_view operation, const Connections::Block& block) {
    return guarded(operation, [&] { return _connections->write(block); });
}

bool Library::read(std::string_view operation, const Connections::Block& block) {
    return guarded(operation, [&] { return _connections->read(block); });
}

bool Library::readApart(std::string_view operation,
                        const std::function<void(common::Database&)>& block) {
    return guarded(operation, [&] {
        Connections::Snapshot snapshot(*_connections);
        block(snapshot.database());
        return true;
    });
}

std::int64_t Library::nowMilliseconds() const {
    return std::llround(_configuration.system.absoluteTime() * 1000.0);
}

platform::Value Library::valueForDatabaseProperty(std::string_view key) {
    platform::Value value;
    read("valueForDatabaseProperty:", [&](common::Database& database) {
        value = databaseProperty(database, key);
        return true;
    });
    return value;
}

bool Library::setValueForDatabaseProperty(const platform::Value& value, std::string_view key) {
    return change("setValue:forDatabaseProperty:", [&](common::Database& database) {
        setDatabaseProperty(database, key, value);
        return true;
    });
}

bool Library::deleteDatabaseProperty(std::string_view key) {
    return change("deleteDatabaseProperty:", [&](common::Database& database) {
        korvane::deleteDatabaseProperty(database, key);
        return true;
    });
}

bool Library::performReadOnlyDatabaseTransactionWithBlock(const TransactionBlock& block) {
    return read("performReadOnlyDatabaseTransactionWithBlock:", [&](common::Database& database) {
        ConnectionView view(database, *_connections, false, true, _log);
        return block(view);
    });
}

bool Library::performDatabaseTransactionWithBlock(const TransactionBlock& block) {
    return change("performDatabaseTransactionWithBlock:", [&](common::Database& database) {
        ConnectionView view(database, *_connections, true, true, _log);
        return block(view);
    });
}

void Library::databaseConnectionAllowingWrites(
    bool allowsWrites, const std::function<void(KV3DatabaseConnection&)>& block) {
    guarded("databaseConnectionAllowingWrites:withBlock:", [&] {
        _connections->use(allowsWrites, [&](common::Database& database) {
            ConnectionView view(database, *_connections, allowsWrites, database.inTransaction(),
                                _log);
            block(view);
        });
        return true;
    });
}

void Library::reconnectToDatabase() {
    guarded("reconnectToDatabase", [&] {
        _connections->reconnect();
        return true;
    });
}

std::int64_t Library::currentRevision() {
    read("currentRevision", [&](common::Database& database) {
        _lastRevision = revisionCounter(database);
        return true;
    });
    return _lastRevision;
}

void Library::saveTrackMetadataSinceRevision(std::int64_t revision, std::uint32_t torvelID) {
    if (_saver)
        _saver->saveTrackMetadata(*this, revision, torvelID);
}

void Library::savePlaylistsSinceRevision(std::int64_t revision, std::uint32_t torvelID) {
    if (_saver)
        _saver->savePlaylists(*this, revision, torvelID);
}

void Library::notifyContentsDidChange() {
    _configuration.system.defaultNotificationCenter().post(KV3KorvaneContentsDidChangeNotification);
}

void Library::notifyDisplayValuesPropertyDidChange() {
    _configuration.system.defaultNotificationCenter().post(
        KV3KorvaneDisplayValuesDidChangeNotification);
}

KV3AccountCacheDatabase& Library::accountCacheDatabase() {
    return *_accounts;
}

}  // namespace korvane
