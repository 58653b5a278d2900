#include "device/korvane/import/import_cancellation.h"

#include "common/sqlite/database.h"
#include "device/korvane/import/import_failure.h"

namespace korvane {

void ImportCancellation::ask() {
    _asked = true;
    std::lock_guard lock(_mutex);
    if (_running != nullptr) {
        _running->interrupt();
    }
}

void ImportCancellation::reset() {
    _asked = false;
}

void ImportCancellation::check() const {
    if (isAsked()) {
        throw ImportFailure(KVMediaLibraryServiceErrorCancelled, "the import was cancelled");
    }
}

ImportCancellation::Scope::Scope(ImportCancellation& owner, common::Database& database)
    : _owner(owner) {
    std::lock_guard lock(_owner._mutex);
    _owner._running = &database;
}

ImportCancellation::Scope::~Scope() {
    std::lock_guard lock(_owner._mutex);
    _owner._running = nullptr;
}

}  // namespace korvane
