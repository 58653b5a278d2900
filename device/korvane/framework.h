// Purpose: the media library as bundles reach it: the class operations of
//          platform/media_library.h over one library.
// Calling thread: any.
// Ownership: owns the library, its import service and its saver.
// Failure: as platform/media_library.h says; what opening needs is found out before it is made.
#pragma once

#include <functional>
#include <memory>

#include "device/korvane/artwork_sizes.h"
#include "device/korvane/library.h"

namespace korvane {

class Saver;

// The pieces that work on the library and are made with it.
struct FrameworkParts {
    std::unique_ptr<KVMediaLibraryService> importService;
    std::unique_ptr<Saver> saver;
};

class Framework final : public MediaLibraryFramework {
public:
    Framework(std::shared_ptr<Library> library, FrameworkParts parts);
    ~Framework() override;

    Library& library() { return *_library; }

    std::shared_ptr<KV3Korvane> sharedLibrary() override { return _library; }
    std::string sharedLibraryDatabasePath() override;
    KVMediaLibraryService& mediaLibraryService() override { return *_parts.importService; }

    // Their `library` is the shared one; there is no other.
    std::shared_ptr<KV3Track> trackWithPersistentID(
        std::int64_t persistentID, const std::shared_ptr<KV3Korvane>& library) override;
    std::shared_ptr<KV3Track> anyTrack(const std::shared_ptr<KV3Korvane>& library,
                                       const KV3Predicate& predicate) override;
    std::shared_ptr<KV3TrackQuery> trackQuery(
        const std::shared_ptr<KV3Korvane>& library, const KV3Predicate& predicate,
        const std::vector<KV3OrderingTerm>& orderingTerms) override;
    bool unlinkRedownloadableAssets(const std::shared_ptr<KV3Korvane>& library,
                                    const std::vector<std::int64_t>& persistentIDs) override;
    std::vector<std::int64_t> autoCreatedBuiltInSmartPlaylistsPIDs(
        const std::shared_ptr<KV3Korvane>& library) override;
    bool populateDynamicContainers(const std::shared_ptr<KV3Korvane>& library,
                                   bool createBuiltinSmartPlaylists) override;
    bool deleteAutoCreatedBuiltInSmartPlaylists(
        const std::vector<std::int64_t>& persistentIDs,
        const std::shared_ptr<KV3Korvane>& library) override;

    std::string artworkRelativePathFromToken(const std::string& token) override;
    bool artworkHasOriginalArtwork(const std::string& relativePath) override;
    std::string artworkTokenForChapterArtwork(std::int64_t persistentID, double seconds) override;
    std::int64_t createIntegerUUID() override;
    void enumerateChapterTimes(const platform::Data& data,
                               const std::function<void(double seconds)>& block) override;
    void enumerateChapterArtworkCacheIDs(
        const platform::Data& data,
        const std::function<void(const std::string& cacheID, bool& stop)>& block) override;

    std::shared_ptr<KV3Container> containerWithPersistentID(
        std::int64_t persistentID, const std::shared_ptr<KV3Korvane>& library) override;
    std::shared_ptr<KV3QORXExportSession> makeExportSession(
        const std::shared_ptr<KV3Korvane>& library,
        const std::shared_ptr<platform::OutputStream>& outputStream) override;
    KV3ArtworkConfiguration& artworkConfiguration() override { return _artworkSizes; }

private:
    const std::shared_ptr<Library> _library;
    const FrameworkParts _parts;
    ArtworkSizes _artworkSizes;
};

}  // namespace korvane
