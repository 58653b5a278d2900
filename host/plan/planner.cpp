#include "host/plan/planner.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "platform/media_library_properties.h"

namespace host {

namespace {

class Planner {
public:
    explicit Planner(const PlanInput& input) : _input(input), _state(input.state) {
        const auto found = _state.devices.find(input.device.libraryUid);
        if (found != _state.devices.end())
            _device = &found->second;
    }

    Plan make() {
        decideExtent();
        for (std::size_t i = 0; i < _state.files.size(); ++i)
            planFile(i);
        for (std::size_t i = 0; i < _state.playlists.size(); ++i)
            planPlaylist(i);
        decideSyncType();
        guardRemovals();
        guardReset();
        guardSpace();
        return std::move(_plan);
    }

private:
    using Action = PlanStep::Action;

    void decideExtent() {
        const bool anchorsAgree = _device != nullptr && !_device->anchor.empty() &&
                                  _device->anchor == _input.device.anchor;
        _plan.complete = _input.options.reset;
        _plan.everything = _input.options.reset || !anchorsAgree;
    }

    const SentTrack* sentTrack(const KnownFile& file) const {
        if (_device == nullptr)
            return nullptr;
        const auto found = _device->tracks.find(file.syncId);
        return found == _device->tracks.end() ? nullptr : &found->second;
    }

    void planFile(std::size_t place) {
        const KnownFile& file = _state.files[place];
        const SentTrack* sent = sentTrack(file);
        if (file.removedByOwner && !_input.options.sendRemoved) {
            if (file.presence == Presence::Present)
                _plan.withheld.push_back(place);
            return;
        }
        switch (file.presence) {
            case Presence::Present:
                _present += sent != nullptr;
                planPresentFile(place, file, sent);
                break;
            case Presence::Missing:
                if (sent != nullptr)
                    planMissingFile(place, file);
                break;
            case Presence::Unreadable:
            case Presence::Hidden:
                if (sent != nullptr)
                    keep(place, file);
                break;
        }
    }

    void planPresentFile(std::size_t place, const KnownFile& file, const SentTrack* sent) {
        if (!_plan.complete && isDisabled(file.media.mediaType, _input.device.disabledKinds)) {
            _plan.disabled += sent == nullptr || !sent->delivered;
            _plan.unchanged += sent != nullptr && sent->delivered;
            return;
        }
        const TrackFingerprints now = trackFingerprints(file, _input.materials[place]);
        const auto size = static_cast<std::uint64_t>(file.media.stamp.size);
        if (sent == nullptr) {
            step(Action::Add, file.media.stamp.path, size);
            _plan.tracks.push_back({place, now});
            return;
        }
        const bool newContents =
            sent->content && file.contentHash && *sent->content != *file.contentHash;
        const bool newMetadata = !sent->assumedCurrent && sent->metadata != now.metadata;
        const bool newRecommendation =
            !sent->assumedCurrent && sent->recommendation != now.recommendation;
        const bool newOwnerData = sent->owner != now.owner;
        if (newContents || newMetadata)
            step(Action::Update, file.media.stamp.path, newContents || !sent->delivered ? size : 0);
        else if (!sent->delivered)
            step(Action::Add, file.media.stamp.path, size);
        else
            ++_plan.unchanged;
        if (newRecommendation && !newMetadata && !newContents)
            ++_plan.recommendationUpdates;
        // A device may have given up a track whose file failed, so such a one is named again.
        if (_plan.everything || newContents || newMetadata || newRecommendation || newOwnerData ||
            !sent->delivered)
            _plan.tracks.push_back({place, now});
    }

    void planMissingFile(std::size_t place, const KnownFile& file) {
        if (!_input.options.remove) {
            ++_plan.keptThoughMissing;
            keep(place, file);
            return;
        }
        _plan.removedTracks.push_back(place);
        _plan.bytesFreed += static_cast<std::uint64_t>(file.media.stamp.size);
        _plan.steps.push_back({Action::Remove, file.media.stamp.path,
                               static_cast<std::uint64_t>(file.media.stamp.size), false});
    }

    // Stays on the device as it is; named again where all that is not named would go.
    void keep(std::size_t place, const KnownFile& file) {
        ++_plan.unchanged;
        if (!_plan.complete)
            return;
        if (file.knownFromDeviceOnly)
            ++_unnameable;
        _plan.tracks.push_back({place, trackFingerprints(file, _input.materials[place])});
    }

    void planPlaylist(std::size_t place) {
        const KnownPlaylist& playlist = _state.playlists[place];
        if (playlist.removedByOwner && !_input.options.sendRemoved)
            return;
        const ContentHash* sent = nullptr;
        if (_device != nullptr) {
            const auto found = _device->playlists.find(playlist.syncId);
            sent = found == _device->playlists.end() ? nullptr : &found->second;
        }
        if (!playlist.present && sent == nullptr)
            return;
        if (!playlist.present && _input.options.remove) {
            _plan.removedPlaylists.push_back(place);
            _plan.steps.push_back({Action::Remove, nameOf(playlist), 0, true});
            return;
        }
        const ContentHash now = playlistFingerprint(playlist);
        const bool differs = playlist.present && (sent == nullptr || *sent != now);
        if (differs)
            _plan.steps.push_back({Action::Playlist, nameOf(playlist), 0, true});
        if (differs || _plan.complete || (_plan.everything && playlist.present))
            _plan.playlists.push_back({place, now});
    }

    static const std::string& nameOf(const KnownPlaylist& playlist) {
        return playlist.path.empty() ? playlist.name : playlist.path;
    }

    void step(Action action, const std::string& path, std::uint64_t bytes) {
        _plan.steps.push_back({action, path, bytes, false});
        _plan.bytesToSend += bytes;
    }

    void decideSyncType() {
        const bool somethingToImport = _plan.everything || !_plan.tracks.empty() ||
                                       !_plan.playlists.empty() || !_plan.removedTracks.empty() ||
                                       !_plan.removedPlaylists.empty() || _input.savedChanges ||
                                       _input.importWanted;
        _plan.syncType = _input.options.reset ? 2 : somethingToImport ? 1 : 0;
    }

    void refuse(PlanRefusal::Reason reason, std::string text) {
        if (!_plan.refusal)
            _plan.refusal = PlanRefusal{reason, std::move(text)};
    }

    void guardRemovals() {
        const std::size_t removals = _plan.removedTracks.size() + _plan.removedPlaylists.size();
        if (removals == 0)
            return;
        const bool folderIsEmpty = std::ranges::none_of(
            _state.files, [](const KnownFile& file) { return file.presence == Presence::Present; });
        if (folderIsEmpty)
            return refuse(PlanRefusal::Reason::DeleteGuard,
                          "the folder holds no media file, so nothing is removed from the device; "
                          "is it mounted?");
        if (const auto& limit = _input.options.maximumRemovals) {
            if (removals > *limit)
                refuse(PlanRefusal::Reason::DeleteGuard,
                       fmt::format("{} would be removed from the device, more than --max-delete {} "
                                   "allows; see them with --dry-run",
                                   removals, *limit));
            return;
        }
        if (!_plan.removedTracks.empty() && _present == 0)
            return refuse(PlanRefusal::Reason::DeleteGuard,
                          "nothing that the device has from this host is in the folder any more; "
                          "if it is the right folder, say how many may go with --max-delete");
        const std::size_t tracks = _device == nullptr ? 0 : _device->tracks.size();
        if (tracks > GuardedTrackCount && _plan.removedTracks.size() * 2 > tracks)
            refuse(PlanRefusal::Reason::DeleteGuard,
                   fmt::format("{} of the device's {} tracks would be removed, more than half; if "
                               "that is meant, allow it with --max-delete {}",
                               _plan.removedTracks.size(), tracks, removals));
    }

    void guardReset() {
        if (_plan.complete && _unnameable > 0)
            refuse(PlanRefusal::Reason::DeleteGuard,
                   fmt::format("a reset would remove {} tracks that only the device knows; to let "
                               "them go add --delete",
                               _unnameable));
    }

    void guardSpace() {
        const std::uint64_t available = _input.device.freeBytes + _plan.bytesFreed;
        const std::uint64_t reserve = std::min(FreeSpaceReserve, available / 16);
        if (_plan.bytesToSend > 0 && _plan.bytesToSend + reserve > available)
            refuse(PlanRefusal::Reason::NoSpace,
                   fmt::format("the device has too little space: {} bytes are to be sent and {} "
                               "kept in reserve, {} are free",
                               _plan.bytesToSend, reserve, available));
    }

    const PlanInput& _input;
    const FolderState& _state;
    const DeviceState* _device = nullptr;  // null: nothing is known of this device
    Plan _plan;
    std::size_t _present = 0;     // tracks of the device that are in the folder
    std::size_t _unnameable = 0;  // of a reset: kept tracks whose record would lack most of it
};

}  // namespace

std::size_t Plan::count(PlanStep::Action action) const {
    return static_cast<std::size_t>(std::ranges::count(steps, action, &PlanStep::action));
}

bool isDisabled(std::uint32_t mediaType, const std::vector<std::string>& disabledKinds) {
    struct Kind {
        std::uint32_t bit;
        std::string_view name;
    };
    static constexpr Kind Kinds[] = {
        {KV3MediaTypeMusic, "Music"},
        {KV3MediaTypeMusicVideo, "MusicVideo"},
        {KV3MediaTypeMovie, "Movie"},
        {KV3MediaTypeTVEpisode, "TVEpisode"},
        {KV3MediaTypePodcast, "Podcast"},
        {KV3MediaTypeVideoPodcast, "VideoPodcast"},
        {KV3MediaTypeAudiobook, "Audiobook"},
        {KV3MediaTypeTesselU, "TesselU"},
        {KV3MediaTypeTesselUVideo, "TesselUVideo"},
        {KV3MediaTypeHomeVideo, "HomeVideo"},
    };
    return std::ranges::any_of(Kinds, [&](const Kind& kind) {
        return kind.bit == mediaType &&
               std::ranges::find(disabledKinds, kind.name) != disabledKinds.end();
    });
}

std::size_t disabledFiles(const FolderState& state, const PlanDevice& device) {
    const auto known = state.devices.find(device.libraryUid);
    return static_cast<std::size_t>(std::ranges::count_if(state.files, [&](const KnownFile& file) {
        if (file.presence != Presence::Present ||
            !isDisabled(file.media.mediaType, device.disabledKinds))
            return false;
        if (known == state.devices.end())
            return true;
        const auto sent = known->second.tracks.find(file.syncId);
        return sent == known->second.tracks.end() || !sent->second.delivered;
    }));
}

Plan makePlan(const PlanInput& input) {
    return Planner(input).make();
}

void applyImportedPlan(const Plan& plan, const FolderState& state, DeviceState& device) {
    for (const PlannedTrack& planned : plan.tracks) {
        const KnownFile& file = state.files[planned.file];
        SentTrack& sent = device.tracks[file.syncId];
        if (sent.content && file.contentHash && *sent.content != *file.contentHash)
            sent.delivered = false;
        if (file.contentHash)
            sent.content = file.contentHash;
        sent.metadata = planned.fingerprints.metadata;
        sent.recommendation = planned.fingerprints.recommendation;
        sent.owner = planned.fingerprints.owner;
        sent.assumedCurrent = false;
    }
    for (const std::size_t place : plan.removedTracks)
        device.tracks.erase(state.files[place].syncId);
    for (const PlannedPlaylist& planned : plan.playlists)
        device.playlists[state.playlists[planned.playlist].syncId] = planned.fingerprint;
    for (const std::size_t place : plan.removedPlaylists)
        device.playlists.erase(state.playlists[place].syncId);
}

}  // namespace host
