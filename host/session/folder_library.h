// Purpose: the folder as a library of this host: its state, what a scan finds, and what is made of
// it for devices.
// Thread: one at a time.
// Ownership: owns the state and its lock, the scan's result, the workers and the materials.
// Failure: each step returns why it failed.
#pragma once

#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "host/plan/adoption.h"
#include "host/playlists/playlists.h"
#include "host/progress/progress.h"
#include "host/scan/scanner.h"
#include "host/session/materials.h"
#include "host/state/folder_state.h"
#include "host/state/identity_source.h"
#include "host/state/state_store.h"
#include "platform/errors.h"

namespace host {

class FolderLibrary {
public:
    FolderLibrary(Progress& progress, std::stop_token stop);
    ~FolderLibrary();
    FolderLibrary(const FolderLibrary&) = delete;
    FolderLibrary& operator=(const FolderLibrary&) = delete;

    // Finds the folder (ScanErrorFolderNotFound, ScanErrorNotAFolder) and reads its state.
    platform::OptionalError open(const std::string& folder);
    // Reads the folder and recognises its files.
    platform::OptionalError scan();
    // Takes over identities from a device's own list.
    void adopt(const std::string& libraryUid, const std::vector<DeviceTrack>& tracks,
               const std::vector<DevicePlaylist>& playlists);
    // Reads the playlists.
    void readPlaylists();
    // Makes pictures and recommendation data.
    platform::OptionalError makeMaterials(bool withRecommendations);
    // Hashes the files that have no content hash yet. One that cannot be read counts as unreadable.
    // `someFailed` tells whether there was one.
    platform::OptionalError hashNewFiles(bool& someFailed);
    // What a device would be told by this folder, as one number.
    ContentHash digest(bool withRecommendations) const;

    const std::string& folder() const { return _folder; }  // absolute, without symbolic links
    FolderState& state() { return _state; }
    const FolderState& state() const { return _state; }
    StateStore& store() { return _store; }
    IdentitySource& ids() { return _ids; }
    const FolderMaterials& materials() const { return _materials; }
    bool hasMaterials() const { return _hasMaterials; }
    // Everything of the folder that cannot be synced as it is.
    std::vector<ItemFailure> failures() const;

private:
    std::optional<ContentHash> hashOf(const FileStamp& stamp) const;

    Progress& _progress;
    const std::stop_token _stop;
    std::string _folder;
    StateStore _store;
    FolderState _state;
    IdentitySource _ids;
    MediaWorkers _workers;
    ScanResult _scan;
    std::vector<Playlist> _playlists;
    bool _hasPlaylists = false;
    FolderMaterials _materials;
    bool _hasMaterials = false;
    std::vector<ItemFailure> _hashFailures;
};

}  // namespace host
