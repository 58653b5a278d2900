// Purpose: the original pictures on disk, each under its token.
// Calling thread: any.
// Failure: platform errors; a token can be anything, since hosts make it.
#pragma once

#include <string>

#include "platform/errors.h"

namespace device {
class RootedFileSystem;
}

namespace korvane {

inline constexpr char ArtworkOriginalsDirectory[] =
    "/var/mobile/Media/Tessel_Control/Artwork/Originals/";

// Two folders of a hash of the token and the hash itself, "3f/a2/3fa2...": whatever a token holds,
// the path stays below the artwork directory, and no folder gets large. "" for an empty token.
std::string artworkRelativePath(const std::string& token);
// The token of a chapter's picture; the start is taken in whole milliseconds.
std::string chapterArtworkToken(std::int64_t persistentID, double seconds);
// Where that picture lies, below the artwork directory.
std::string chapterPicturePath(std::int64_t persistentID, std::uint64_t milliseconds);

class ArtworkStore {
public:
    explicit ArtworkStore(device::RootedFileSystem& files) : _files(files) {}

    // Where the original of a relative path lies on the device.
    static std::string originalPath(const std::string& relativePath);
    // False for "". One look at the disk.
    bool hasOriginal(const std::string& relativePath) const;
    // Moves a received file to its place, where it is after a power cut too. The file stays where
    // it is when that fails.
    platform::OptionalError takeFile(const std::string& from, const std::string& relativePath);
    // Writes a picture made here to its place.
    platform::OptionalError write(const platform::Data& picture, const std::string& relativePath);

private:
    platform::OptionalError makeDirectory(const std::string& relativePath);

    device::RootedFileSystem& _files;
};

}  // namespace korvane
