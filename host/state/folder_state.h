// Purpose: what the host remembers of one folder: its files with the identities that they were
// given, its playlists, and what each device has been sent.
// Thread: plain values; one thread at a time.
// Ownership: a FolderState owns all of it; positions in its vectors stay valid while it lives
// (nothing is ever erased from them in memory).
// Failure: none.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/scan/content_hash.h"
#include "host/scan/media_file.h"

namespace host {

// What owners change on devices, merged over all of them.
struct OwnerRating {
    std::uint32_t value = 0;  // 0 to 100
    std::int64_t changedMilliseconds = 0;

    bool operator==(const OwnerRating&) const = default;
};

struct OwnerBookmark {
    std::uint64_t positionMilliseconds = 0;
    std::int64_t changedMilliseconds = 0;

    bool operator==(const OwnerBookmark&) const = default;
};

// Absolute counts of one origin.
struct OwnerPlays {
    std::uint64_t plays = 0;
    std::uint64_t skips = 0;
    std::int64_t lastPlayedMilliseconds = 0;
    std::int64_t lastSkippedMilliseconds = 0;

    bool operator==(const OwnerPlays&) const = default;
};

struct OwnerData {
    std::optional<OwnerRating> rating;
    std::optional<OwnerBookmark> bookmark;
    std::map<std::string, OwnerPlays> plays;  // by the origin's library uid

    bool empty() const { return !rating && !bookmark && plays.empty(); }
    bool operator==(const OwnerData&) const = default;
};

// Where a file stands in the folder now. Not kept: every run finds it anew.
enum class Presence : std::uint8_t {
    Missing,     // not there
    Present,     // there and readable
    Unreadable,  // there, but this run cannot read it; what was known of it holds
    Hidden,      // in a folder that this run could not look into
};

struct KnownFile {
    std::int64_t syncId = 0;                 // positive, random, never changes
    std::int64_t globalId = 0;               // likewise
    std::int64_t dateAdded = 0;              // seconds since 1970
    MediaFile media;                         // as last read; `media.contentHash` is not used
    std::optional<ContentHash> contentHash;  // of the bytes at `media.stamp`
    // The owner of a device removed it there: it is not sent again unless asked for.
    bool removedByOwner = false;
    // Found on a device, never in the folder: `media` holds only what the device lists.
    bool knownFromDeviceOnly = false;
    std::string failure;  // why it could not be sent last time; empty when it could
    OwnerData owner;

    Presence presence = Presence::Missing;
    bool changed = false;  // differs from what is kept
};

// A playlist of the folder, or one that the owner of a device made there.
struct KnownPlaylist {
    std::int64_t syncId = 0;
    std::int64_t globalId = 0;
    std::string path;  // relative to the folder, raw bytes; empty for an owner's
    std::string name;
    std::vector<std::int64_t> items;  // sync ids, in order
    std::int64_t changedMilliseconds = 0;
    bool removedByOwner = false;

    bool present = false;  // an owner's always is
    bool changed = false;
};

// What a device holds of a track, as far as the host knows.
struct SentTrack {
    ContentHash metadata{};              // fingerprint of the record that it was sent
    ContentHash recommendation{};        // fingerprint of its Kenning id and checksum
    ContentHash owner{};                 // fingerprint of what owners changed
    std::optional<ContentHash> content;  // of the file that it was told of
    bool delivered = false;              // the file was acknowledged
    // Found on the device and recognised: taken for current until records are sent. Not kept.
    bool assumedCurrent = false;

    bool operator==(const SentTrack&) const = default;
};

// What the last sync with a device could not do.
struct FailedItem {
    std::string path;  // below the folder, raw bytes
    std::string reason;
    std::string nextStep;  // what helps, in plain words

    bool operator==(const FailedItem&) const = default;
};

struct DeviceState {
    std::string libraryUid;
    std::string anchor;    // the last that this folder's host gave it; empty before the first
    ContentHash digest{};  // of the folder when it was last brought up to date
    std::unordered_map<std::int64_t, SentTrack> tracks;       // by sync id
    std::unordered_map<std::int64_t, ContentHash> playlists;  // fingerprints, by sync id
    std::vector<FailedItem> failed;
};

struct FolderState {
    std::string hostUid;              // of this folder as a library, random
    std::uint64_t anchorCounter = 0;  // of the last anchor made
    std::vector<KnownFile> files;
    std::vector<KnownPlaylist> playlists;
    std::map<std::string, DeviceState> devices;  // by library uid

    // Positions in `files`. `byPath` names those that are not Missing, or that were there last.
    std::unordered_map<std::string, std::size_t> byPath;
    std::unordered_map<std::int64_t, std::size_t> bySyncId;
    std::unordered_map<std::int64_t, std::size_t> byGlobalId;

    KnownFile& add(KnownFile file);
    KnownFile* fileAt(const std::string& path);
    KnownFile* fileWithSyncId(std::int64_t syncId);
    const KnownFile* fileWithSyncId(std::int64_t syncId) const;
    KnownFile* fileWithGlobalId(std::int64_t globalId);
    KnownPlaylist* playlistWithSyncId(std::int64_t syncId);
    KnownPlaylist* playlistWithGlobalId(std::int64_t globalId);
    // Gives a file another path and keeps the index right.
    void move(KnownFile& file, const std::string& path);
};

}  // namespace host
