// The vocabulary of the records exchanged with the sync daemon: identifiers, the data class, asset
// types, variant options and store identities. Callable from any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/media_library.h"
#include "platform/sync_daemon.h"

// The one data class that the plug-in serves.
inline constexpr std::string_view KVDataClassMedia = "Media";

// Keys of an asset's variant options.
inline constexpr std::string_view KVVariantOptionAssetParts = "AssetParts";
inline constexpr std::string_view KVVariantOptionDimensions = "Dimensions";
inline constexpr std::string_view KVVariantOptionDeleteAfterUpload = "delete_after_upload";

// Bits of "AssetParts": what of a library entity a transfer carries.
inline constexpr std::uint64_t KVAssetPartFile = 1;
inline constexpr std::uint64_t KVAssetPartArtwork = 2;
inline constexpr std::uint64_t KVAssetPartKenning = 4;

// Types of artwork, as the library numbers them.
inline constexpr std::int64_t KVArtworkTypeTrack = 1;
inline constexpr std::int64_t KVArtworkTypeChapter = 3;

// The value of "AssetParts"; 0 when absent.
std::uint64_t KVAssetParts(const ORAsset& asset);

// A number in decimal, "%lld", without memory of its own.
class KVIdentifier {
public:
    explicit KVIdentifier(std::int64_t persistentID);
    // As long as this lives.
    std::string_view text() const { return {_digits.data(), _size}; }

private:
    std::array<char, 20> _digits;  // a sign and 19 digits
    std::size_t _size;
};

// The same text, to be kept.
std::string KVStringFromPersistentID(std::int64_t persistentID);
// The number that an identifier begins with; 0 when it begins with none.
std::int64_t KVPersistentIDFromString(const std::string& identifier);

// Asset types that more than one place names.
inline constexpr std::string_view KVAssetTypeMusic = "Music";
inline constexpr std::string_view KVAssetTypeMusicVideo = "MusicVideo";
// The asset type of a track's media-type bits; never empty.
std::string KVAssetTypeForMediaType(std::uint32_t mediaType);

// Never null; existsInLibrary is false when no track has the sync id.
std::shared_ptr<KV3Track> KVTrackWithSyncID(const std::shared_ptr<KV3Korvane>& library,
                                            std::int64_t syncID);

// The stored values that make a track's store identity, in the order in which they are read.
enum KVStoreColumn : std::size_t {
    KVStoreColumnPodcastExternalGUID,
    KVStoreColumnAccountID,
    KVStoreColumnItemID,
    KVStoreColumnFlavor,
    KVStoreColumnMatchedStatus,
    KVStoreColumnRedownloadedStatus,
    KVStoreColumnVeskaID,
    KVStoreColumnCount
};
using KVStoreValues = std::span<const platform::ValueView, KVStoreColumnCount>;

// Null when none of the values is present. The account's name comes from the library.
std::shared_ptr<ORStoreInfo> KVStoreInfoFromValues(KVStoreValues values, KV3Korvane& library);
