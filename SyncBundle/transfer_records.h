// The vocabulary of the records exchanged with the sync daemon: identifiers, the data class, asset
// types, variant options and store identities. Callable from any thread.
#pragma once

#include <cstdint>
#include <memory>
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

// The number in decimal, "%lld".
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

// The seven stored values that make a track's store identity, borrowed from the row they were read
// from.
struct KVStoreValues {
    platform::ValueView accountID;
    platform::ValueView itemID;
    platform::ValueView flavor;
    platform::ValueView matchedStatus;
    platform::ValueView redownloadedStatus;
    platform::ValueView veskaID;
    platform::ValueView podcastExternalGUID;

    bool anyPresent() const;
};

// From consecutive columns of a row: podcast GUID, account ID, item ID, flavor, matched status,
// redownloaded status, Veska ID.
KVStoreValues KVStoreValuesFromRow(KV3TrackRow row, std::size_t firstColumn);

// Null when none of the values is present. The account's name comes from the library.
std::shared_ptr<ORStoreInfo> KVStoreInfoFromValues(const KVStoreValues& values,
                                                   KV3Korvane& library);
