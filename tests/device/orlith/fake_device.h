// A device for tests of the daemon: real files in a directory of its own, and a library and a
// plug-in that do just what the daemon relies on, in memory.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device/orlith/daemon_services.h"
#include "device/orlith/library_access.h"
#include "device/orlith/notices.h"
#include "device/orlith/session.h"
#include "device/orlith/session_slot.h"
#include "device/system/rooted_file_system.h"
#include "device/system/work_queues.h"
#include "platform/media_library.h"
#include "platform/operating_system.h"
#include "tests/support/hand_off.h"

namespace orlith::testing {

struct FakeTrack {
    std::int64_t persistentID = 0;
    std::int64_t syncID = 0;
    std::optional<std::string> path;
    std::optional<std::string> artworkToken;
    bool hasArtwork = false;
    std::optional<std::int64_t> kenningChecksum;
    std::optional<std::int64_t> pendingKenningChecksum;
    bool needsRestore = false;
    std::string assetType = "Music";
    bool deleteAfterUpload = false;
    std::optional<std::string> cloudArtworkToken;
    std::string chapters;  // see FakeLibraryFramework
};

// The tracks of the library; shared by everything below.
struct FakeTracks {
    std::mutex mutex;
    std::vector<FakeTrack> all;  // guarded by mutex
    bool refusesLocations = false;

    FakeTrack* bySyncID(std::int64_t syncID);
    FakeTrack* byPersistentID(std::int64_t persistentID);
    FakeTrack get(std::int64_t syncID);
};

class FakeLibraryFramework final : public MediaLibraryFramework {
public:
    explicit FakeLibraryFramework(FakeTracks& tracks);
    ~FakeLibraryFramework() override;

    std::shared_ptr<KV3Korvane> sharedLibrary() override;
    std::string sharedLibraryDatabasePath() override { return {}; }
    KVMediaLibraryService& mediaLibraryService() override;
    std::shared_ptr<KV3Track> trackWithPersistentID(std::int64_t persistentID,
                                                    const std::shared_ptr<KV3Korvane>&) override;
    std::shared_ptr<KV3Track> anyTrack(const std::shared_ptr<KV3Korvane>&,
                                       const KV3Predicate& predicate) override;
    std::shared_ptr<KV3TrackQuery> trackQuery(const std::shared_ptr<KV3Korvane>&,
                                              const KV3Predicate&,
                                              const std::vector<KV3OrderingTerm>&) override {
        return nullptr;
    }
    bool unlinkRedownloadableAssets(const std::shared_ptr<KV3Korvane>&,
                                    const std::vector<std::int64_t>&) override {
        return true;
    }
    std::vector<std::int64_t> autoCreatedBuiltInSmartPlaylistsPIDs(
        const std::shared_ptr<KV3Korvane>&) override {
        return {};
    }
    bool populateDynamicContainers(const std::shared_ptr<KV3Korvane>&, bool) override {
        return true;
    }
    bool deleteAutoCreatedBuiltInSmartPlaylists(const std::vector<std::int64_t>&,
                                                const std::shared_ptr<KV3Korvane>&) override {
        return true;
    }
    std::string artworkRelativePathFromToken(const std::string& token) override { return token; }
    bool artworkHasOriginalArtwork(const std::string& relativePath) override;
    std::string artworkTokenForChapterArtwork(std::int64_t, double) override { return {}; }
    std::int64_t createIntegerUUID() override { return 1; }
    // A table of contents is the names of pictures, one a line; chapters are a second apart.
    void enumerateChapterTimes(const platform::Data& data,
                               const std::function<void(double)>& block) override;
    void enumerateChapterArtworkCacheIDs(
        const platform::Data& data,
        const std::function<void(const std::string&, bool&)>& block) override;
    std::shared_ptr<KV3Container> containerWithPersistentID(
        std::int64_t, const std::shared_ptr<KV3Korvane>&) override {
        return nullptr;
    }
    std::shared_ptr<KV3QORXExportSession> makeExportSession(
        const std::shared_ptr<KV3Korvane>&,
        const std::shared_ptr<platform::OutputStream>&) override {
        return nullptr;
    }
    KV3ArtworkConfiguration& artworkConfiguration() override;

private:
    FakeTracks& _tracks;
    std::shared_ptr<KV3Korvane> _library;
};

// Does what the plug-in does with a received file: records its place, takes its picture.
class FakeClient final : public ORClient {
public:
    FakeClient(FakeTracks& tracks, DaemonServices& daemon) : _tracks(tracks), _daemon(daemon) {}

    // Called before each operation, with its name; may throw or block.
    std::function<void(const std::string& operation)> onCall;
    bool reconcileFails = false;
    std::vector<std::string> calls();

    bool respondsTo(ORClientOperation) const override { return true; }
    std::vector<std::string> supportedDataclasses() override { return {"Media"}; }
    std::string currentSyncAnchor() override { return "0"; }
    bool prepareForSyncWithHostAnchor(const std::string&, const Progress&, std::uint32_t,
                                      const std::string&, platform::OptionalError*) override;
    bool reconcileSync(std::uint32_t syncType, const std::string& newAnchor, const Progress&,
                       platform::OptionalError* error) override;
    void cancelSyncOperations() override { record("cancel"); }
    std::vector<std::shared_ptr<ORAsset>> outstandingAssetTransfersWithDownloadManager(
        VDDownloadManager*) override;
    void assetTransferSucceeded(const std::shared_ptr<ORAsset>& asset, bool succeeded,
                                const platform::OptionalError& error) override;
    void assetInstallFailed(const std::shared_ptr<ORAsset>& asset,
                            const platform::OptionalError& error) override;
    void assetTransferEndedWithSuccess(bool success) override;
    std::optional<std::set<std::string>> disabledAssetTypes() override { return disabled; }
    void _processKenningConfigPlist(const platform::Value& plist) override;

    std::optional<std::set<std::string>> disabled;  // set before the session

private:
    void record(const std::string& call);
    void file(ORAsset& asset);

    FakeTracks& _tracks;
    DaemonServices& _daemon;
    std::mutex _mutex;
    std::vector<std::string> _calls;  // guarded by _mutex
};

class FakeLibraryAccess final : public LibraryAccess {
public:
    explicit FakeLibraryAccess(FakeTracks& tracks) : _tracks(tracks) {}

    std::vector<SavedChanges> saved;
    std::string registered;
    std::map<std::int64_t, std::vector<std::uint64_t>> discardedChapterPictures;

    std::string libraryUID() override { return "uid"; }
    std::string anchor() override { return "anchor"; }
    std::int64_t revision() override { return 7; }
    void sessionBegan() override {}
    void sessionEnded() override {}
    void adoptFoundPictures() override {}
    void discardChapterPictures(std::int64_t syncID,
                                const std::vector<std::uint64_t>& milliseconds) override {
        discardedChapterPictures[syncID] = milliseconds;
        test::handOver();
    }
    void registerHostData(const std::string& path) override {
        registered = path;
        test::handOver();
    }
    void unregisterHostData() override {
        registered.clear();
        test::handOver();
    }
    std::vector<SavedChanges> savedChanges(std::uint32_t) override {
        test::takeOver();
        return saved;
    }
    std::int64_t coveredRevision() override { return 5; }
    platform::OptionalError lastHostImportFailure() override { return std::nullopt; }
    std::vector<std::string> filesHeldByHostAlone() override;
    LibraryStatistics statistics() override { return {3, 2, 1, false}; }
    std::vector<KeptPlace> keptPlaces() override { return {{"/kept/\xff", 4096}}; }
    void forEachTrack(const std::function<bool(const korvane::ListedTrack&)>& callback) override;
    void forEachPlaylist(
        const std::function<bool(const korvane::ListedPlaylist&)>& callback) override;
    EditOutcome rate(const std::string& track, std::uint32_t stars) override;
    EditOutcome recordPlay(const std::string&) override { return {}; }

private:
    FakeTracks& _tracks;
};

class FakeOperatingSystem final : public platform::OperatingSystem,
                                  private platform::NamedNotifications,
                                  private platform::PropertyLists {
public:
    explicit FakeOperatingSystem(platform::FileSystem& files) : _files(files) {}
    ~FakeOperatingSystem() override { endJobs(); }

    // Returns when every job has ended.
    void endJobs() { _queues.shutdown(std::chrono::seconds(20)); }

    std::vector<std::string> posted;

    std::shared_ptr<platform::WorkQueue> makeSerialQueue(std::string_view label) override {
        return _queues.makeSerialQueue(label);
    }
    std::shared_ptr<platform::WorkQueue> globalQueue(platform::QueuePriority priority) override {
        return _queues.globalQueue(priority);
    }
    std::shared_ptr<platform::Semaphore> makeSemaphore(std::int64_t) override { return nullptr; }
    std::shared_ptr<platform::TimerSource> makeTimer(
        std::shared_ptr<platform::WorkQueue>) override {
        return nullptr;
    }
    double absoluteTime() override { return 0; }
    platform::Nanoseconds monotonicTime() override { return 0; }
    platform::FileSystem& fileSystem() override { return _files; }
    platform::NotificationCenter& defaultNotificationCenter() override;
    platform::NamedNotifications& namedNotifications() override { return *this; }
    platform::PropertyLists& propertyLists() override { return *this; }

private:
    std::uint32_t registerCheck(std::string_view, int&) override { return 1; }
    std::uint32_t setState(int, std::uint64_t) override { return 0; }
    std::uint32_t post(std::string_view name) override;
    std::optional<platform::Value> parse(const platform::Data& bytes,
                                         platform::OptionalError* error) override;
    std::optional<platform::Value> parse(platform::InputStream&,
                                         platform::OptionalError*) override {
        return std::nullopt;
    }
    std::optional<platform::Data> serialize(const platform::Value& value,
                                            platform::PropertyListFormat format,
                                            platform::OptionalError* error) override;

    platform::FileSystem& _files;
    device::WorkQueues _queues;
};

class SilentLog final : public platform::LogService {
public:
    bool shouldLog(platform::LogLevel, std::string_view) override { return false; }
    void log(const platform::LogRecord&) override {}
};

// A new directory, removed with all it holds.
class TemporaryRoot {
public:
    TemporaryRoot();
    ~TemporaryRoot();
    std::string path;
};

struct FakeDevice {
    FakeDevice();

    // Reads and writes below the root by device path.
    std::string read(const std::string& devicePath) const;
    void write(const std::string& devicePath, const std::string& text) const;
    bool exists(const std::string& devicePath) const;
    // Every regular file below a device directory, relative to it, sorted.
    std::vector<std::string> filesBelow(const std::string& devicePath) const;

    SessionServices services();

    TemporaryRoot root;
    device::RootedFileSystem files;
    FakeOperatingSystem system;
    DaemonServices daemon;
    FakeTracks tracks;
    FakeLibraryFramework library;
    FakeClient client;
    FakeLibraryAccess access;
    SilentLog log;
    SessionSlot slot;
    Notices notices;
};

}  // namespace orlith::testing
