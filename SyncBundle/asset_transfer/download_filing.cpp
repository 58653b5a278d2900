#include <array>
#include <cstdio>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/asset_transfer/kenning_plist.h"
#include "SyncBundle/asset_transfer/video_snapshots.h"
#include "SyncBundle/log.h"
#include "SyncBundle/media_paths.h"
#include "SyncBundle/transfer_records.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view operation = "assetTransfer:succeeded:withError:";

// Where the artwork comes from: the sync.
constexpr std::int64_t artworkSourceSync = 2;

// The asset's identifier, a hyphen and the chapter's start in whole milliseconds.
std::string chapterArtworkIdentifier(const std::string& assetIdentifier, double seconds) {
    char milliseconds[320];  // the largest double has 309 digits before the point
    std::snprintf(milliseconds, sizeof milliseconds, "%.f", seconds * 1000.0);
    return assetIdentifier + "-" + milliseconds;
}

std::optional<std::string> optionalString(const platform::Value& value) {
    const std::string* text = value.string();
    return text ? std::optional(*text) : std::nullopt;
}

}  // namespace

// Inside the transaction; true commits.
bool KVSyncClient::fileDownload(ORAsset& asset, std::int64_t syncID) {
    ORStagehold::sharedInstance().processCompletedAsset(asset);
    const std::string reportedPath = asset.path().value_or(std::string());
    KVLog(Debug, operation, "Prepending /var/mobile/Media to %@", reportedPath);
    const std::string path = KVPathByAppendingComponent(KVMediaDirectory, reportedPath);
    asset.setPath(path);

    const std::shared_ptr<KV3Track> track = KVTrackWithSyncID(_library, syncID);
    if (!track->existsInLibrary()) {
        KVLog(Error, operation, "Could not find track in database for asset: %@", asset);
        platform::Platform::current().operatingSystem().fileSystem().unlink(path);
        return false;
    }
    const std::uint64_t parts = KVAssetParts(asset);
    // A restored file is the staging area's to install.
    if ((parts & KVAssetPartFile) && asset.bypassStore())
        fileMedia(asset, *track, syncID);
    if (parts & KVAssetPartArtwork)
        fileArtwork(asset, *track);
    if (parts & KVAssetPartKenning)
        fileKenningData(asset, *track);
    _library->notifyDisplayValuesPropertyDidChange();
    return true;
}

void KVSyncClient::fileMedia(ORAsset& asset, KV3Track& track, std::int64_t syncID) {
    unlinkFromCloud(track);
    KVLog(Info, operation, "Setting location data for track: %lld", syncID);
    track.populateLocationPropertiesWithPath(asset.path().value_or(std::string()));
    const std::array<platform::Value, 2> values{platform::Value(false), platform::Value()};
    const std::array properties{KV3TrackPropertyNeedsRestore, KV3TrackPropertyDownloadIdentifier};
    track.setValues(values, properties);
}

void KVSyncClient::unlinkFromCloud(KV3Track& track) {
    if (_cloudAssetBaseLocationID != 0 &&
        track.valueForProperty(KV3TrackPropertyBaseLocationID).int64Value() ==
            _cloudAssetBaseLocationID)
        KV3Track::unlinkRedownloadableAssetsFromLibrary(_library, {track.persistentID()});
}

void KVSyncClient::fileArtwork(ORAsset& asset, KV3Track& track) {
    KVLog(Info, operation, "Artwork for asset arrived: %@", asset);
    const std::array properties{KV3TrackPropertyChapterData, KV3TrackPropertySyncArtworkToken,
                                KV3TrackPropertyMediaType};
    const std::vector<platform::Value> values = track.getValues(properties);
    const platform::Data* chapterData = values[0].data();
    const std::optional<std::string> artworkToken = optionalString(values[1]);
    const auto mediaType = static_cast<std::uint32_t>(values[2].unsignedValue());
    const std::string identifier = asset.identifier();

    if (chapterData) {
        KVTSChapterTOC::enumerateChapterTimesInFlattenedChapterData(
            *chapterData, [&](double seconds) {
                _processArtworkIdentifier(
                    chapterArtworkIdentifier(identifier, seconds),
                    KV3ArtworkTokenForChapterArtwork(track.persistentID(), seconds),
                    KVArtworkTypeChapter, mediaType, artworkSourceSync);
            });
    }
    if (artworkToken)
        _processArtworkIdentifier(identifier, artworkToken, KVArtworkTypeTrack, mediaType,
                                  artworkSourceSync);
    else
        KVLog(Warning, operation, "Got artwork for asset with no artwork token: %@", asset);
    KVCreateVideoSnapshotIfNeeded(asset, track);
}

void KVSyncClient::fileKenningData(ORAsset& asset, KV3Track& track) {
    const std::array properties{KV3TrackPropertyGlobalID, KV3TrackPropertyPendingKenningChecksum};
    const std::vector<platform::Value> values = track.getValues(properties);
    if (values[0].isNull()) {
        KVLog(Warning, operation, "Got kenning data for asset with no kenning ID: %@", asset);
        return;
    }
    const std::string globalID = values[0].description();
    const std::optional<std::string> path = ORStagehold::sharedInstance().kenningPathForDataclass(
        std::string(KVDataClassMedia), globalID);
    if (!path) {
        KVLog(Warning, operation, "Kenning data for asset had no path: %@", asset);
        return;
    }
    if (const auto plist = KenningPlistFromPath(*path))
        _processKenningPlist(*plist, globalID, values[1].int64Value());
}
