// What the daemon itself needs of the device's library, beside what the plug-in uses: its state, a
// session's data, and the owner's view and edits.
//
// Any thread. Nothing throws but for lack of memory; what can fail says so.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "device/korvane/listing.h"
#include "platform/errors.h"

namespace orlith {

struct LibraryStatistics {
    std::uint64_t tracks = 0;
    std::uint64_t playlists = 0;
    std::uint64_t missingFiles = 0;  // tracks of the host whose file is to come
    bool backgroundSuppressed = false;
};

// One stream that preparation saved for the host.
struct SavedChanges {
    bool isPlaylists = false;  // else track metadata
    std::string path;          // absolute device path of a "QORX" file
};

// What is kept of former times: nothing reads it any more, and its owner may remove it.
struct KeptPlace {
    std::string path;         // absolute device path
    std::uint64_t bytes = 0;  // on the disk
};

struct EditOutcome {
    platform::OptionalError error;
    std::string title;  // of the track that was changed
};

class LibraryAccess {
public:
    virtual ~LibraryAccess() = default;

    virtual std::string libraryUID() = 0;
    virtual std::string anchor() = 0;  // "0" when no host has synced
    virtual std::int64_t revision() = 0;

    // Holds the sweep of orphaned files, and forgets a cancel of an earlier session.
    virtual void sessionBegan() = 0;
    virtual void sessionEnded() = 0;
    // What the host's data import reads, until it is unregistered.
    virtual void registerHostData(const std::string& devicePath) = 0;
    virtual void unregisterHostData() = 0;
    // Why the last import of a host's data or metadata update failed; absent: it did not.
    virtual platform::OptionalError lastHostImportFailure() = 0;
    // What the preparation with this session id saved, and the revision that it covers.
    virtual std::vector<SavedChanges> savedChanges(std::uint32_t torvelID) = 0;
    virtual std::int64_t coveredRevision() = 0;
    // Absolute paths of the media files of tracks that only the host's data keeps in the library.
    virtual std::vector<std::string> filesHeldByHostAlone() = 0;
    // Records what lies on disk and is not known, so that it is not asked for again.
    virtual void adoptFoundPictures() = 0;
    // Makes room for new pictures of the chapters of a track that start then: a picture that is
    // there is believed to be the right one.
    virtual void discardChapterPictures(std::int64_t syncID,
                                        const std::vector<std::uint64_t>& milliseconds) = 0;

    virtual LibraryStatistics statistics() = 0;
    // Those that take room.
    virtual std::vector<KeptPlace> keptPlaces() = 0;
    // In the library's own order; the callback answers false to stop.
    virtual void forEachTrack(const std::function<bool(const korvane::ListedTrack&)>& callback) = 0;
    virtual void forEachPlaylist(
        const std::function<bool(const korvane::ListedPlaylist&)>& callback) = 0;
    // `track` is a persistent id, a sync id, or an exact title that only one track has. `stars` is
    // 0 to 5.
    virtual EditOutcome rate(const std::string& track, std::uint32_t stars) = 0;
    virtual EditOutcome recordPlay(const std::string& track) = 0;
};

}  // namespace orlith
