// Purpose: the store download framework: the download manager, its downloads and its observers.
// Calling thread: any.
// Callback thread: observers are called on a thread of the manager's own and must not block.
// Ownership: managers, options and downloads are shared references; the manager holds observers
//   weakly.
// Failure: none of these operations fails; an unknown property is null.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values.h"

inline constexpr std::string_view VDDownloadKindAudiobook = "audiobook";
inline constexpr std::string_view VDDownloadKindMovie = "movie";
inline constexpr std::string_view VDDownloadKindMusic = "music";
inline constexpr std::string_view VDDownloadKindMusicVideo = "musicVideo";
inline constexpr std::string_view VDDownloadKindTelevisionEpisode = "televisionEpisode";
inline constexpr std::string_view VDDownloadKindVideoPodcast = "videoPodcast";
inline constexpr std::string_view VDDownloadKindPodcast = "podcast";

inline constexpr std::string_view VDDownloadPropertyBundleIdentifier = "bundleIdentifier";
// The persistent id of the library item being downloaded, a decimal string.
inline constexpr std::string_view VDDownloadPropertyLibraryItemIdentifier = "libraryItemIdentifier";
inline constexpr std::string_view VDDownloadPropertyDownloadPhase = "downloadPhase";

// The phases of a download. One that is finished or cancelled is a download no longer.
inline constexpr std::string_view VDDownloadPhaseWaiting = "waiting";
inline constexpr std::string_view VDDownloadPhaseDownloading = "downloading";
inline constexpr std::string_view VDDownloadPhasePaused = "paused";
// Everything is there; only the rename and the library's commit remain.
inline constexpr std::string_view VDDownloadPhaseInstalling = "installing";
inline constexpr std::string_view VDDownloadPhaseFailed = "failed";

class VDDownload {
public:
    virtual ~VDDownload() = default;
    virtual platform::Value valueForProperty(std::string_view property) const = 0;
    // The manager's own number of the download; kept over restarts, never reused.
    virtual std::int64_t persistentIdentifier() const = 0;
    // One of the phases above.
    virtual std::string downloadPhaseIdentifier() const = 0;
    virtual std::string description() const = 0;
};

class VDDownloadManager;

enum class VDDownloadManagerObserverOperation {
    downloadStatesDidChange,
    activeDownloadsDidChange,
    downloadsDidChange,
    networkUsageDidChange,
};

// Every operation is optional; the manager asks before it calls. The default bodies throw
// ORUnimplementedOperation.
class VDDownloadManagerObserver {
public:
    virtual ~VDDownloadManagerObserver() = default;
    virtual bool respondsTo(VDDownloadManagerObserverOperation operation) const = 0;

    // downloadManager:downloadStatesDidChange:  In the order of the changes, each download as it
    // was after its change; one that changed twice stands there twice.
    virtual void downloadManagerDownloadStatesDidChange(
        VDDownloadManager& manager, const std::vector<std::shared_ptr<VDDownload>>& downloads);
    // Which downloads are downloading or installing.
    virtual void downloadManagerActiveDownloadsDidChange(VDDownloadManager& manager);
    // Which downloads there are.
    virtual void downloadManagerDownloadsDidChange(VDDownloadManager& manager);
};

class VDDownloadManagerOptions {
public:
    static std::shared_ptr<VDDownloadManagerOptions> make();

    virtual ~VDDownloadManagerOptions() = default;
    // Only downloads of these kinds are seen.
    virtual void setDownloadKinds(const std::vector<std::string>& kinds) = 0;
    virtual void setPrefetchedDownloadProperties(const std::vector<std::string>& properties) = 0;
};

class VDDownloadManager {
public:
    static std::shared_ptr<VDDownloadManager> initWithManagerOptions(
        std::shared_ptr<VDDownloadManagerOptions> options);

    virtual ~VDDownloadManager() = default;
    virtual void addObserver(std::weak_ptr<VDDownloadManagerObserver> observer) = 0;
    // The downloads in hand, oldest first.
    virtual std::vector<std::shared_ptr<VDDownload>> downloads() = 0;
};

// Classes of files that the manifest tells apart.
// Belongs in a backup: no store can be asked for it again.
inline constexpr std::int64_t VDDownloadFileClassBackup = 2;

// Which files the store downloads put on the device, by class.
class VDDownloadFileManifest {
public:
    using PathsHandler = std::function<void(const std::optional<std::vector<std::string>>& paths)>;

    // As new makes it: of manifest type 0.
    static std::shared_ptr<VDDownloadFileManifest> make();
    // The type chooses the manifest; 0 is that of the media files.
    static std::shared_ptr<VDDownloadFileManifest> initWithManifestType(std::int64_t manifestType);

    virtual ~VDDownloadFileManifest() = default;
    // getPathsForFilesWithClass:completionBlock:  Absolute device paths; absent when there is no
    // answer. Called back once, on a thread of the manifest's own, also when the manifest has been
    // released meanwhile.
    virtual void getPathsForFilesWithClass(std::int64_t fileClass,
                                           PathsHandler completionBlock) = 0;
    // Makes the manifest anew from what lies in the directory of purchases. Called back once, on a
    // thread of the manifest's own, when it is done.
    virtual void rebuildManifestWithCompletionBlock(std::function<void()> completionBlock) = 0;
};

// What the framework implements of this header; installed in the Platform.
class StoreDownloadServices {
public:
    virtual ~StoreDownloadServices() = default;
    virtual std::shared_ptr<VDDownloadManagerOptions> makeManagerOptions() = 0;
    virtual std::shared_ptr<VDDownloadManager> makeManager(
        std::shared_ptr<VDDownloadManagerOptions> options) = 0;
    virtual std::shared_ptr<VDDownloadFileManifest> makeFileManifest(std::int64_t manifestType) = 0;
};
