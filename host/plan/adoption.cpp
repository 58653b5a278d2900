#include "host/plan/adoption.h"

#include <algorithm>
#include <map>
#include <unordered_set>

namespace host {

namespace {

class Adoption {
public:
    Adoption(const AdoptionInput& input, FolderState& state) : _input(input), _state(state) {
        for (const auto& [uid, device] : state.devices)
            for (const auto& [syncId, sent] : device.tracks)
                _identitiesInUse.insert(syncId);
    }

    DeviceState rebuild(const DeviceState& before) {
        _before = &before;
        _now.libraryUid = before.libraryUid;
        _now.anchor = before.anchor;
        _now.playlists = before.playlists;
        std::vector<const DeviceTrack*> strangers;
        for (const DeviceTrack& track : _input.tracks)
            if (track.fromHost && track.syncId != 0 && !takeKnown(track))
                strangers.push_back(&track);
        if (!strangers.empty())
            indexFreeFiles();
        std::erase_if(strangers, [this](const DeviceTrack* t) { return takeByPath(*t); });
        std::erase_if(strangers, [this](const DeviceTrack* t) { return takeByContents(*t); });
        for (const DeviceTrack* track : strangers)
            rememberOrphan(*track);
        return std::move(_now);
    }

private:
    bool takeKnown(const DeviceTrack& track) {
        KnownFile* file = _state.fileWithSyncId(track.syncId);
        if (file == nullptr)
            return false;
        record(*file, track);
        return true;
    }

    void indexFreeFiles() {
        for (std::size_t i = 0; i < _state.files.size(); ++i) {
            const KnownFile& file = _state.files[i];
            if (file.presence == Presence::Present && !_identitiesInUse.contains(file.syncId))
                _freeBySize.emplace(file.media.stamp.size, i);
        }
    }

    bool isFree(const KnownFile& file) const {
        return file.presence == Presence::Present && !_identitiesInUse.contains(file.syncId);
    }

    bool takeByPath(const DeviceTrack& track) {
        if (!track.hostPath)
            return false;
        KnownFile* file = _state.fileAt(*track.hostPath);
        if (file == nullptr || !isFree(*file))
            return false;
        adopt(*file, track);
        return true;
    }

    bool takeByContents(const DeviceTrack& track) {
        if (!track.contentHash)
            return false;
        const auto [begin, end] = _freeBySize.equal_range(static_cast<std::int64_t>(track.size));
        for (auto candidate = begin; candidate != end; ++candidate) {
            KnownFile& file = _state.files[candidate->second];
            if (!isFree(file))
                continue;
            if (!file.contentHash)
                file.contentHash = _input.hashFile(file.media.stamp);
            if (file.contentHash != track.contentHash)
                continue;
            adopt(file, track);
            return true;
        }
        return false;
    }

    void adopt(KnownFile& file, const DeviceTrack& track) {
        const auto position = static_cast<std::size_t>(&file - _state.files.data());
        _state.bySyncId.erase(file.syncId);
        _state.byGlobalId.erase(file.globalId);
        file.syncId = track.syncId;
        if (track.globalId != 0)
            file.globalId = track.globalId;
        _state.bySyncId[file.syncId] = position;
        _state.byGlobalId[file.globalId] = position;
        file.changed = true;
        // Equal in place and size is taken for equal, as between two runs.
        if (!file.contentHash && track.contentHash) {
            if (static_cast<std::uint64_t>(file.media.stamp.size) == track.size)
                file.contentHash = track.contentHash;
            else
                file.contentHash = _input.hashFile(file.media.stamp);
        }
        record(file, track);
    }

    void record(const KnownFile& file, const DeviceTrack& track) {
        _identitiesInUse.insert(file.syncId);
        SentTrack sent;
        const auto before = _before->tracks.find(file.syncId);
        if (before != _before->tracks.end())
            sent = before->second;
        else
            sent.assumedCurrent = looksTheSame(file.media, track);
        sent.content = track.contentHash;
        sent.delivered = track.hasFile;
        _now.tracks[file.syncId] = sent;
    }

    static bool looksTheSame(const MediaFile& media, const DeviceTrack& track) {
        return media.tags.title == track.title && media.tags.artist == track.artist &&
               media.tags.album == track.album && media.mediaType == track.mediaType &&
               static_cast<std::uint64_t>(media.stamp.size) == track.size;
    }

    // Only on the device: kept there, and a candidate for removal.
    void rememberOrphan(const DeviceTrack& track) {
        KnownFile file;
        file.syncId = track.syncId;
        file.globalId = track.globalId;
        file.media.stamp.path = track.hostPath.value_or(track.title);
        file.media.stamp.size = static_cast<std::int64_t>(track.size);
        file.media.tags.title = track.title;
        file.media.tags.artist = track.artist;
        file.media.tags.album = track.album;
        file.media.tags.discNumber = static_cast<std::int32_t>(track.discNumber);
        file.media.tags.trackNumber = static_cast<std::int32_t>(track.trackNumber);
        file.media.mediaType = track.mediaType;
        file.contentHash = track.contentHash;
        file.knownFromDeviceOnly = true;
        file.changed = true;
        KnownFile& added = _state.add(std::move(file));
        record(added, track);
    }

    const AdoptionInput& _input;
    FolderState& _state;
    const DeviceState* _before = nullptr;
    DeviceState _now;
    std::unordered_set<std::int64_t> _identitiesInUse;  // by any device
    std::multimap<std::int64_t, std::size_t> _freeBySize;
};

bool isSentAnywhere(std::int64_t syncId, const FolderState& state) {
    return std::ranges::any_of(
        state.devices, [&](const auto& entry) { return entry.second.playlists.contains(syncId); });
}

// A playlist of the folder that no device has been sent, so that its identity is free.
KnownPlaylist* freePlaylistNamed(const std::string& name, FolderState& state) {
    const auto found = std::ranges::find_if(state.playlists, [&](const KnownPlaylist& playlist) {
        return playlist.present && playlist.name == name && !isSentAnywhere(playlist.syncId, state);
    });
    return found == state.playlists.end() ? nullptr : &*found;
}

KnownPlaylist& rememberOrphan(const DevicePlaylist& row, FolderState& state) {
    KnownPlaylist orphan;
    orphan.syncId = row.syncId;
    orphan.globalId = row.globalId;
    orphan.name = row.name;
    orphan.changed = true;
    state.playlists.push_back(std::move(orphan));
    return state.playlists.back();
}

}  // namespace

DeviceState& adoptTracks(const std::string& libraryUid, const AdoptionInput& input,
                         FolderState& state) {
    DeviceState before = state.devices[libraryUid];
    before.libraryUid = libraryUid;
    DeviceState now = Adoption(input, state).rebuild(before);
    DeviceState& device = state.devices[libraryUid];
    device = std::move(now);
    return device;
}

void adoptPlaylists(const std::vector<DevicePlaylist>& playlists, FolderState& state,
                    DeviceState& device) {
    const std::unordered_map<std::int64_t, ContentHash> before = std::move(device.playlists);
    device.playlists.clear();
    for (const DevicePlaylist& row : playlists) {
        if (!row.fromHost || row.syncId == 0)
            continue;
        KnownPlaylist* known = state.playlistWithSyncId(row.syncId);
        if (known == nullptr && (known = freePlaylistNamed(row.name, state)) != nullptr) {
            known->syncId = row.syncId;
            if (row.globalId != 0)
                known->globalId = row.globalId;
            known->changed = true;
        }
        if (known == nullptr)
            known = &rememberOrphan(row, state);
        const auto sent = before.find(row.syncId);
        device.playlists[known->syncId] = sent == before.end() ? ContentHash{} : sent->second;
    }
}

}  // namespace host
