// Purpose: keeps a folder's state on disk, in one SQLite file per folder under the user's state
// directory, so that a later run knows what it did.
// Thread: one at a time.
// Ownership: a StateStore holds the folder's lock while it lives: one run per folder.
// Failure: Errors with plain words; a state file that is damaged is set aside (its new name ends in
// ".damaged") and an empty state takes its place, which the devices' lists then fill again.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/state/folder_state.h"
#include "host/state/identity_source.h"
#include "platform/errors.h"

namespace host {

inline constexpr std::string_view StateErrorDomain = "HostStateError";
enum StateErrorCode : std::int64_t {
    StateErrorLocked = 1,    // another run works on this folder
    StateErrorUnusable = 2,  // cannot be read or written
    StateErrorNewer = 3,     // written by a newer version
};

// "$XDG_STATE_HOME/orlith", else "~/.local/state/orlith".
std::string defaultStateDirectory();
// "$XDG_CACHE_HOME/orlith", else "~/.cache/orlith".
std::string defaultCacheDirectory();

class StateStore {
public:
    StateStore();
    ~StateStore();
    StateStore(const StateStore&) = delete;
    StateStore& operator=(const StateStore&) = delete;

    // Opens the state of a folder, given by its absolute path without symbolic links, and reads all
    // of it. Marks every id in `ids` as used.
    platform::OptionalError open(const std::string& directory, const std::string& folder,
                                 FolderState& state, IdentitySource& ids);
    // Set by open: where a damaged state was moved; empty when there was none.
    const std::string& setAside() const;

    // Writes what is marked as changed, and takes the marks off.
    platform::OptionalError save(FolderState& state);
    // Writes a device's part: anchor, digest, and what differs from `before`.
    platform::OptionalError saveDevice(const FolderState& state, const DeviceState& device);

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace host
