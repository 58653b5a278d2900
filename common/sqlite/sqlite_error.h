// Purpose: the error of the SQLite wrapper, and its form as a platform error.
// Calling thread: any; an error is a plain value.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/errors.h"

struct sqlite3;

namespace common {

// Codes are SQLite's extended result codes.
inline constexpr std::string_view SqliteErrorDomain = "SqliteErrorDomain";

// The codes that callers raise themselves, under the engine's numbers.
inline constexpr int SqliteAborted = 4;
inline constexpr int SqliteReadOnly = 8;
inline constexpr int SqliteDamaged = 11;
inline constexpr int SqliteCannotOpen = 14;
inline constexpr int SqliteOutOfRange = 25;

class SqliteError : public std::runtime_error {
public:
    // `code` is an extended result code.
    SqliteError(int code, const std::string& text) : std::runtime_error(text), _code(code) {}
    // The last error of a connection; `what` names what was tried (the statement's text, say).
    static SqliteError ofConnection(sqlite3* connection, std::string_view what);

    int code() const { return _code; }
    // Another connection held a lock for longer than the busy wait.
    bool isBusy() const;
    // The file is damaged or is no database. One such error is no verdict: reopen before believing.
    bool isDamage() const;
    bool isDiskFull() const;
    // The statement was stopped by Database::interrupt.
    bool isInterrupted() const;
    platform::Error platformError() const;

private:
    int _code;
};

}  // namespace common
