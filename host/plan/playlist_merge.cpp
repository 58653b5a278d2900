#include "host/plan/playlist_merge.h"

#include <algorithm>
#include <unordered_map>

namespace host {

namespace {

class Merge {
public:
    Merge(const std::vector<MediaFile>& files, FolderState& state, IdentitySource& ids)
        : _files(files), _state(state), _ids(ids) {}

    void run(const std::vector<Playlist>& playlists) {
        for (std::size_t i = 0; i < _state.playlists.size(); ++i) {
            KnownPlaylist& known = _state.playlists[i];
            known.present = known.path.empty() && !known.items.empty();
            if (!known.path.empty())
                _byPath.emplace(known.path, i);
        }
        std::vector<const Playlist*> strangers;
        for (const Playlist& playlist : playlists) {
            const auto known = _byPath.find(playlist.stamp.path);
            if (known == _byPath.end())
                strangers.push_back(&playlist);
            else
                update(_state.playlists[known->second], playlist);
        }
        for (const Playlist* playlist : strangers)
            if (playlist->readable())
                update(movedOrNew(*playlist), *playlist);
    }

private:
    void update(KnownPlaylist& known, const Playlist& found) {
        known.present = true;
        if (!found.readable())
            return;
        std::vector<std::int64_t> items;
        for (const std::size_t place : found.items)
            if (const KnownFile* file = _state.fileAt(_files[place].stamp.path))
                items.push_back(file->syncId);
        const std::int64_t modified = found.stamp.modifiedNanoseconds / 1'000'000;
        if (known.path == found.stamp.path && known.name == found.name && known.items == items &&
            known.changedMilliseconds == modified)
            return;
        known.path = found.stamp.path;
        known.name = found.name;
        known.items = std::move(items);
        known.changedMilliseconds = modified;
        known.changed = true;
    }

    // A known one of the same name whose file is gone, or a new one.
    KnownPlaylist& movedOrNew(const Playlist& found) {
        const auto moved = std::ranges::find_if(_state.playlists, [&](const KnownPlaylist& known) {
            return !known.present && known.name == found.name;
        });
        if (moved != _state.playlists.end())
            return *moved;
        KnownPlaylist playlist;
        playlist.syncId = _ids.next();
        playlist.globalId = _ids.next();
        _state.playlists.push_back(std::move(playlist));
        return _state.playlists.back();
    }

    const std::vector<MediaFile>& _files;
    FolderState& _state;
    IdentitySource& _ids;
    std::unordered_map<std::string, std::size_t> _byPath;
};

}  // namespace

void mergePlaylists(const std::vector<Playlist>& playlists, const std::vector<MediaFile>& files,
                    FolderState& state, IdentitySource& ids) {
    Merge(files, state, ids).run(playlists);
}

}  // namespace host
