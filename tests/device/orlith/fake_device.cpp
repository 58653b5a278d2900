#include "tests/device/orlith/fake_device.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "common/property_list/property_list.h"
#include "device/orlith/names.h"
#include "tests/support/hand_off.h"

namespace orlith::testing {
namespace {

namespace fs = std::filesystem;
using platform::OptionalError;
using platform::Value;

class TrackHandle final : public KV3Track {
public:
    TrackHandle(FakeTracks& tracks, std::int64_t persistentID)
        : _tracks(tracks), _persistentID(persistentID) {}

    std::int64_t persistentID() const override { return _persistentID; }
    bool existsInLibrary() override {
        const std::scoped_lock lock(_tracks.mutex);
        return _tracks.byPersistentID(_persistentID) != nullptr;
    }
    std::optional<std::string> absoluteFilePath() override {
        const std::scoped_lock lock(_tracks.mutex);
        const FakeTrack* track = _tracks.byPersistentID(_persistentID);
        return track ? track->path : std::nullopt;
    }
    bool deleteFromLibrary() override { return false; }
    Value valueForProperty(KV3TrackProperty property) override {
        const std::scoped_lock lock(_tracks.mutex);
        const FakeTrack* track = _tracks.byPersistentID(_persistentID);
        if (!track)
            return {};
        switch (property) {
            case KV3TrackPropertyFilePath:
                return track->path;
            case KV3TrackPropertyNeedsRestore:
                return track->needsRestore;
            case KV3TrackPropertySyncArtworkToken:
                return track->artworkToken;
            case KV3TrackPropertyCloudArtworkToken:
                return track->cloudArtworkToken;
            case KV3TrackPropertyChapterData:
                return track->chapters.empty()
                           ? Value()
                           : Value(platform::Data(track->chapters.begin(), track->chapters.end()));
            case KV3TrackPropertyKenningChecksum:
                return track->kenningChecksum;
            case KV3TrackPropertyPendingKenningChecksum:
                return track->pendingKenningChecksum;
            default:
                return {};
        }
    }
    std::vector<Value> getValues(std::span<const KV3TrackProperty> properties) override {
        std::vector<Value> values;
        for (const KV3TrackProperty property : properties)
            values.push_back(valueForProperty(property));
        return values;
    }
    bool setValue(const Value& value, KV3TrackProperty property) override {
        const test::Turn turn;
        const std::scoped_lock lock(_tracks.mutex);
        FakeTrack* track = _tracks.byPersistentID(_persistentID);
        if (track && property == KV3TrackPropertyNeedsRestore)
            track->needsRestore = value.boolValue();
        return track != nullptr;
    }
    bool setValues(std::span<const Value>, std::span<const KV3TrackProperty>) override {
        return false;
    }
    bool populateLocationPropertiesWithPath(const std::string& path) override {
        const test::Turn turn;
        const std::scoped_lock lock(_tracks.mutex);
        FakeTrack* track = _tracks.byPersistentID(_persistentID);
        if (track)
            track->path = path;
        return track != nullptr;
    }
    bool needsVideoSnapshot() override { return false; }
    bool createVideoSnapshotAtTime(double) override { return false; }
    std::string description() const override { return "track"; }

private:
    FakeTracks& _tracks;
    std::int64_t _persistentID;
};

// Only transactions are used, and they do not need a connection.
class TransactionLibrary final : public KV3Korvane, private KV3DatabaseConnection {
public:
    Value valueForDatabaseProperty(std::string_view) override { return {}; }
    bool setValueForDatabaseProperty(const Value&, std::string_view) override { return true; }
    bool performReadOnlyDatabaseTransactionWithBlock(const TransactionBlock& block) override {
        return block(*this);
    }
    bool performDatabaseTransactionWithBlock(const TransactionBlock& block) override {
        return block(*this);
    }
    void databaseConnectionAllowingWrites(
        bool, const std::function<void(KV3DatabaseConnection&)>& block) override {
        block(*this);
    }
    void reconnectToDatabase() override {}
    std::int64_t currentRevision() override { return 7; }
    void saveTrackMetadataSinceRevision(std::int64_t, std::uint32_t) override {}
    void savePlaylistsSinceRevision(std::int64_t, std::uint32_t) override {}
    void notifyContentsDidChange() override {}
    void notifyDisplayValuesPropertyDidChange() override {}
    void updateTrackIntegrity() override {}
    bool removeSourceFromTracksWithPersistentIDs(std::int64_t,
                                                 const std::vector<std::int64_t>&) override {
        return true;
    }
    void setSyncGenerationID(std::int64_t) override {}
    void removeTombstonesForDeletedItems() override {}
    bool importExistingOriginalArtworkWithArtworkToken(const std::string&, std::int64_t,
                                                       std::int64_t, std::uint32_t) override {
        return true;
    }
    bool importOriginalArtworkFromFileURL(const std::string&, const std::string&, std::int64_t,
                                          std::int64_t, std::uint32_t) override {
        return true;
    }
    KV3AccountCacheDatabase& accountCacheDatabase() override { std::abort(); }
    Value libraryUID() override { return "uid"; }
    std::uint64_t countOfChangedPersistentIdsAfterRevision(std::int64_t, std::int64_t,
                                                           std::int64_t) override {
        return 0;
    }
    void enumeratePersistentIDsAfterRevision(std::int64_t, std::int64_t, std::int64_t,
                                             const RevisionBlock&) override {}
    void enumeratePersistentIDsAfterRevisionForMediaTypes(std::int64_t, std::int64_t, std::int64_t,
                                                          const Value&,
                                                          const RevisionBlock&) override {}
    bool removeSource(std::int64_t) override { return true; }
    std::optional<KV3Artwork> fetchItemArtworkForPersistentID(std::int64_t) override {
        return std::nullopt;
    }

private:
    std::unique_ptr<KV3QueryResult> executeQuery(std::string_view) override { return nullptr; }
    bool executeUpdateWithParameters(std::string_view, std::span<const Value>,
                                     OptionalError*) override {
        return false;
    }
};

}  // namespace

FakeTrack* FakeTracks::bySyncID(std::int64_t syncID) {
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const FakeTrack& t) { return t.syncID == syncID; });
    return found == all.end() ? nullptr : &*found;
}

FakeTrack* FakeTracks::byPersistentID(std::int64_t persistentID) {
    const auto found = std::find_if(
        all.begin(), all.end(), [&](const FakeTrack& t) { return t.persistentID == persistentID; });
    return found == all.end() ? nullptr : &*found;
}

FakeTrack FakeTracks::get(std::int64_t syncID) {
    const std::scoped_lock lock(mutex);
    const FakeTrack* track = bySyncID(syncID);
    return track ? *track : FakeTrack();
}

FakeLibraryFramework::FakeLibraryFramework(FakeTracks& tracks)
    : _tracks(tracks), _library(std::make_shared<TransactionLibrary>()) {}
FakeLibraryFramework::~FakeLibraryFramework() = default;

std::shared_ptr<KV3Korvane> FakeLibraryFramework::sharedLibrary() {
    return _library;
}

KVMediaLibraryService& FakeLibraryFramework::mediaLibraryService() {
    std::abort();
}

std::shared_ptr<KV3Track> FakeLibraryFramework::trackWithPersistentID(
    std::int64_t persistentID, const std::shared_ptr<KV3Korvane>&) {
    return std::make_shared<TrackHandle>(_tracks, persistentID);
}

std::shared_ptr<KV3Track> FakeLibraryFramework::anyTrack(const std::shared_ptr<KV3Korvane>&,
                                                         const KV3Predicate& predicate) {
    const std::scoped_lock lock(_tracks.mutex);
    const FakeTrack* track = _tracks.bySyncID(predicate.value.int64Value());
    return std::make_shared<TrackHandle>(_tracks, track ? track->persistentID : 0);
}

bool FakeLibraryFramework::artworkHasOriginalArtwork(const std::string& relativePath) {
    const std::scoped_lock lock(_tracks.mutex);
    return std::any_of(_tracks.all.begin(), _tracks.all.end(), [&](const FakeTrack& track) {
        return track.artworkToken == relativePath && track.hasArtwork;
    });
}

void FakeLibraryFramework::enumerateChapterTimes(const platform::Data& data,
                                                 const std::function<void(double)>& block) {
    double seconds = 0;
    enumerateChapterArtworkCacheIDs(data, [&](const std::string&, bool&) { block(seconds++); });
}

void FakeLibraryFramework::enumerateChapterArtworkCacheIDs(
    const platform::Data& data, const std::function<void(const std::string&, bool&)>& block) {
    std::istringstream lines(std::string(data.begin(), data.end()));
    bool stop = false;
    for (std::string line; !stop && std::getline(lines, line);)
        block(line, stop);
}

KV3ArtworkConfiguration& FakeLibraryFramework::artworkConfiguration() {
    std::abort();
}

std::vector<std::string> FakeClient::calls() {
    const std::scoped_lock lock(_mutex);
    return _calls;
}

void FakeClient::record(const std::string& call) {
    const test::Turn turn;
    {
        const std::scoped_lock lock(_mutex);
        _calls.push_back(call);
    }
    if (onCall)
        onCall(call);
}

bool FakeClient::prepareForSyncWithHostAnchor(const std::string&, const Progress&, std::uint32_t,
                                              const std::string&, OptionalError*) {
    record("prepare");
    return true;
}

bool FakeClient::reconcileSync(std::uint32_t syncType, const std::string& newAnchor,
                               const Progress&, OptionalError* error) {
    record("reconcile " + std::to_string(syncType) + " " + newAnchor);
    if (reconcileFails && error)
        *error = platform::Error(KVMediaLibraryServiceErrorDomain,
                                 KVMediaLibraryServiceErrorDamagedData, "damaged");
    return !reconcileFails;
}

std::vector<std::shared_ptr<ORAsset>> FakeClient::outstandingAssetTransfersWithDownloadManager(
    VDDownloadManager*) {
    record("outstanding");
    const std::scoped_lock lock(_tracks.mutex);
    std::vector<std::shared_ptr<ORAsset>> assets;
    for (const FakeTrack& track : _tracks.all) {
        const std::string identifier =
            std::to_string(track.syncID != 0 ? track.syncID : track.persistentID);
        if (track.path) {
            if (track.deleteAfterUpload) {
                auto asset = _daemon.makeUploadAsset(identifier, "Media", *track.path, {});
                asset->setVariantOptions(
                    platform::Dictionary{{"delete_after_upload", Value(true)}});
                assets.push_back(asset);
            }
            continue;
        }
        std::uint32_t parts = PartFile;
        if (track.artworkToken && !track.hasArtwork)
            parts |= PartArtwork;
        if (track.pendingKenningChecksum != track.kenningChecksum)
            parts |= PartKenning;
        auto asset = _daemon.makeDownloadAsset(identifier, "Media", "title");
        asset->setAssetType(track.assetType);
        asset->setVariantOptions(platform::Dictionary{{"AssetParts", Value(parts)}});
        if (track.needsRestore)
            asset->setIsRestore(true);
        else
            asset->setBypassStore(true);
        assets.push_back(asset);
    }
    return assets;
}

void FakeClient::assetTransferSucceeded(const std::shared_ptr<ORAsset>& asset, bool succeeded,
                                        const OptionalError& error) {
    record("transfer " + asset->identifier() + (succeeded ? " succeeded" : " failed") +
           (error ? " " + std::to_string(error->code) : ""));
    if (succeeded && asset->isDownload())
        file(*asset);
    if (succeeded && !asset->isDownload()) {
        const std::scoped_lock lock(_tracks.mutex);
        std::erase_if(_tracks.all, [&](const FakeTrack& track) {
            return std::to_string(track.syncID) == asset->identifier();
        });
    }
}

void FakeClient::file(ORAsset& asset) {
    const test::Turn turn;
    _daemon.stagehold().processCompletedAsset(asset);
    asset.setPath("/var/mobile/Media/" + asset.path().value_or(""));
    const std::string identifier = asset.identifier();
    const auto picture = _daemon.stagehold().artworkPathForDataclass("Media", identifier);
    const std::scoped_lock lock(_tracks.mutex);
    FakeTrack* track = _tracks.bySyncID(parseIdentifier(identifier).value_or(0));
    if (!track)
        return;
    if ((partsOf(asset) & PartFile) != 0 && asset.bypassStore() && !_tracks.refusesLocations)
        track->path = asset.path();
    if ((partsOf(asset) & PartArtwork) != 0 && picture)
        track->hasArtwork = true;
    if ((partsOf(asset) & PartKenning) != 0)
        track->kenningChecksum = track->pendingKenningChecksum;
}

void FakeClient::assetInstallFailed(const std::shared_ptr<ORAsset>& asset,
                                    const OptionalError& error) {
    record("install " + asset->identifier() + " failed" +
           (error ? " " + std::to_string(error->code) : ""));
}

void FakeClient::assetTransferEndedWithSuccess(bool success) {
    record(success ? "ended 1" : "ended 0");
}

void FakeClient::_processKenningConfigPlist(const Value& plist) {
    record("kenning config " + plist["version"].description());
}

std::vector<std::string> FakeLibraryAccess::filesHeldByHostAlone() {
    test::takeOver();
    const std::scoped_lock lock(_tracks.mutex);
    std::vector<std::string> paths;
    for (const FakeTrack& track : _tracks.all)
        if (track.path)
            paths.push_back(*track.path);
    return paths;
}

void FakeLibraryAccess::forEachTrack(const std::function<bool(const TrackSummary&)>& callback) {
    test::takeOver();
    const std::scoped_lock lock(_tracks.mutex);
    for (const FakeTrack& track : _tracks.all) {
        TrackSummary summary;
        summary.persistentID = track.persistentID;
        summary.syncID = track.syncID;
        summary.title = "t\xffitle";
        summary.mediaType = KV3MediaTypeTVEpisode | KV3MediaTypeMusic;
        if (!callback(summary))
            return;
    }
}

void FakeLibraryAccess::forEachPlaylist(
    const std::function<bool(const PlaylistSummary&)>& callback) {
    PlaylistSummary playlist;
    playlist.persistentID = 1;
    playlist.name = "long";
    playlist.tracks.assign(250000, 5);
    callback(playlist);
}

EditOutcome FakeLibraryAccess::rate(const std::string& track, std::uint32_t stars) {
    if (track != "5")
        return {platform::Error(platform::POSIXErrorDomain, ENOENT, "no such track"), {}};
    return {std::nullopt, std::string(stars, '*')};
}

platform::NotificationCenter& FakeOperatingSystem::defaultNotificationCenter() {
    std::abort();
}

std::uint32_t FakeOperatingSystem::post(std::string_view name) {
    posted.emplace_back(name);
    test::handOver();
    return 0;
}

std::optional<Value> FakeOperatingSystem::parse(const platform::Data& bytes, OptionalError* error) {
    return common::parsePropertyList(bytes, error);
}

std::optional<platform::Data> FakeOperatingSystem::serialize(const Value& value,
                                                             platform::PropertyListFormat format,
                                                             OptionalError* error) {
    return common::serializePropertyList(value, format, error);
}

TemporaryRoot::TemporaryRoot() {
    std::string name = fs::temp_directory_path() / "orlith-device-XXXXXX";
    path = ::mkdtemp(name.data());
}

TemporaryRoot::~TemporaryRoot() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

FakeDevice::FakeDevice()
    : files(root.path),
      system(files),
      daemon(files, system),
      library(tracks),
      client(tracks, daemon),
      access(tracks) {
    files.createDirectory("/var/mobile/Media");
}

std::string FakeDevice::read(const std::string& devicePath) const {
    std::ifstream file(root.path + devicePath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void FakeDevice::write(const std::string& devicePath, const std::string& text) const {
    fs::create_directories(fs::path(root.path + devicePath).parent_path());
    std::ofstream(root.path + devicePath, std::ios::binary) << text;
}

bool FakeDevice::exists(const std::string& devicePath) const {
    return fs::exists(root.path + devicePath);
}

std::vector<std::string> FakeDevice::filesBelow(const std::string& devicePath) const {
    std::vector<std::string> names;
    const fs::path top = root.path + devicePath;
    if (fs::exists(top))
        for (const auto& entry : fs::recursive_directory_iterator(top))
            if (entry.is_regular_file())
                names.push_back(fs::relative(entry.path(), top).string());
    std::sort(names.begin(), names.end());
    return names;
}

SessionServices FakeDevice::services() {
    return {client, access,  library, system, log, files, daemon.stagehold(),
            slot,   notices, nullptr};
}

}  // namespace orlith::testing
