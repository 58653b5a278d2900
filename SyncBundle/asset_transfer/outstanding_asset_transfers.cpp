#include <array>
#include <functional>
#include <unordered_set>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/log.h"
#include "SyncBundle/transfer_records.h"

namespace {

constexpr std::string_view operation = "outstandingAssetTransfersWithDownloadManager:";

// The properties asked for of each track, and where each stands in its row. The download identifier
// is asked for and not used.
enum Column : std::size_t {
    ColumnArtworkToken,
    ColumnBaseLocationID,
    ColumnDownloadIdentifier,
    ColumnMediaType,
    ColumnGlobalID,
    ColumnKenningChecksum,
    ColumnPendingKenningChecksum,
    ColumnPodcastExternalGUID,
    ColumnStoreAccountID,
    ColumnStoreItemID,
    ColumnStoreFlavor,
    ColumnStoreMatchedStatus,
    ColumnStoreRedownloadedStatus,
    ColumnStoreVeskaID,
    ColumnSyncID,
    ColumnNeedsRestore,
    ColumnIsRental,
    ColumnTitle,
    ColumnCount
};
constexpr std::array<KV3TrackProperty, ColumnCount> trackProperties{
    KV3TrackPropertySyncArtworkToken,
    KV3TrackPropertyBaseLocationID,
    KV3TrackPropertyDownloadIdentifier,
    KV3TrackPropertyMediaType,
    KV3TrackPropertyGlobalID,
    KV3TrackPropertyKenningChecksum,
    KV3TrackPropertyPendingKenningChecksum,
    KV3TrackPropertyPodcastExternalGUID,
    KV3TrackPropertyStoreAccountID,
    KV3TrackPropertyStoreItemID,
    KV3TrackPropertyStoreFlavor,
    KV3TrackPropertyStoreMatchedStatus,
    KV3TrackPropertyStoreRedownloadedStatus,
    KV3TrackPropertyStoreVeskaID,
    KV3TrackPropertySyncID,
    KV3TrackPropertyNeedsRestore,
    KV3TrackPropertyIsRental,
    KV3TrackPropertyTitle,
};

constexpr std::uint32_t kenningMediaTypes = KV3MediaTypeMusic | KV3MediaTypeMusicVideo;

using Assets = std::vector<std::shared_ptr<ORAsset>>;

// The kinds that transfers are grouped by, in the order in which the host sends them.
enum Kind : std::size_t {
    KindRental,
    KindHomeVideo,
    KindMusic,
    KindMovie,
    KindTVEpisode,
    KindPodcast,
    KindTesselU,
    KindAudiobook,
    KindCount
};

// Music videos and video podcasts go with the music, whatever their asset type says.
Kind kindOfTrack(bool isRental, std::uint32_t mediaType) {
    if (isRental)
        return KindRental;
    if (mediaType & KV3MediaTypeMusic)
        return KindMusic;
    if (mediaType & KV3MediaTypeMovie)
        return KindMovie;
    if (mediaType & KV3MediaTypeHomeVideo)
        return KindHomeVideo;
    if (mediaType & KV3MediaTypeTVEpisode)
        return KindTVEpisode;
    if (mediaType & KV3MediaTypePodcast)
        return KindPodcast;
    if (mediaType & (KV3MediaTypeTesselU | KV3MediaTypeTesselUVideo))
        return KindTesselU;
    if (mediaType & KV3MediaTypeAudiobook)
        return KindAudiobook;
    return KindMusic;
}

// Tracks of the host that the cloud library does not hold, and every track to be restored.
KV3Predicate outstandingTracks() {
    return KV3AnyCompoundPredicate::predicateMatchingPredicates({
        KV3AllCompoundPredicate::predicateMatchingPredicates({
            KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(KV3TrackPropertyStoreVeskaID,
                                                                      0),
            KV3ComparisonPredicate::predicateWithProperty(KV3TrackPropertySyncID, 0,
                                                          KV3ComparisonNotEqual),
        }),
        KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(KV3TrackPropertyNeedsRestore, 1),
    });
}

std::vector<KV3OrderingTerm> transferOrder() {
    return {
        KV3OrderingTerm::orderingTermWithProperty(KV3TrackPropertyAlbumArtistOrder),
        KV3OrderingTerm::orderingTermWithProperty(KV3TrackPropertyAlbumOrder),
        KV3OrderingTerm::orderingTermWithProperty(KV3TrackPropertyDiscNumber),
        KV3OrderingTerm::orderingTermWithProperty(KV3TrackPropertyTrackNumber),
    };
}

struct StringHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const {
        return std::hash<std::string_view>{}(text);
    }
};

// Goes through the tracks of one call and collects what each still lacks.
class TransferCollector {
public:
    using IsPendingUpload = std::function<bool(const std::string& identifier)>;
    // The manager's persistent identifier of the download of an item, or absent.
    using ExistingDownload =
        std::function<std::optional<std::int64_t>(const std::string& identifier)>;

    TransferCollector(KV3Korvane& library, std::int64_t cloudAssetBaseLocationID,
                      bool hasCloudKenningData, IsPendingUpload isPendingUpload,
                      ExistingDownload existingDownload)
        : _library(library),
          _cloudAssetBaseLocationID(cloudAssetBaseLocationID),
          _hasCloudKenningData(hasCloudKenningData),
          _isPendingUpload(std::move(isPendingUpload)),
          _existingDownload(std::move(existingDownload)) {}

    void addTrack(std::int64_t persistentID, KV3TrackRow row);

    // Music tracks whose file must come.
    std::uint64_t assetTotal() const { return _assetTotal; }
    const std::array<Assets, KindCount>& assetsByKind() const { return _assetsByKind; }

private:
    std::shared_ptr<ORAsset> makeRecord(const std::string& identifier, std::uint32_t mediaType,
                                        std::uint64_t parts, KV3TrackRow row);
    const platform::Value& optionsOf(std::uint64_t parts);
    bool lacksFile(KV3TrackRow row) const;
    void attachStoreInfo(ORAsset& asset, KV3TrackRow row);
    bool lacksArtwork(const std::string& identifier, KV3TrackRow row);
    bool hasArtwork(std::string_view token);
    bool lacksKenningData(std::uint32_t mediaType, KV3TrackRow row);

    KV3Korvane& _library;
    const std::int64_t _cloudAssetBaseLocationID;
    const bool _hasCloudKenningData;
    const IsPendingUpload _isPendingUpload;
    const ExistingDownload _existingDownload;

    // By parts; all records that lack the same share them.
    std::array<platform::Value, (KVAssetPartFile | KVAssetPartArtwork | KVAssetPartKenning) + 1>
        _options;
    std::array<Assets, KindCount> _assetsByKind;
    // The artwork that was looked for last: tracks of an album share theirs and come together.
    std::string _lastToken;
    bool _hasLastArtwork = false;
    // Asked for already in this call.
    std::unordered_set<std::string, StringHash, std::equal_to<>> _artworkTokens;
    std::unordered_set<std::int64_t> _kenningIDs;
    std::uint64_t _assetTotal = 0;
};

void TransferCollector::addTrack(std::int64_t persistentID, KV3TrackRow row) {
    const std::int64_t syncID = row[ColumnSyncID].int64Value();
    const std::string identifier = KVStringFromPersistentID(syncID != 0 ? syncID : persistentID);
    if (_isPendingUpload(identifier))
        return;
    const auto mediaType = static_cast<std::uint32_t>(row[ColumnMediaType].int64Value());
    const bool isRental = row[ColumnIsRental].int64Value() != 0;

    std::uint64_t parts = lacksFile(row) ? KVAssetPartFile : 0;
    if (syncID != 0 && row[ColumnStoreVeskaID].int64Value() == 0) {
        if (lacksArtwork(identifier, row))
            parts |= KVAssetPartArtwork;
        if (lacksKenningData(mediaType, row))
            parts |= KVAssetPartKenning;
    }
    // Of most tracks everything is there, so the record is made no earlier.
    if (parts == 0)
        return;
    if ((parts & KVAssetPartFile) && (mediaType & KV3MediaTypeMusic))
        ++_assetTotal;
    _assetsByKind[kindOfTrack(isRental, mediaType)].push_back(
        makeRecord(identifier, mediaType, parts, row));
}

std::shared_ptr<ORAsset> TransferCollector::makeRecord(const std::string& identifier,
                                                       std::uint32_t mediaType, std::uint64_t parts,
                                                       KV3TrackRow row) {
    std::shared_ptr<ORAsset> asset = ORAsset::downloadAssetWithIdentifier(
        identifier, KVDataClassMedia, row[ColumnTitle].string());
    asset->setAssetType(KVAssetTypeForMediaType(mediaType));
    if (parts & KVAssetPartFile)
        attachStoreInfo(*asset, row);
    if (const auto download = _existingDownload(identifier))
        asset->setStorePID(*download);
    if (row[ColumnNeedsRestore].boolValue())
        asset->setIsRestore(true);
    else
        asset->setBypassStore(true);
    asset->setVariantOptions(optionsOf(parts));
    return asset;
}

const platform::Value& TransferCollector::optionsOf(std::uint64_t parts) {
    platform::Value& options = _options.at(parts);
    if (options.isNull())
        options = platform::Dictionary{{std::string(KVVariantOptionAssetParts), parts}};
    return options;
}

// No location at all, none yet, or one in the cloud.
bool TransferCollector::lacksFile(KV3TrackRow row) const {
    const std::int64_t location = row[ColumnBaseLocationID].int64Value();
    return location == 0 || location == _cloudAssetBaseLocationID;
}

void TransferCollector::attachStoreInfo(ORAsset& asset, KV3TrackRow row) {
    const KVStoreValues values = row.subspan<ColumnPodcastExternalGUID, KVStoreColumnCount>();
    if (auto storeInfo = KVStoreInfoFromValues(values, _library))
        asset.setStoreInfo(std::move(storeInfo));
}

// A track without a token has no artwork that the host could send.
bool TransferCollector::lacksArtwork(const std::string& identifier, KV3TrackRow row) {
    const std::string_view token = row[ColumnArtworkToken].string();
    if (token.empty())
        return false;
    if (hasArtwork(token)) {
        KVLog(Info, operation, "Already have artwork for for track %@", identifier);
        return false;
    }
    if (_artworkTokens.contains(token))
        return false;
    _artworkTokens.emplace(token);
    return true;
}

bool TransferCollector::hasArtwork(std::string_view token) {
    if (token != _lastToken) {
        _lastToken = token;
        _hasLastArtwork = KV3ArtworkHasOriginalArtwork(KV3ArtworkRelativePathFromToken(_lastToken));
    }
    return _hasLastArtwork;
}

bool TransferCollector::lacksKenningData(std::uint32_t mediaType, KV3TrackRow row) {
    if (_hasCloudKenningData || !(mediaType & kenningMediaTypes))
        return false;
    if (row[ColumnGlobalID].isNull())
        return false;
    const std::int64_t globalID = row[ColumnGlobalID].int64Value();
    if (_kenningIDs.contains(globalID))
        return false;
    const platform::ValueView checksum = row[ColumnKenningChecksum];
    const platform::ValueView pending = row[ColumnPendingKenningChecksum];
    const bool upToDate =
        pending.isNull() || (!checksum.isNull() && checksum.int64Value() == pending.int64Value());
    if (upToDate) {
        KVLog(Info, operation, "Kenning already up-to-date: %@ vs. %@", checksum.value(),
              pending.value());
        return false;
    }
    _kenningIDs.insert(globalID);
    return true;
}

}  // namespace

std::vector<std::shared_ptr<ORAsset>> KVSyncClient::outstandingAssetTransfersWithDownloadManager(
    VDDownloadManager* downloadManager) {
    _hadUnsucessfulAssetTransfer = false;
    const std::shared_ptr<KV3TrackQuery> query =
        KV3Track::queryWithLibrary(_library, outstandingTracks(), transferOrder());
    const DownloadsByIdentifier downloads =
        _existingOutstandingAssetTransfersWithDownloadManager(downloadManager);
    TransferCollector collector(
        *_library, _cloudAssetBaseLocationID, _hasCloudKenningData,
        [this](const std::string& identifier) { return _pendingUploads.contains(identifier); },
        [&downloads](const std::string& identifier) -> std::optional<std::int64_t> {
            const auto found = downloads.find(identifier);
            if (found == downloads.end())
                return std::nullopt;
            return found->second->persistentIdentifier();
        });
    query->enumeratePersistentIDsAndProperties(
        trackProperties, [&collector](std::int64_t persistentID, KV3TrackRow row) {
            collector.addTrack(persistentID, row);
        });

    std::size_t count = _pendingUploads.size();
    for (const Assets& assets : collector.assetsByKind())
        count += assets.size();
    Assets transfers;
    transfers.reserve(count);
    for (const auto& [identifier, upload] : _pendingUploads)
        transfers.push_back(upload);
    for (const Assets& assets : collector.assetsByKind())
        transfers.insert(transfers.end(), assets.begin(), assets.end());

    KVLog(Debug, operation, "outstandingAssetTransfers = %@", transfers);
    _postAssetTotal(collector.assetTotal());
    _currentAssetNumber = 1;
    _postCurrentAssetNumber(_currentAssetNumber);
    return transfers;
}

KVSyncClient::DownloadsByIdentifier
KVSyncClient::_existingOutstandingAssetTransfersWithDownloadManager(
    VDDownloadManager* downloadManager) {
    DownloadsByIdentifier downloads;
    if (!downloadManager)
        return downloads;
    for (const std::shared_ptr<VDDownload>& download : downloadManager->downloads()) {
        const platform::Value identifier =
            download->valueForProperty(VDDownloadPropertyLibraryItemIdentifier);
        if (const std::string* text = identifier.string(); text && !text->empty())
            downloads[*text] = download;
    }
    return downloads;
}
