#include "host/plan/owner_changes.h"

#include <fmt/format.h>
#include <google/protobuf/arena.h>

#include <algorithm>
#include <span>

#include "common/qorx/reader.h"
#include "host/plan/track_record.h"
#include "host/scan/file_names.h"

namespace host {

namespace {

std::string starsText(std::uint32_t rating) {
    const std::uint32_t stars = (rating + 10) / 20;
    if (rating == 0)
        return "none";
    return fmt::format("{} star{}", stars, stars == 1 ? "" : "s");
}

std::string nameOf(const KnownFile& file) {
    return "\"" + displayText(file.media.tags.title) + "\"";
}

std::uint64_t totalPlays(const OwnerData& owner) {
    std::uint64_t total = 0;
    for (const auto& [origin, plays] : owner.plays)
        total += plays.plays;
    return total;
}

// True when `theirs` is the later one, and of equal times the larger.
template <typename Changed>
bool isNewer(const Changed& theirs, const std::optional<Changed>& ours, std::uint64_t theirValue,
             std::uint64_t ourValue) {
    if (!ours)
        return true;
    if (theirs.changedMilliseconds != ours->changedMilliseconds)
        return theirs.changedMilliseconds > ours->changedMilliseconds;
    return theirValue > ourValue;
}

OwnerData ownerDataOf(const qorx::Track& track) {
    OwnerData owner;
    if (track.has_rating())
        owner.rating =
            OwnerRating{std::min(track.rating().value(), 100u), track.rating().changed_ms()};
    if (track.has_bookmark())
        owner.bookmark =
            OwnerBookmark{track.bookmark().position_ms(), track.bookmark().changed_ms()};
    for (const qorx::PlayStatistics& plays : track.plays())
        owner.plays[plays.origin_uid()] = {plays.play_count(), plays.skip_count(),
                                           plays.last_played_ms(), plays.last_skipped_ms()};
    return owner;
}

void mergePlays(const OwnerPlays& theirs, OwnerPlays& ours) {
    ours.plays = std::max(ours.plays, theirs.plays);
    ours.skips = std::max(ours.skips, theirs.skips);
    ours.lastPlayedMilliseconds =
        std::max(ours.lastPlayedMilliseconds, theirs.lastPlayedMilliseconds);
    ours.lastSkippedMilliseconds =
        std::max(ours.lastSkippedMilliseconds, theirs.lastSkippedMilliseconds);
}

OwnerData merged(OwnerData ours, const OwnerData& theirs) {
    if (theirs.rating && isNewer(*theirs.rating, ours.rating, theirs.rating->value,
                                 ours.rating ? ours.rating->value : 0))
        ours.rating = theirs.rating;
    if (theirs.bookmark &&
        isNewer(*theirs.bookmark, ours.bookmark, theirs.bookmark->positionMilliseconds,
                ours.bookmark ? ours.bookmark->positionMilliseconds : 0))
        ours.bookmark = theirs.bookmark;
    for (const auto& [origin, plays] : theirs.plays)
        mergePlays(plays, ours.plays[origin]);
    return ours;
}

class Merge {
public:
    Merge(FolderState& state, DeviceState& device, IdentitySource& ids, OwnerChanges& changes)
        : _state(state), _device(device), _ids(ids), _changes(changes) {}

    void take(const qorx::Record& record) {
        ++_changes.records;
        if (record.has_track())
            takeTrack(record.track());
        else if (record.has_playlist())
            takePlaylist(record.playlist());
        else if (record.has_deletion())
            takeDeletion(record.deletion());
    }

private:
    KnownFile* fileOf(std::int64_t syncId, std::int64_t globalId) {
        KnownFile* file = syncId == 0 ? nullptr : _state.fileWithSyncId(syncId);
        if (file == nullptr && globalId != 0)
            file = _state.fileWithGlobalId(globalId);
        return file;
    }

    void takeTrack(const qorx::Track& track) {
        KnownFile* file = fileOf(track.sync_id(), track.global_id());
        if (file == nullptr)
            return;
        const OwnerData theirs = ownerDataOf(track);
        const OwnerData now = merged(file->owner, theirs);
        const auto sent = _device.tracks.find(file->syncId);
        if (sent != _device.tracks.end() && now == theirs)
            sent->second.owner = ownerFingerprint(now);
        if (now == file->owner)
            return;
        show(*file, file->owner, now);
        file->owner = now;
        file->changed = true;
    }

    void show(const KnownFile& file, const OwnerData& before, const OwnerData& now) {
        if (now.rating != before.rating) {
            const std::uint32_t was = before.rating ? before.rating->value : 0;
            const std::uint32_t is = now.rating ? now.rating->value : 0;
            if (was != is)
                tell("rating of {} is now {}", nameOf(file), starsText(is));
        }
        const std::uint64_t plays = totalPlays(now);
        if (plays != totalPlays(before))
            tell("{} was played {} time{} in all", nameOf(file), plays, plays == 1 ? "" : "s");
        if (now.bookmark != before.bookmark && now.bookmark)
            tell("{} was left at {} s", nameOf(file), now.bookmark->positionMilliseconds / 1000);
    }

    void takeDeletion(const qorx::Deletion& deletion) {
        if (deletion.entity() == qorx::Deletion::PLAYLIST)
            return takePlaylistDeletion(deletion);
        KnownFile* file = fileOf(deletion.sync_id(), deletion.global_id());
        if (file == nullptr)
            return;
        _device.tracks.erase(file->syncId);
        if (file->removedByOwner)
            return;
        file->removedByOwner = true;
        file->changed = true;
        tell(
            "{} was removed there; the folder keeps it, and it is not sent again (unless with "
            "--send-removed)",
            nameOf(*file));
    }

    void takePlaylistDeletion(const qorx::Deletion& deletion) {
        KnownPlaylist* playlist = _state.playlistWithSyncId(deletion.sync_id());
        if (playlist == nullptr && deletion.global_id() != 0)
            playlist = _state.playlistWithGlobalId(deletion.global_id());
        if (playlist == nullptr)
            return;
        _device.playlists.erase(playlist->syncId);
        if (playlist->removedByOwner)
            return;
        playlist->removedByOwner = true;
        playlist->changed = true;
        tell("playlist \"{}\" was removed there", displayText(playlist->name));
    }

    void takePlaylist(const qorx::Playlist& record) {
        KnownPlaylist* known =
            record.sync_id() == 0 ? nullptr : _state.playlistWithSyncId(record.sync_id());
        if (known == nullptr && record.global_id() != 0)
            known = _state.playlistWithGlobalId(record.global_id());
        // A change of one of the folder's playlists is shown; the folder's file stays as it is, and
        // the device's form stays there until that file changes.
        if (known != nullptr && !known->path.empty())
            return tell("playlist \"{}\" was changed there; the folder's file stays as it is",
                        displayText(record.name()));
        if (record.kind() != qorx::Playlist::PLAIN || record.built_in_kind() != 0)
            return;
        KnownPlaylist now = known != nullptr ? *known : KnownPlaylist();
        now.name = displayText(record.name());
        now.items.clear();
        for (const qorx::Playlist::Item& item : record.items())
            if (const KnownFile* file = fileOf(item.sync_id(), item.global_id()))
                now.items.push_back(file->syncId);
        now.changedMilliseconds = record.changed_ms();
        now.present = true;
        now.changed = true;
        if (known == nullptr) {
            now.syncId = record.sync_id() != 0 ? record.sync_id() : _ids.next();
            now.globalId = record.global_id() != 0 ? record.global_id() : _ids.next();
            _state.playlists.push_back(std::move(now));
            known = &_state.playlists.back();
        } else if (now.name == known->name && now.items == known->items) {
            return;
        } else {
            *known = std::move(now);
        }
        // The device has it already, so it is sent to others only.
        _device.playlists[known->syncId] = playlistFingerprint(*known);
        tell("playlist \"{}\" has {} tracks", known->name, known->items.size());
    }

    template <typename... Values>
    void tell(fmt::format_string<Values...> text, Values&&... values) {
        _changes.shown.push_back(fmt::format(text, std::forward<Values>(values)...));
    }

    FolderState& _state;
    DeviceState& _device;
    IdentitySource& _ids;
    OwnerChanges& _changes;
};

}  // namespace

platform::OptionalError mergeOwnerChanges(std::string_view stream, FolderState& state,
                                          DeviceState& device, IdentitySource& ids,
                                          OwnerChanges& changes) {
    if (stream.empty())
        return std::nullopt;
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(stream.data()), stream.size());
    common::QorxReader check(bytes);
    platform::OptionalError error;
    if (!common::verifyQorx(check, &error))
        return error;
    common::QorxReader reader(bytes);
    Merge merge(state, device, ids, changes);
    google::protobuf::Arena arena;
    while (const qorx::Record* record = reader.next(arena)) {
        merge.take(*record);
        arena.Reset();
    }
    return reader.error();
}

}  // namespace host
