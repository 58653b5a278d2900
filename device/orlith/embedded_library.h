// The embedded library as the daemon sees it.
//
// Any thread.
#pragma once

#include "device/korvane/activity_lock.h"
#include "device/korvane/background_tasks.h"
#include "device/korvane/import/import_service.h"
#include "device/korvane/library.h"
#include "device/orlith/library_access.h"
#include "device/system/rooted_file_system.h"

namespace orlith {

class EmbeddedLibrary final : public LibraryAccess {
public:
    // All of it outlives this.
    EmbeddedLibrary(korvane::Library& library, korvane::ImportService& imports,
                    korvane::BackgroundTasks& tasks, korvane::ActivityLock& activities,
                    device::RootedFileSystem& files)
        : _library(library),
          _imports(imports),
          _tasks(tasks),
          _activities(activities),
          _files(files) {}

    std::string libraryUID() override;
    std::string anchor() override;
    std::int64_t revision() override;
    void sessionBegan() override;
    void sessionEnded() override;
    void adoptFoundPictures() override;
    void discardChapterPictures(std::int64_t syncID,
                                const std::vector<std::uint64_t>& milliseconds) override;
    void registerHostData(const std::string& devicePath) override;
    void unregisterHostData() override;
    platform::OptionalError lastHostImportFailure() override;
    std::vector<SavedChanges> savedChanges(std::uint32_t torvelID) override;
    std::int64_t coveredRevision() override;
    std::vector<std::string> filesHeldByHostAlone() override;
    LibraryStatistics statistics() override;
    std::vector<KeptPlace> keptPlaces() override;
    void forEachTrack(const std::function<bool(const korvane::ListedTrack&)>& callback) override;
    void forEachPlaylist(
        const std::function<bool(const korvane::ListedPlaylist&)>& callback) override;
    EditOutcome rate(const std::string& track, std::uint32_t stars) override;
    EditOutcome recordPlay(const std::string& track) override;

private:
    korvane::Library& _library;
    korvane::ImportService& _imports;
    korvane::BackgroundTasks& _tasks;
    korvane::ActivityLock& _activities;
    device::RootedFileSystem& _files;
    korvane::ActivityLock::Hold _session;  // the session's threads, one at a time
};

}  // namespace orlith
