// A download manager: the downloads of some kinds, and those who watch them.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "device/downloads/download.h"
#include "platform/operating_system.h"

namespace downloads {

// Any thread, while nobody else does: an options object is filled before it is handed over.
class ManagerOptions final : public VDDownloadManagerOptions {
public:
    void setDownloadKinds(const std::vector<std::string>& kinds) override { _kinds = kinds; }
    // Nothing to do: a download always has all its properties at hand.
    void setPrefetchedDownloadProperties(const std::vector<std::string>&) override {}

    // Absent while no kinds were set: all are seen.
    const std::optional<std::vector<std::string>>& kinds() const { return _kinds; }

private:
    std::optional<std::vector<std::string>> _kinds;
};

// What happened to one download, or to the list.
struct DownloadChange {
    std::shared_ptr<VDDownload> changed;  // as it is now; null when only the list changed
    bool listChanged = false;
    bool activeChanged = false;
};

// Any thread.
class DownloadManager final : public VDDownloadManager,
                              public std::enable_shared_from_this<DownloadManager> {
public:
    using Listing = std::function<std::vector<DownloadRecord>()>;

    // `listing` gives every download, oldest first. `queue` is serial; observers are called on it.
    DownloadManager(std::optional<std::vector<std::string>> kinds, Listing listing,
                    std::shared_ptr<platform::WorkQueue> queue);

    void addObserver(std::weak_ptr<VDDownloadManagerObserver> observer) override;
    std::vector<std::shared_ptr<VDDownload>> downloads() override;

    bool seesKind(std::string_view kind) const;
    // Tells the observers soon; what happens until then goes into the same batch.
    void note(DownloadChange change);

private:
    void tellObservers();

    const std::optional<std::vector<std::string>> _kinds;
    const Listing _listing;
    const std::shared_ptr<platform::WorkQueue> _queue;

    std::mutex _mutex;  // protects what follows
    std::vector<std::weak_ptr<VDDownloadManagerObserver>> _observers;
    std::vector<DownloadChange> _batch;  // not empty: a job on the queue will deliver it
};

}  // namespace downloads
