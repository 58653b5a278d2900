#include "platform/media_library.h"

#include "platform/platform.h"

namespace {

MediaLibraryFramework& framework() {
    return platform::Platform::current().mediaLibrary();
}

}  // namespace

std::shared_ptr<KV3Korvane> KV3Korvane::sharedLibrary() {
    return framework().sharedLibrary();
}

std::string KV3Korvane::sharedLibraryDatabasePath() {
    return framework().sharedLibraryDatabasePath();
}

KVMediaLibraryService& KVMediaLibraryService::sharedMediaLibraryService() {
    return framework().mediaLibraryService();
}

std::shared_ptr<KV3Track> KV3Track::newWithPersistentID(
    std::int64_t persistentID, const std::shared_ptr<KV3Korvane>& library) {
    return framework().trackWithPersistentID(persistentID, library);
}

std::shared_ptr<KV3Track> KV3Track::anyInLibrary(const std::shared_ptr<KV3Korvane>& library,
                                                 const KV3Predicate& predicate) {
    return framework().anyTrack(library, predicate);
}

std::shared_ptr<KV3TrackQuery> KV3Track::queryWithLibrary(
    const std::shared_ptr<KV3Korvane>& library, const KV3Predicate& predicate,
    const std::vector<KV3OrderingTerm>& orderingTerms) {
    return framework().trackQuery(library, predicate, orderingTerms);
}

std::shared_ptr<KV3TrackQuery> KV3Track::queryWithLibrary(
    const std::shared_ptr<KV3Korvane>& library, const KV3Predicate& predicate) {
    return framework().trackQuery(library, predicate, {});
}

bool KV3Track::unlinkRedownloadableAssetsFromLibrary(
    const std::shared_ptr<KV3Korvane>& library, const std::vector<std::int64_t>& persistentIDs) {
    return framework().unlinkRedownloadableAssets(library, persistentIDs);
}

std::vector<std::int64_t> KV3Container::autoCreatedBuiltInSmartPlaylistsPIDs(
    const std::shared_ptr<KV3Korvane>& library) {
    return framework().autoCreatedBuiltInSmartPlaylistsPIDs(library);
}

bool KV3Container::populateDynamicContainersInLibrary(const std::shared_ptr<KV3Korvane>& library,
                                                      bool createBuiltinSmartPlaylists) {
    return framework().populateDynamicContainers(library, createBuiltinSmartPlaylists);
}

bool KV3Container::deleteAutoCreatedBuiltInSmartPlaylistsPIDs(
    const std::vector<std::int64_t>& persistentIDs, const std::shared_ptr<KV3Korvane>& library) {
    return framework().deleteAutoCreatedBuiltInSmartPlaylists(persistentIDs, library);
}

std::shared_ptr<KV3Container> KV3Container::initWithPersistentID(
    std::int64_t persistentID, const std::shared_ptr<KV3Korvane>& library) {
    return framework().containerWithPersistentID(persistentID, library);
}

std::shared_ptr<KV3QORXExportSession> KV3QORXExportSession::initWithLibrary(
    const std::shared_ptr<KV3Korvane>& library,
    const std::shared_ptr<platform::OutputStream>& outputStream) {
    return framework().makeExportSession(library, outputStream);
}

KV3ArtworkConfiguration& KV3ArtworkConfiguration::systemConfiguration() {
    return framework().artworkConfiguration();
}

std::string KV3ArtworkRelativePathFromToken(const std::string& token) {
    return framework().artworkRelativePathFromToken(token);
}

bool KV3ArtworkHasOriginalArtwork(const std::string& relativePath) {
    return framework().artworkHasOriginalArtwork(relativePath);
}

std::string KV3ArtworkTokenForChapterArtwork(std::int64_t persistentID, double seconds) {
    return framework().artworkTokenForChapterArtwork(persistentID, seconds);
}

std::int64_t KV3CreateIntegerUUID() {
    return framework().createIntegerUUID();
}

void KVTSChapterTOC::enumerateChapterTimesInFlattenedChapterData(
    const platform::Data& data, const std::function<void(double seconds)>& block) {
    framework().enumerateChapterTimes(data, block);
}

void KVTSChapterTOC::enumerateArtworkCacheIDsInFlattenedChapterData(
    const platform::Data& data,
    const std::function<void(const std::string& cacheID, bool& stop)>& block) {
    framework().enumerateChapterArtworkCacheIDs(data, block);
}
