#include "tests/support/recording_media_library.h"

#include "tests/support/track_predicates.h"

namespace support {
namespace {

platform::Array arrayOf(const std::vector<std::int64_t>& numbers) {
    return {numbers.begin(), numbers.end()};
}

}  // namespace

void RecordingImportService::performImportFromSource(std::int64_t source,
                                                     const std::string& databasePath,
                                                     std::optional<platform::Data> trackData,
                                                     std::optional<platform::Data> playlistData,
                                                     const platform::Dictionary& options,
                                                     Completion completionHandler) {
    const bool isFault = _recorder.fails("KVMediaLibraryService.performImport",
                                         {source, databasePath, trackData, playlistData, options});
    _scheduler.post(importTime, [this, isFault, completionHandler] {
        if (whileImporting)
            whileImporting();
        if (isFault)
            completionHandler(false, platform::Error(KVMediaLibraryServiceErrorDomain,
                                                     KVMediaLibraryServiceErrorDatabase));
        else
            completionHandler(success, error);
    });
}

void RecordingImportService::cancelImportOperation(std::int64_t source,
                                                   std::function<void()> completionHandler) {
    _recorder.record("KVMediaLibraryService.cancelImportOperation", {source});
    _scheduler.post(cancelTime, [this, completionHandler = std::move(completionHandler)] {
        _recorder.record("cancelled");
        completionHandler();
    });
}

RecordingMediaLibrary::RecordingMediaLibrary(Recorder& recorder, VirtualScheduler& scheduler,
                                             MemoryFileSystem& files)
    : _recorder(recorder),
      _library(std::make_shared<RecordingLibrary>(recorder, files)),
      _importService(recorder, scheduler) {}

std::shared_ptr<KV3Korvane> RecordingMediaLibrary::sharedLibrary() {
    _recorder.record("KV3Korvane.sharedLibrary");
    return _library;
}

std::string RecordingMediaLibrary::sharedLibraryDatabasePath() {
    return "/var/mobile/Media/Tessel_Control/library.db";
}

std::shared_ptr<KV3Track> RecordingMediaLibrary::trackWithPersistentID(
    std::int64_t persistentID, const std::shared_ptr<KV3Korvane>&) {
    _recorder.record("KV3Track.newWithPersistentID", {persistentID});
    return makeTrack(persistentID, _library);
}

std::shared_ptr<KV3Track> RecordingMediaLibrary::anyTrack(const std::shared_ptr<KV3Korvane>&,
                                                          const KV3Predicate& predicate) {
    if (_recorder.fails("KV3Track.anyInLibrary", {describe(predicate)}))
        return makeTrack(0, _library);
    return findTrack(predicate, _library);
}

std::shared_ptr<KV3TrackQuery> RecordingMediaLibrary::trackQuery(
    const std::shared_ptr<KV3Korvane>&, const KV3Predicate& predicate,
    const std::vector<KV3OrderingTerm>& orderingTerms) {
    platform::Array order;
    for (const KV3OrderingTerm& term : orderingTerms)
        order.emplace_back(propertyName(term.property));
    _recorder.record("KV3Track.queryWithLibrary", {describe(predicate), order});
    return makeTrackQuery(predicate, orderingTerms, _library);
}

bool RecordingMediaLibrary::unlinkRedownloadableAssets(
    const std::shared_ptr<KV3Korvane>&, const std::vector<std::int64_t>& persistentIDs) {
    return !_recorder.fails("KV3Track.unlinkRedownloadableAssets", {arrayOf(persistentIDs)});
}

std::vector<std::int64_t> RecordingMediaLibrary::autoCreatedBuiltInSmartPlaylistsPIDs(
    const std::shared_ptr<KV3Korvane>&) {
    if (_recorder.fails("KV3Container.autoCreatedBuiltInSmartPlaylistsPIDs"))
        return {};
    return autoCreatedSmartPlaylists;
}

bool RecordingMediaLibrary::populateDynamicContainers(const std::shared_ptr<KV3Korvane>&,
                                                      bool createBuiltinSmartPlaylists) {
    return !_recorder.fails("KV3Container.populateDynamicContainers",
                            {createBuiltinSmartPlaylists});
}

bool RecordingMediaLibrary::deleteAutoCreatedBuiltInSmartPlaylists(
    const std::vector<std::int64_t>& persistentIDs, const std::shared_ptr<KV3Korvane>&) {
    return !_recorder.fails("KV3Container.deleteAutoCreatedBuiltInSmartPlaylists",
                            {arrayOf(persistentIDs)});
}

std::string RecordingMediaLibrary::artworkRelativePathFromToken(const std::string& token) {
    _recorder.record("KV3ArtworkRelativePathFromToken", {token});
    return token.empty() ? "" : "artwork/" + token;
}

bool RecordingMediaLibrary::artworkHasOriginalArtwork(const std::string& relativePath) {
    if (_recorder.fails("KV3ArtworkHasOriginalArtwork", {relativePath}))
        return false;
    const std::string_view prefix = "artwork/";
    return relativePath.starts_with(prefix) &&
           tokensWithOriginalArtwork.contains(relativePath.substr(prefix.size()));
}

std::string RecordingMediaLibrary::artworkTokenForChapterArtwork(std::int64_t persistentID,
                                                                 double seconds) {
    _recorder.record("KV3ArtworkTokenForChapterArtwork", {persistentID, seconds});
    return "chapter-" + std::to_string(persistentID) + "-" + platform::Value(seconds).description();
}

std::int64_t RecordingMediaLibrary::createIntegerUUID() {
    _recorder.record("KV3CreateIntegerUUID");
    return nextIntegerUUID;
}

void RecordingMediaLibrary::enumerateChapterTimes(
    const platform::Data& data, const std::function<void(double seconds)>& block) {
    _recorder.record("KVTSChapterTOC.enumerateChapterTimes", {data});
    const auto found = chapterTimes.find(data);
    if (found == chapterTimes.end())
        return;
    for (const double seconds : found->second)
        block(seconds);
}

}  // namespace support
