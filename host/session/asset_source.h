// Purpose: where the bytes come from that a device asks for.
// Thread: an AssetSource is asked on the thread that reads ahead, one asset at a time.
// Failure: an asset that cannot be sent has its reason.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/scan/content_hash.h"

namespace host {

// The parts of an asset, as the protocol numbers them.
inline constexpr std::uint32_t AssetPartFile = 1;
inline constexpr std::uint32_t AssetPartArtwork = 2;
inline constexpr std::uint32_t AssetPartKenning = 4;

// An asset that the device waits for, or offers.
struct OutstandingAsset {
    std::string identifier;  // decimal
    std::uint32_t parts = 0;
    bool isDownload = true;
    bool deleteAfterUpload = false;
    std::string fileName;          // of an upload
    std::uint64_t resumeFrom = 0;  // bytes of the file that the device has already
};

struct AssetPart {
    enum class Kind : std::uint8_t { File, Artwork, ChapterArtwork, Kenning };
    Kind kind = Kind::File;
    std::string path;  // absolute; empty: `bytes` are sent
    std::string bytes;
    // Of a file with a path: what it must still have when it is opened and when it was read.
    std::int64_t size = 0;
    std::int64_t modifiedNanoseconds = -1;  // -1: not checked
    // What its bytes must hash to, where that is known before they are read.
    std::optional<ContentHash> contentHash;
    std::string extension;                  // of File
    std::string kenningId;                  // of Kenning
    std::uint64_t chapterMilliseconds = 0;  // of ChapterArtwork
};

struct AssetContent {
    std::vector<AssetPart> parts;  // in the order of sending, the file last
    std::string failure;           // why it cannot be sent; empty when it can
};

class AssetSource {
public:
    virtual ~AssetSource() = default;
    virtual AssetContent contentOf(const OutstandingAsset& asset) = 0;
};

}  // namespace host
