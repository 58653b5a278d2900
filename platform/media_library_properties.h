// Purpose: the names of the media library: track properties, comparison codes, predicates and
//   ordering terms, database properties, notifications, sources and media-type bits.
// Calling thread: any; everything here is a plain value.
// Callback thread: none.
// Ownership: a predicate owns its operands.
// Failure: none.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/values.h"

// The category of the library framework's log lines.
inline constexpr std::string_view KV3LogCategory = "com.vantor.Korvane";

// A property of a track. What each holds is in the comment; absent means null.
enum KV3TrackProperty : std::uint16_t {
    KV3TrackPropertyPersistentID,             // integer, never 0
    KV3TrackPropertySyncID,                   // integer, 0 when none, never null
    KV3TrackPropertyGlobalID,                 // integer: the recommendation id, null when none
    KV3TrackPropertyMediaType,                // integer: bits below
    KV3TrackPropertyTitle,                    // string
    KV3TrackPropertyArtist,                   // string
    KV3TrackPropertyAlbum,                    // string
    KV3TrackPropertyAlbumArtist,              // string
    KV3TrackPropertyAlbumArtistOrder,         // integer: place among all album artists
    KV3TrackPropertyAlbumOrder,               // integer: place among all albums
    KV3TrackPropertyDiscNumber,               // integer
    KV3TrackPropertyTrackNumber,              // integer
    KV3TrackPropertyTotalTime,                // integer: milliseconds
    KV3TrackPropertyTotalSize,                // integer: bytes of the media file
    KV3TrackPropertyIsRental,                 // integer: 0 or 1
    KV3TrackPropertyUserRating,               // integer: 0 to 100
    KV3TrackPropertyPlayCountUser,            // integer: sum over all devices
    KV3TrackPropertyBaseLocationID,           // integer, 0 when there is no file, never null
    KV3TrackPropertyFilePath,                 // string: absolute path of the file, null when none
    KV3TrackPropertyLocationFileName,         // string: name within the base location
    KV3TrackPropertyNeedsRestore,             // integer: 0 or 1, never null
    KV3TrackPropertyDownloadIdentifier,       // string, null when none; the number 0 means none
    KV3TrackPropertySyncArtworkToken,         // string: cover that the host sends
    KV3TrackPropertyChapterData,              // data: flattened table of contents
    KV3TrackPropertyKenningChecksum,          // integer: of the data held, null when none
    KV3TrackPropertyPendingKenningChecksum,   // integer: of the data to come
    KV3TrackPropertyPodcastExternalGUID,      // string
    KV3TrackPropertyStoreAccountID,           // integer, this and the next five null when none
    KV3TrackPropertyStoreItemID,              // integer
    KV3TrackPropertyStoreFlavor,              // string
    KV3TrackPropertyStoreMatchedStatus,       // integer
    KV3TrackPropertyStoreRedownloadedStatus,  // integer
    KV3TrackPropertyStoreVeskaID,             // integer: cloud-library id
    KV3TrackPropertyCloudArtworkToken,        // string: cover that a companion pulls
    KV3TrackPropertyStoreArtworkToken,        // string
    KV3TrackPropertyPurchaseHistoryArtworkToken,          // string
    KV3TrackPropertyMatchRedownloadParameters,            // string
    KV3TrackPropertyPurchaseHistoryID,                    // integer, 0 when none
    KV3TrackPropertyPurchaseHistoryToken,                 // integer, 0 when none
    KV3TrackPropertyPurchaseHistoryRedownloadParameters,  // string
    KV3TrackPropertyIsTemporaryCloudDownload,             // integer: 0 or 1
    KV3TrackPropertyIsTesselU,                            // integer: 0 or 1, from the media type
    KV3TrackPropertyCount_                                // not a property
};

// Bits of KV3TrackPropertyMediaType.
inline constexpr std::uint32_t KV3MediaTypeAudiobook = 0x2;
inline constexpr std::uint32_t KV3MediaTypePodcast = 0x4;
inline constexpr std::uint32_t KV3MediaTypeMusic = 0x8;
inline constexpr std::uint32_t KV3MediaTypeTesselU = 0x20;
inline constexpr std::uint32_t KV3MediaTypeVideoPodcast = 0x100;
inline constexpr std::uint32_t KV3MediaTypeTVEpisode = 0x200;
inline constexpr std::uint32_t KV3MediaTypeMusicVideo = 0x400;
inline constexpr std::uint32_t KV3MediaTypeMovie = 0x800;
inline constexpr std::uint32_t KV3MediaTypeTesselUVideo = 0x1000;
inline constexpr std::uint32_t KV3MediaTypeHomeVideo = 0x2000;

// Codes of a comparison; null compares as 0.
enum KV3Comparison : std::int32_t {
    KV3ComparisonEqual = 1,
    KV3ComparisonNotEqual = 2,
    KV3ComparisonGreater = 3,
    KV3ComparisonGreaterOrEqual = 4,
    KV3ComparisonLess = 5,
    KV3ComparisonLessOrEqual = 6,
    KV3ComparisonAnyBits = 10,
};

// A condition on tracks: one comparison, or all or any of several conditions.
struct KV3Predicate {
    enum class Kind : std::uint8_t { Comparison, All, Any };

    Kind kind = Kind::Comparison;
    KV3TrackProperty property = KV3TrackPropertyPersistentID;  // of a comparison
    std::int32_t comparison = KV3ComparisonEqual;              // of a comparison
    platform::Value value;                                     // of a comparison
    std::vector<KV3Predicate> operands;                        // of all and any

    bool operator==(const KV3Predicate&) const = default;
};

struct KV3ComparisonPredicate {
    // predicateWithProperty:equalToInt64:
    static KV3Predicate predicateWithPropertyEqualToInt64(KV3TrackProperty property,
                                                          std::int64_t value) {
        return {KV3Predicate::Kind::Comparison,
                property,
                KV3ComparisonEqual,
                platform::Value(value),
                {}};
    }
    // predicateWithProperty:equalToInteger:
    static KV3Predicate predicateWithPropertyEqualToInteger(KV3TrackProperty property,
                                                            std::int64_t value) {
        return predicateWithPropertyEqualToInt64(property, value);
    }
    // predicateWithProperty:value:comparison:
    static KV3Predicate predicateWithProperty(KV3TrackProperty property, platform::Value value,
                                              std::int32_t comparison) {
        return {KV3Predicate::Kind::Comparison, property, comparison, std::move(value), {}};
    }
};

struct KV3AllCompoundPredicate {
    static KV3Predicate predicateMatchingPredicates(std::vector<KV3Predicate> predicates) {
        return {
            KV3Predicate::Kind::All, KV3TrackPropertyPersistentID, 0, {}, std::move(predicates)};
    }
};

struct KV3AnyCompoundPredicate {
    static KV3Predicate predicateMatchingPredicates(std::vector<KV3Predicate> predicates) {
        return {
            KV3Predicate::Kind::Any, KV3TrackPropertyPersistentID, 0, {}, std::move(predicates)};
    }
};

// Ascending by a property.
struct KV3OrderingTerm {
    KV3TrackProperty property = KV3TrackPropertyPersistentID;

    static KV3OrderingTerm orderingTermWithProperty(KV3TrackProperty property) {
        return {property};
    }
    bool operator==(const KV3OrderingTerm&) const = default;
};

// Posted between processes: background tasks of the library hold from the first to the second.
inline constexpr std::string_view KV3KorvaneBackgroundTasksShouldSuppressChangesNotification =
    "com.vantor.korvane.backgroundtasks.suppresschanges";
inline constexpr std::string_view
    KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification =
        "com.vantor.korvane.backgroundtasks.stopsuppressingchanges";
// Posted within the process.
inline constexpr std::string_view KV3KorvaneContentsDidChangeNotification =
    "KV3KorvaneContentsDidChangeNotification";
inline constexpr std::string_view KV3KorvaneDisplayValuesDidChangeNotification =
    "KV3KorvaneDisplayValuesDidChangeNotification";

// Keys of an import's options.
inline constexpr std::string_view KVImportOperationOptionIsResetSyncKey =
    "KVImportOperationOptionIsResetSyncKey";
inline constexpr std::string_view KVImportOperationOptionIsVeskaEnabledKey =
    "KVImportOperationOptionIsVeskaEnabledKey";
inline constexpr std::string_view KVImportOperationOptionSyncAnchorKey =
    "KVImportOperationOptionSyncAnchorKey";

// Kinds of import, and the sources that entries are claimed under.
inline constexpr std::int64_t KV3SourceSync = 2;
inline constexpr std::int64_t KV3SourceHostData = 6;
