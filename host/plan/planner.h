// Purpose: decides what a sync will do. The plan is made first, in full; a run then carries out
// exactly that, and a dry run prints it.
// Thread: any; functions of their arguments, without input or output.
// Failure: a plan that must not be carried out says so in `refusal`.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/plan/track_record.h"
#include "host/state/folder_state.h"

namespace host {

// Kept free on the device beyond what the plan needs, for its database and temporary files; on a
// small device a sixteenth of what is free.
inline constexpr std::uint64_t FreeSpaceReserve = 64u << 20;
// Without a limit of the user's own: from this many tracks on, at most half of them are removed.
inline constexpr std::size_t GuardedTrackCount = 10;

struct PlanOptions {
    bool remove = false;  // take off the device what the folder holds no more
    std::optional<std::size_t> maximumRemovals;  // the user's own limit
    bool reset = false;
    bool sendRemoved = false;  // also what owners removed on their devices
};

struct PlanDevice {
    std::string libraryUid;
    std::string anchor;
    std::uint64_t freeBytes = 0;
    // Asset types ("Music", ...) that it wants no files of now: its cloud library brings them.
    std::vector<std::string> disabledKinds = {};
};

struct PlanInput {
    const FolderState& state;
    std::span<const TrackMaterial> materials;  // parallel to state.files
    PlanDevice device;
    PlanOptions options;
    // The device saved changes of its owner in this session; only a sync acknowledges them.
    bool savedChanges = false;
    // Something else wants an import: a track that gets a sync id for its upload, say.
    bool importWanted = false;
};

struct PlanStep {
    enum class Action : std::uint8_t { Add, Update, Remove, Playlist };
    Action action = Action::Add;
    std::string path;         // below the folder, raw bytes; a playlist's name where it has no path
    std::uint64_t bytes = 0;  // of the file that travels; of a removal: that become free
    bool isPlaylist = false;  // of Remove
};

struct PlanRefusal {
    enum class Reason : std::uint8_t { DeleteGuard, NoSpace };
    Reason reason = Reason::DeleteGuard;
    std::string text;
};

// What a device is told of a track or playlist, by place in the state's vectors.
struct PlannedTrack {
    std::size_t file = 0;
    TrackFingerprints fingerprints;
};

struct PlannedPlaylist {
    std::size_t playlist = 0;
    ContentHash fingerprint{};
};

struct Plan {
    std::uint32_t syncType = 0;  // 0 nothing to import, 1 ordinary, 2 reset
    bool complete = false;       // what is not listed loses the host's claim
    bool everything = false;     // all records, not only the changed ones
    std::vector<PlanStep> steps;
    std::vector<PlannedTrack> tracks;
    std::vector<PlannedPlaylist> playlists;
    std::vector<std::size_t> removedTracks;     // places in state.files
    std::vector<std::size_t> removedPlaylists;  // places in state.playlists
    std::uint64_t bytesToSend = 0;
    std::uint64_t bytesFreed = 0;
    std::size_t unchanged = 0;              // tracks that the device has as they are
    std::size_t recommendationUpdates = 0;  // tracks of which only recommendation data changed
    std::vector<std::size_t> withheld;      // places of files that an owner removed on a device
    std::size_t keptThoughMissing = 0;  // on the device, in the folder no more, not asked to remove
    std::size_t disabled = 0;           // files of kinds that the device has disabled, not sent
    std::optional<PlanRefusal> refusal;

    std::size_t count(PlanStep::Action action) const;
};

Plan makePlan(const PlanInput& input);

// Whether a device with these disabled kinds is to be sent no file of that media type. Nothing of
// them is added, updated or sent; what is there stays, and goes only where --delete asks for it. A
// reset names what is there and sends it again, since its files would be lost.
bool isDisabled(std::uint32_t mediaType, const std::vector<std::string>& disabledKinds);
// Files of disabled kinds that wait in the folder.
std::size_t disabledFiles(const FolderState& state, const PlanDevice& device);

// The bookkeeping once a device has imported a plan's records.
void applyImportedPlan(const Plan& plan, const FolderState& state, DeviceState& device);

}  // namespace host
