// Purpose: the library's connections: one that writes, a few that read, and transactions on them.
// Calling thread: any. A use of a connection belongs to the thread that began it; one begun inside
//          another on the same thread is part of it.
// Ownership: Connections owns the databases; blocks borrow them.
// Failure: SqliteError; what a block throws goes on after its part was rolled back.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "common/sqlite/database.h"
#include "common/sqlite/transaction.h"

namespace korvane {

struct ConnectionSettings {
    std::string realPath;  // of this machine
    // For locks that other processes hold.
    std::chrono::milliseconds busyWait{5000};
    int writerCacheKiB = 64 * 1024;
    // Filling a larger one costs more than it saves a connection that lasts for one session.
    int readerCacheKiB = 4 * 1024;
    std::size_t idleReaders = 4;  // kept open when nobody reads
};

class Connections {
public:
    // True commits, false rolls back.
    using Block = std::function<bool(common::Database&)>;

    // Opens the writing connection; the database exists and its schema is up to date.
    explicit Connections(ConnectionSettings settings);
    // Nobody uses a connection any more.
    ~Connections();
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;

    // A transaction that writes; inside another one of this thread, a savepoint of it. Waits for
    // the writing transaction of another thread. Whether it was committed.
    bool write(const Block& block);
    // A transaction that reads one state of the database. Inside a writing one of this thread it
    // sees what that has written; the block's answer is given back and changes nothing.
    bool read(const Block& block);
    // Inside a block that writes: runs the job on this thread once the outermost transaction is
    // committed, without a connection; not at all when it, or a savepoint around this, is rolled
    // back. The job does not throw.
    void whenCommitted(std::function<void()> job);
    // Whether this thread is inside a use: what it reads is part of that.
    bool isUsedByThisThread() const;
    // A connection without a transaction of its own.
    void use(bool writes, const std::function<void(common::Database&)>& block);
    // A connection of its own in a transaction that reads one state of the database for as long as
    // the object lives. No block, and on no thread in particular: one at a time. Reconnecting waits
    // for it.
    class Snapshot;
    // A value read in a transaction.
    template <typename T>
    T reading(const std::function<T(common::Database&)>& block) {
        T result{};
        read([&](common::Database& database) {
            result = block(database);
            return true;
        });
        return result;
    }

    // Closes and opens every connection, each when its transaction has ended, and returns when all
    // of them are new. Inside a use of this thread, it takes effect when that ends.
    void reconnect();
    // Stops the statement that the writing connection runs, if any.
    void interruptWriter();

private:
    class Use;
    struct Reader {
        std::unique_ptr<common::Database> database;
        std::uint64_t generation = 0;
    };

    std::unique_ptr<common::Database> open(bool writes) const;
    common::Database& acquireWriter();
    void releaseWriter();
    Reader acquireReader();
    void releaseReader(Reader reader);
    void reopenWriterIfStale();
    bool writeOutermost(common::Database& database, const Block& block,
                        std::vector<std::function<void()>>& committed);
    bool writeNested(common::Database& database, const Block& block);

    const ConnectionSettings _settings;
    std::vector<std::function<void()>> _whenCommitted;  // of the thread that writes

    std::mutex _mutex;  // protects everything below
    std::condition_variable _changed;
    std::unique_ptr<common::Database> _writer;  // used by the thread that has _writerBusy set
    bool _writerBusy = false;
    std::uint64_t _writerGeneration = 0;
    std::vector<Reader> _idleReaders;
    std::vector<std::uint64_t> _busyReaderGenerations;
    std::uint64_t _generation = 0;  // grows with each reconnect
};

class Connections::Snapshot {
public:
    explicit Snapshot(Connections& owner);
    ~Snapshot();
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;

    common::Database& database() { return *_reader.database; }

private:
    Connections& _owner;
    Reader _reader;
    std::optional<common::Transaction> _transaction;
};

}  // namespace korvane
