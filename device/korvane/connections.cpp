#include "device/korvane/connections.h"

#include <algorithm>
#include <utility>

#include "common/sqlite/sqlite_error.h"
#include "device/korvane/save/record_keeping.h"
#include "device/korvane/sort_orders.h"

namespace korvane {

namespace {

// After a full disk or an I/O error the engine may have rolled back the whole transaction by
// itself; what would follow must not be committed piece by piece.
void requireTransaction(common::Database& database) {
    if (!database.inTransaction())
        throw common::SqliteError(common::SqliteAborted,
                                  "the transaction was rolled back by the database");
}

}  // namespace

// One use of a connection by a thread, on the thread's stack; inner uses find outer ones.
class Connections::Use {
public:
    Use(Connections& owner, bool writes) : _owner(owner), _previous(_innermost) {
        const Use* writing = find(true);
        const Use* any = writing ? writing : find(false);
        if (const Use* shared = writes ? writing : any) {
            _database = shared->_database;
            _writes = shared->_writes;
        } else if (writes) {
            _database = &owner.acquireWriter();
            _writes = _isOwner = true;
        } else {
            _reader = owner.acquireReader();
            _database = _reader.database.get();
            _isOwner = true;
        }
        _innermost = this;
    }
    ~Use() {
        _innermost = _previous;
        if (!_isOwner)
            return;
        if (_writes)
            _owner.releaseWriter();
        else
            _owner.releaseReader(std::move(_reader));
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    common::Database& database() const { return *_database; }
    static bool threadUses(const Connections& connections) {
        for (const Use* use = _innermost; use; use = use->_previous)
            if (&use->_owner == &connections)
                return true;
        return false;
    }

private:
    const Use* find(bool writes) const {
        for (const Use* use = _previous; use; use = use->_previous)
            if (&use->_owner == &_owner && use->_writes == writes)
                return use;
        return nullptr;
    }

    static thread_local const Use* _innermost;

    Connections& _owner;
    const Use* _previous;
    common::Database* _database = nullptr;
    bool _writes = false;
    bool _isOwner = false;  // gives the connection back
    Reader _reader;         // when it is one of its own
};

thread_local const Connections::Use* Connections::Use::_innermost = nullptr;

Connections::Connections(ConnectionSettings settings)
    : _settings(std::move(settings)), _writer(open(true)) {}

Connections::~Connections() = default;

std::unique_ptr<common::Database> Connections::open(bool writes) const {
    common::DatabaseOptions options;
    options.readOnly = !writes;
    options.create = false;
    options.busyWait = _settings.busyWait;
    options.cacheKiB = writes ? _settings.writerCacheKiB : _settings.readerCacheKiB;
    return std::make_unique<common::Database>(_settings.realPath, options);
}

bool Connections::isUsedByThisThread() const {
    return Use::threadUses(*this);
}

bool Connections::write(const Block& block) {
    std::vector<std::function<void()>> committed;
    const bool isCommitted = [&] {
        Use use(*this, true);
        return use.database().inTransaction() ? writeNested(use.database(), block)
                                              : writeOutermost(use.database(), block, committed);
    }();
    for (const auto& job : committed)
        job();
    return isCommitted;
}

void Connections::whenCommitted(std::function<void()> job) {
    _whenCommitted.push_back(std::move(job));
}

bool Connections::writeOutermost(common::Database& database, const Block& block,
                                 std::vector<std::function<void()>>& committed) {
    _whenCommitted.clear();
    common::Transaction transaction(database, common::TransactionKind::Write);
    if (!block(database))
        return false;
    requireTransaction(database);
    placeUnplacedItems(database);
    keepRecordsOfChanges(database);
    // The next transaction's changes count as new ones; a transaction without any writes nothing.
    database.execute(
        "UPDATE change_state SET base_revision = (SELECT seq FROM sqlite_sequence WHERE name = "
        "'entity_revision') WHERE base_revision < (SELECT seq FROM sqlite_sequence WHERE name = "
        "'entity_revision')");
    transaction.commit();
    committed.swap(_whenCommitted);
    return true;
}

bool Connections::writeNested(common::Database& database, const Block& block) {
    // Jobs of a part that is rolled back are not run.
    struct Rollback {
        std::vector<std::function<void()>>& jobs;
        std::size_t kept = jobs.size();
        ~Rollback() { jobs.resize(std::min(kept, jobs.size())); }
    } rollback{_whenCommitted};
    common::Savepoint savepoint(database);
    if (!block(database))
        return false;
    requireTransaction(database);
    savepoint.commit();
    rollback.kept = _whenCommitted.size();
    return true;
}

bool Connections::read(const Block& block) {
    Use use(*this, false);
    if (use.database().inTransaction())
        return block(use.database());
    common::Transaction transaction(use.database(), common::TransactionKind::Read);
    const bool answer = block(use.database());
    transaction.commit();
    return answer;
}

void Connections::use(bool writes, const std::function<void(common::Database&)>& block) {
    Use use(*this, writes);
    block(use.database());
}

common::Database& Connections::acquireWriter() {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [&] { return !_writerBusy; });
    reopenWriterIfStale();
    _writerBusy = true;
    return *_writer;
}

void Connections::releaseWriter() {
    {
        std::lock_guard lock(_mutex);
        _writerBusy = false;
    }
    _changed.notify_all();
}

// With _mutex held and the writer free. When it cannot be opened, the old one is gone and the next
// use tries again.
void Connections::reopenWriterIfStale() {
    if (_writer && _writerGeneration == _generation)
        return;
    _writer.reset();
    _writer = open(true);
    _writerGeneration = _generation;
}

Connections::Reader Connections::acquireReader() {
    std::lock_guard lock(_mutex);
    Reader reader;
    if (!_idleReaders.empty()) {
        reader = std::move(_idleReaders.back());
        _idleReaders.pop_back();
    } else {
        reader = {open(false), _generation};
    }
    _busyReaderGenerations.push_back(reader.generation);
    return reader;
}

void Connections::releaseReader(Reader reader) {
    {
        std::lock_guard lock(_mutex);
        _busyReaderGenerations.erase(std::ranges::find(_busyReaderGenerations, reader.generation));
        if (reader.generation == _generation && _idleReaders.size() < _settings.idleReaders)
            _idleReaders.push_back(std::move(reader));
    }
    _changed.notify_all();
}

Connections::Snapshot::Snapshot(Connections& owner)
    : _owner(owner), _reader(owner.acquireReader()) {
    try {
        _transaction.emplace(*_reader.database, common::TransactionKind::Read);
    } catch (...) {
        _owner.releaseReader(std::move(_reader));
        throw;
    }
}

Connections::Snapshot::~Snapshot() {
    _transaction.reset();
    _owner.releaseReader(std::move(_reader));
}

void Connections::reconnect() {
    std::unique_lock lock(_mutex);
    const auto wanted = ++_generation;
    _idleReaders.clear();
    // A use of this thread would wait for itself; its connections are stale now and go when it
    // ends.
    if (Use::threadUses(*this))
        return;
    _changed.wait(lock, [&] {
        return std::ranges::none_of(_busyReaderGenerations,
                                    [&](auto generation) { return generation < wanted; });
    });
    _changed.wait(lock, [&] { return !_writerBusy; });
    reopenWriterIfStale();
}

void Connections::interruptWriter() {
    std::lock_guard lock(_mutex);
    if (_writerBusy && _writer)
        _writer->interrupt();
}

}  // namespace korvane
