// Purpose: how the steps of an import end it: thrown through its transaction, which rolls back, and
//          turned into the answer of the import service.
#pragma once

#include <exception>
#include <string_view>
#include <utility>

#include "platform/errors.h"
#include "platform/media_library.h"

namespace common {
class SqliteError;
}

namespace korvane {

class ImportCancellation;

class ImportFailure : public std::exception {
public:
    explicit ImportFailure(platform::Error error) : _error(std::move(error)) {}
    ImportFailure(KVMediaLibraryServiceErrorCode code, std::string_view text)
        : _error(KVMediaLibraryServiceErrorDomain, code, text) {}

    const platform::Error& error() const { return _error; }
    const char* what() const noexcept override { return "the import failed"; }

private:
    platform::Error _error;
};

// What an import answers when the database fails it.
platform::Error importError(const common::SqliteError& error,
                            const ImportCancellation& cancellation);

}  // namespace korvane
