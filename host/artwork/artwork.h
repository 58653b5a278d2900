// Purpose: finds each track's picture, beside the file or inside, and makes of it what the device
// can show: checked, at most 1400 pixels wide or high and 10,485,760 bytes, JPEG or PNG.
// Thread: an ArtworkPreparer belongs to one thread.
// Ownership: the prepared images lie in the cache directory given; they stay until that is emptied.
// Failure: a picture that cannot be used has its reason in plain words; the track goes without.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "host/scan/media_file.h"
#include "host/scan/media_workers.h"
#include "host/scan/scanner.h"

namespace host {

// The most that the device takes; exactly this many bytes are accepted.
inline constexpr std::int64_t ArtworkSizeLimit = 10'485'760;
inline constexpr std::int32_t ArtworkMaximumPixels = 1400;  // of either side

// A place where a picture may be had.
struct ArtworkCandidate {
    enum class Source : std::uint8_t { Embedded, ImageFile, ChapterImage };
    Source source = Source::Embedded;
    FileStamp file;             // the media file, or the image beside it
    std::int32_t chapter = -1;  // of a chapter image: its place in MediaFile::chapters
    // Of the picture's bytes, where the scan has read them; absent for an image file.
    std::optional<ContentHash> hash;
};

// The images of a scan, by folder. Names are compared without regard to case; of several the JPEG
// is taken before the PNG before the WebP.
class FolderImages {
public:
    explicit FolderImages(const std::vector<FileStamp>& images);
    ~FolderImages();
    FolderImages(FolderImages&&) noexcept;
    FolderImages& operator=(FolderImages&&) noexcept;

    // "<the file's name>.jpg" beside it, or null.
    const FileStamp* imageOfFile(const MediaFile& file) const;
    // "cover", "folder", "front" or "<album>" in its folder, or null.
    const FileStamp* imageOfFolder(const MediaFile& file) const;

private:
    struct Index;
    const FileStamp* find(const MediaFile& file, const std::string& foldedStem) const;
    std::unique_ptr<Index> _index;
};

// A track's candidates, the best first: an image of the file's own name, the embedded cover, the
// folder's image.
std::vector<ArtworkCandidate> artworkCandidates(const MediaFile& file, const FolderImages& images);
// One per chapter that has a picture.
std::vector<ArtworkCandidate> chapterArtworkCandidates(const MediaFile& file);

struct PreparedArtwork {
    // Why there is none, in plain words; empty when there is one.
    std::string reason;
    ContentHash hash{};     // of the picture as it was found
    std::string token;      // 32 hexadecimal digits made of `hash`
    std::string path;       // absolute, of the prepared image in the cache
    std::string extension;  // "jpg" or "png"
    std::int64_t size = 0;  // bytes of the prepared image
    std::int32_t width = 0;
    std::int32_t height = 0;

    bool usable() const { return reason.empty(); }
};

// The token of a picture that belongs to one track alone: a track with chapters keeps a cover token
// of its own, which other chapter pictures or other starts change, for they come with the cover;
// and a video without a cover has one for the snapshot that the device takes.
std::string artworkTokenOfTrack(const ContentHash& picture, std::int64_t globalId,
                                std::span<const Chapter> chapters);
std::string artworkTokenOfSnapshot(std::int64_t globalId);

class ArtworkPreparer {
public:
    // `folder` is the scanned one, `cacheDirectory` is made if need be. What an earlier run
    // prepared or refused is known from there and not decoded again.
    ArtworkPreparer(std::string folder, std::string cacheDirectory, MediaWorkers& workers);
    // Writes the cache's index.
    ~ArtworkPreparer();
    ArtworkPreparer(const ArtworkPreparer&) = delete;
    ArtworkPreparer& operator=(const ArtworkPreparer&) = delete;

    // One answer per candidate, in order. Equal pictures are decoded once.
    platform::OptionalError prepare(std::span<const ArtworkCandidate> candidates,
                                    std::vector<PreparedArtwork>& prepared,
                                    const std::stop_token& stop = {});

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace host
