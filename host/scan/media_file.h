// Purpose: what the host knows of one media file of a folder.
// Thread: any; plain values.
// Failure: a file that could not be read carries the reason in plain words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/scan/content_hash.h"

namespace host {

// Where a file lies and what tells whether it changed. Names are bytes as the file system gave
// them: they may hold newlines and need be no UTF-8 (see host/scan/file_names.h for comparing).
struct FileStamp {
    std::string path;  // relative to the folder, '/' between parts, never with a leading '/'
    std::int64_t size = 0;
    std::int64_t modifiedNanoseconds = 0;  // since 1970-01-01T00:00:00Z
    std::uint64_t inode = 0;               // 0 when not known
    std::uint64_t device = 0;              // of the file system; may change at a remount

    bool operator==(const FileStamp&) const = default;
};

// The kind that a tag of the file names, by the numbers of the "media_type" tag.
enum class TaggedKind : std::int32_t {
    None = -1,
    Music = 1,
    Audiobook = 2,
    MusicVideo = 6,
    Movie = 9,
    TVEpisode = 10,
    Podcast = 21,
    TesselU = 23,
};

// Text is valid UTF-8 of bounded length (4 KiB; comment and description 64 KiB), "" when absent;
// numbers are 0 when absent.
struct Tags {
    std::string title;  // never empty in a scan's result: the file's name stands in
    std::string artist;
    std::string album;
    std::string albumArtist;
    std::string composer;
    std::string genre;
    std::string comment;
    std::string grouping;
    std::string description;
    std::string sortTitle;
    std::string sortArtist;
    std::string sortAlbum;
    std::string sortAlbumArtist;
    std::string sortComposer;
    std::string sortShow;
    std::string show;
    std::string episodeId;
    std::string podcastFeed;  // address of the feed
    std::string podcastGuid;
    std::int32_t year = 0;
    std::int32_t discNumber = 0;
    std::int32_t discCount = 0;
    std::int32_t trackNumber = 0;
    std::int32_t trackCount = 0;
    std::int32_t season = 0;
    std::int32_t episode = 0;
    std::int32_t beatsPerMinute = 0;
    std::optional<std::int64_t> releaseDate;  // seconds since 1970-01-01T00:00:00Z
    bool compilation = false;
    bool podcast = false;  // the file is marked as an episode
    bool rental = false;
    TaggedKind kind = TaggedKind::None;

    bool operator==(const Tags&) const = default;
};

struct Chapter {
    std::int64_t startMilliseconds = 0;
    std::string title;
    // The chapter's picture as it stands in the file; fetch it with ArtworkPreparer.
    std::optional<ContentHash> picture;

    bool operator==(const Chapter&) const = default;
};

struct EmbeddedArtwork {
    ContentHash hash{};
    std::int64_t size = 0;  // bytes

    bool operator==(const EmbeddedArtwork&) const = default;
};

struct MediaFile {
    FileStamp stamp;
    // Why it cannot be synced, in plain words; empty when it can. Then only `stamp` has meaning.
    std::string reason;
    // The reason may pass (no memory, a time limit, a failing disk): the next scan tries again
    // although the file has not changed.
    bool readAgain = false;

    Tags tags;                       // with the rule file's overrides
    std::optional<Tags> tagsInFile;  // what the file says, present only where a rule overrides it
    std::uint32_t mediaType = 0;     // one of the KV3MediaType bits
    bool isRental = false;

    std::int64_t durationMilliseconds = 0;  // 0 when the file does not tell
    std::int64_t bitRate = 0;               // bits a second, 0 when not known
    std::int32_t sampleRate = 0;            // hertz
    std::int32_t channels = 0;
    std::int32_t width = 0;  // pixels, of the film; 0 for sound
    std::int32_t height = 0;
    bool hasVideo = false;   // moving pictures, not a cover
    std::string container;   // "mp3", "mp4", "flac", "ogg", "wav", "aac", "matroska"
    std::string audioCodec;  // as FFmpeg names it, "" when there is no sound
    std::string videoCodec;
    std::vector<Chapter> chapters;  // by rising start; at most 10,000
    std::optional<EmbeddedArtwork> artwork;
    // Set by whoever reads the whole file (sending it does); a scan never does.
    std::optional<ContentHash> contentHash;

    bool readable() const { return reason.empty(); }
    bool operator==(const MediaFile&) const = default;
};

}  // namespace host
