#include "device/korvane/framework.h"

#include "common/chapters/chapters.h"
#include "common/random_id.h"
#include "device/korvane/container.h"
#include "device/korvane/export/export_session.h"
#include "device/korvane/saver.h"
#include "device/korvane/track.h"
#include "device/korvane/track_query.h"

namespace korvane {

Framework::Framework(std::shared_ptr<Library> library, FrameworkParts parts)
    : _library(std::move(library)), _parts(std::move(parts)) {
    _library->setSaver(_parts.saver.get());
}

Framework::~Framework() {
    _library->setSaver(nullptr);
}

std::string Framework::sharedLibraryDatabasePath() {
    return _library->configuration().databasePath;
}

std::shared_ptr<KV3Track> Framework::trackWithPersistentID(std::int64_t persistentID,
                                                           const std::shared_ptr<KV3Korvane>&) {
    return std::make_shared<Track>(persistentID, _library);
}

std::shared_ptr<KV3Track> Framework::anyTrack(const std::shared_ptr<KV3Korvane>&,
                                              const KV3Predicate& predicate) {
    return std::make_shared<Track>(anyTrackMatching(*_library, predicate), _library);
}

std::shared_ptr<KV3TrackQuery> Framework::trackQuery(
    const std::shared_ptr<KV3Korvane>&, const KV3Predicate& predicate,
    const std::vector<KV3OrderingTerm>& orderingTerms) {
    return std::make_shared<TrackQuery>(_library, predicate, orderingTerms);
}

bool Framework::unlinkRedownloadableAssets(const std::shared_ptr<KV3Korvane>&,
                                           const std::vector<std::int64_t>& persistentIDs) {
    return _library->unlinkRedownloadableAssets(persistentIDs);
}

std::vector<std::int64_t> Framework::autoCreatedBuiltInSmartPlaylistsPIDs(
    const std::shared_ptr<KV3Korvane>&) {
    return _library->autoCreatedBuiltInSmartPlaylistsPIDs();
}

bool Framework::populateDynamicContainers(const std::shared_ptr<KV3Korvane>&,
                                          bool createBuiltinSmartPlaylists) {
    return _library->populateDynamicContainers(createBuiltinSmartPlaylists);
}

bool Framework::deleteAutoCreatedBuiltInSmartPlaylists(
    const std::vector<std::int64_t>& persistentIDs, const std::shared_ptr<KV3Korvane>&) {
    return _library->deleteAutoCreatedBuiltInSmartPlaylists(persistentIDs);
}

std::string Framework::artworkRelativePathFromToken(const std::string& token) {
    return artworkRelativePath(token);
}

bool Framework::artworkHasOriginalArtwork(const std::string& relativePath) {
    return _library->artwork().hasOriginal(relativePath);
}

std::string Framework::artworkTokenForChapterArtwork(std::int64_t persistentID, double seconds) {
    return chapterArtworkToken(persistentID, seconds);
}

std::int64_t Framework::createIntegerUUID() {
    return common::randomPositiveId();
}

void Framework::enumerateChapterTimes(const platform::Data& data,
                                      const std::function<void(double seconds)>& block) {
    const auto chapters = common::decodeChapters(data);
    if (!chapters)
        return;
    for (const common::Chapter& chapter : *chapters)
        block(static_cast<double>(chapter.startMs) / 1000.0);
}

void Framework::enumerateChapterArtworkCacheIDs(
    const platform::Data& data,
    const std::function<void(const std::string& cacheID, bool& stop)>& block) {
    const auto chapters = common::decodeChapters(data);
    if (!chapters)
        return;
    bool stop = false;
    for (auto chapter = chapters->begin(); chapter != chapters->end() && !stop; ++chapter)
        block(chapter->artworkCacheID, stop);
}

std::shared_ptr<KV3Container> Framework::containerWithPersistentID(
    std::int64_t persistentID, const std::shared_ptr<KV3Korvane>&) {
    return std::make_shared<Container>(persistentID, _library);
}

std::shared_ptr<KV3QORXExportSession> Framework::makeExportSession(
    const std::shared_ptr<KV3Korvane>&,
    const std::shared_ptr<platform::OutputStream>& outputStream) {
    return std::make_shared<ExportSession>(_library, outputStream);
}

}  // namespace korvane
