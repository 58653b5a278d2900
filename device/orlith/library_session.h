// The library as a session has it, for as long as a call works on it: files are not swept, an old
// cancel is forgotten, and what the call leaves behind is swept afterwards.
//
// Any thread, one at a time; the library outlives it.
#pragma once

#include "device/orlith/library_access.h"

namespace orlith {

class LibrarySession {
public:
    explicit LibrarySession(LibraryAccess& access) : _access(access) { _access.sessionBegan(); }
    ~LibrarySession() { _access.sessionEnded(); }
    LibrarySession(const LibrarySession&) = delete;
    LibrarySession& operator=(const LibrarySession&) = delete;

private:
    LibraryAccess& _access;
};

}  // namespace orlith
