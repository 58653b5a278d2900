// What the tests of the sync client share: a client over the doubles, a look at its variables and
// private operations, and the lines and tracks that tests write down.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "SyncBundle/KVSyncClient.h"
#include "tests/support/recording_platform.h"

// Opens the client to the tests, variable by variable.
class KVSyncClientInspector {
public:
    explicit KVSyncClientInspector(KVSyncClient& client)
        : library(client._library),
          pendingUploads(client._pendingUploads),
          autoCreatedSmartPlaylistsPIDs(client._autoCreatedSmartPlaylistsPIDs),
          syncStartRevision(client._syncStartRevision),
          cloudAssetBaseLocationID(client._cloudAssetBaseLocationID),
          hasCloudKenningData(client._hasCloudKenningData),
          torvelID(client._torvelID),
          hadUnsucessfulAssetTransfer(client._hadUnsucessfulAssetTransfer),
          currentAssetNumber(client._currentAssetNumber),
          lastAssetNumberPostDate(client._lastAssetNumberPostDate),
          streams(client._streams),
          notificationCenter(client._notificationCenter),
          syncClientDelegate(client._syncClientDelegate),
          queue(client._queue),
          requestsByIdentifier(client._requestsByIdentifier),
          requestTimer(client._requestTimer),
          downloadManager(client._downloadManager),
          wispSyncSettings(client._wispSyncSettings),
          _client(client) {}

    std::shared_ptr<KV3Korvane>& library;
    std::map<std::string, std::shared_ptr<ORAsset>, std::less<>>& pendingUploads;
    std::optional<std::vector<std::int64_t>>& autoCreatedSmartPlaylistsPIDs;
    std::int64_t& syncStartRevision;
    std::int64_t& cloudAssetBaseLocationID;
    bool& hasCloudKenningData;
    std::uint32_t& torvelID;
    bool& hadUnsucessfulAssetTransfer;
    std::uint64_t& currentAssetNumber;
    std::optional<platform::Date>& lastAssetNumberPostDate;
    GuardedStreams& streams;
    platform::NotificationCenter*& notificationCenter;
    GuardedReference<ORSyncClientDelegate>& syncClientDelegate;
    std::shared_ptr<platform::WorkQueue>& queue;
    std::map<std::string, std::shared_ptr<KVSyncAssetRequest>, std::less<>>& requestsByIdentifier;
    std::shared_ptr<platform::TimerSource>& requestTimer;
    std::shared_ptr<VDDownloadManager>& downloadManager;
    platform::Value& wispSyncSettings;

    void postAssetTotal(std::uint64_t total) { _client._postAssetTotal(total); }
    void postCurrentAssetNumber(std::uint64_t number) { _client._postCurrentAssetNumber(number); }
    std::vector<std::string> syncPlistFiles() { return _client._syncPlistFiles(); }
    bool processUploadTrackOperations() { return _client._processUploadTrackOperations(); }
    bool evaluateUploadTrackStep(const platform::Value& step) {
        return _client._evaluateUploadTrackDatabaseChangeStep(step);
    }
    auto existingTransfers(VDDownloadManager* manager) {
        return _client._existingOutstandingAssetTransfersWithDownloadManager(manager);
    }
    void deleteTrackForFailedAsset(ORAsset& asset, const platform::OptionalError& error,
                                   std::string_view action) {
        _client._deleteTrackForFailedAsset(asset, error, action);
    }
    bool processArtwork(const std::string& identifier, const std::optional<std::string>& token,
                        std::int64_t artworkType, std::uint32_t mediaType,
                        std::int64_t sourceType) {
        return _client._processArtworkIdentifier(identifier, token, artworkType, mediaType,
                                                 sourceType);
    }
    void adjustRequestQueue() { _client._adjustRequestQueue(); }
    KV3ArtworkSize maxArtworkSize(std::uint32_t mediaType) {
        return _client._maxArtworkSizeForMediaType(mediaType);
    }
    platform::Value artworkSizeVariant(std::uint32_t mediaType) {
        return _client._artworkSizeVariantForMediaType(mediaType);
    }

    // As at the start of a process.
    static void forgetNotificationRegistrations() {
        KVSyncClient::assetTotalRegistration.token.reset();
        KVSyncClient::currentAssetNumberRegistration.token.reset();
    }
    static void forgetArtworkSizeVariants() {
        KVSyncClient::artworkSizeVariants.byMediaType.reset();
    }

private:
    KVSyncClient& _client;
};

namespace sync_bundle_tests {

using platform::Array;
using platform::Data;
using platform::Dictionary;
using platform::Error;
using platform::LogLevel;
using platform::OptionalError;
using platform::Value;
using support::Call;
using support::Calls;
using support::LogLine;
using support::TrackProperties;
using testing::ElementsAre;
using testing::IsEmpty;

inline constexpr platform::Nanoseconds second = 1'000'000'000;

// A line of the plug-in.
inline LogLine line(LogLevel level, std::string operation, std::string message) {
    return {level, "com.vantor.KVSyncClient", std::move(operation), std::move(message)};
}

// A client that has just been made, with the calls of making it forgotten.
class SyncClientTest : public testing::Test {
protected:
    SyncClientTest() {
        KVSyncClientInspector::forgetNotificationRegistrations();
        KVSyncClientInspector::forgetArtworkSizeVariants();
    }

    // Made at first use, after the test has set up what init reads.
    KVSyncClient& client() {
        if (!_client) {
            _client = KVSyncClient::init();
            _platform.scheduler().runDueJobs();
            forget();
        }
        return *_client;
    }
    KVSyncClientInspector inspector() { return KVSyncClientInspector(client()); }
    void releaseClient() { _client.reset(); }
    std::weak_ptr<KVSyncClient> weakClient() { return client().weak_from_this(); }
    // Forgets the calls and lines so far.
    void forget() {
        recorder().clear();
        log().clear();
    }

    support::RecordingPlatform& platform() { return _platform; }
    support::Recorder& recorder() { return _platform.recorder(); }
    support::RecordingLog& log() { return _platform.logService(); }
    support::VirtualScheduler& scheduler() { return _platform.scheduler(); }
    support::VirtualOperatingSystem& system() { return _platform.operatingSystem(); }
    support::MemoryFileSystem& files() { return _platform.operatingSystem().fileSystem(); }
    support::RecordingMediaLibrary& media() { return _platform.mediaLibrary(); }
    support::RecordingLibrary& library() { return _platform.library(); }
    support::RecordingStagehold& stagehold() { return _platform.syncDaemon().stagehold(); }

    Calls calls() { return recorder().calls(); }
    std::vector<LogLine> lines() { return log().lines(); }

    std::shared_ptr<support::RecordingAsset> makeAsset(const std::string& identifier,
                                                       bool isDownload) {
        return std::make_shared<support::RecordingAsset>(recorder(), identifier, isDownload);
    }
    // An asset that another device pulls.
    std::shared_ptr<support::RecordingAsset> makePulled(const std::string& identifier,
                                                        std::uint64_t parts) {
        auto asset = makeAsset(identifier, false);
        asset->setVariantOptions(Dictionary{{"AssetParts", parts}});
        return asset;
    }
    // A download that carries these parts.
    std::shared_ptr<support::RecordingAsset> makeDownload(const std::string& identifier,
                                                          std::uint64_t parts) {
        auto asset = makeAsset(identifier, true);
        asset->setVariantOptions(Dictionary{{"AssetParts", parts}});
        return asset;
    }

private:
    support::RecordingPlatform _platform;
    std::shared_ptr<KVSyncClient> _client;
};

}  // namespace sync_bundle_tests
