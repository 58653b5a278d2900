// Purpose: stops imports: the one that runs, and those that would begin before the mark is taken
//          away again.
// Calling thread: any.
#pragma once

#include <atomic>
#include <mutex>

namespace common {
class Database;
}

namespace korvane {

class ImportCancellation {
public:
    // Remembered until reset; also stops the statement that a running import is in.
    void ask();
    void reset();
    bool isAsked() const { return _asked.load(std::memory_order_relaxed); }
    // Throws ImportFailure (KVMediaLibraryServiceErrorCancelled) when it is asked for.
    void check() const;

    // While this lives, asking stops the database's statements. It ends before the import commits:
    // what the connection does next is somebody else's.
    class Scope {
    public:
        Scope(ImportCancellation& owner, common::Database& database);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        ImportCancellation& _owner;
    };

private:
    std::atomic<bool> _asked = false;
    std::mutex _mutex;
    common::Database* _running = nullptr;  // _mutex
};

}  // namespace korvane
