#include "tests/support/recording_media_library.h"

#include <stdexcept>

#include "tests/support/track_predicates.h"

namespace support {
namespace {

platform::Array arrayOf(const std::vector<std::int64_t>& numbers) {
    return {numbers.begin(), numbers.end()};
}

class RecordingContainer : public KV3Container {
public:
    RecordingContainer(Recorder& recorder, std::int64_t persistentID, bool isBuiltIn)
        : _recorder(recorder), _persistentID(persistentID), _isBuiltIn(isBuiltIn) {}

    bool isBuiltInSmartPlaylist() override {
        _recorder.record("KV3Container.isBuiltInSmartPlaylist", {_persistentID});
        return _isBuiltIn;
    }

private:
    Recorder& _recorder;
    const std::int64_t _persistentID;
    const bool _isBuiltIn;
};

class RecordingExportSession : public KV3QORXExportSession {
public:
    RecordingExportSession(Recorder& recorder, std::shared_ptr<platform::OutputStream> stream,
                           std::string header, std::string trailer)
        : _recorder(recorder),
          _stream(std::move(stream)),
          _header(std::move(header)),
          _trailer(std::move(trailer)) {}

    bool begin() override {
        _recorder.record("KV3QORXExportSession.begin");
        return !write(_header);
    }
    bool end() override {
        _recorder.record("KV3QORXExportSession.end");
        return !write(_trailer);
    }
    platform::OptionalError exportPlaylist(std::int64_t persistentID) override {
        return exportRecord("KV3QORXExportSession.exportPlaylist", "P", persistentID);
    }
    platform::OptionalError exportPlaylistDeleted(std::int64_t persistentID) override {
        return exportRecord("KV3QORXExportSession.exportPlaylistDeleted", "p", persistentID);
    }
    platform::OptionalError exportTrack(std::int64_t persistentID) override {
        return exportRecord("KV3QORXExportSession.exportTrack", "T", persistentID);
    }
    platform::OptionalError exportTrackDeleted(std::int64_t persistentID) override {
        return exportRecord("KV3QORXExportSession.exportTrackDeleted", "t", persistentID);
    }

private:
    platform::OptionalError exportRecord(std::string_view call, std::string_view kind,
                                         std::int64_t persistentID) {
        if (_recorder.fails(call, {persistentID}))
            return platform::Error("KV3QORX", persistentID);
        return write(std::string(kind) + std::to_string(persistentID) + ";");
    }
    platform::OptionalError write(const std::string& text) {
        if (text.empty())
            return std::nullopt;
        return _stream->write(platform::Data(text.begin(), text.end()));
    }

    Recorder& _recorder;
    const std::shared_ptr<platform::OutputStream> _stream;
    const std::string _header;
    const std::string _trailer;
};

}  // namespace

void RecordingImportService::performImportFromSource(std::int64_t source,
                                                     const std::string& databasePath,
                                                     std::optional<platform::Data> trackData,
                                                     std::optional<platform::Data> playlistData,
                                                     const platform::Dictionary& options,
                                                     Completion completionHandler) {
    const bool isFault = _recorder.fails("KVMediaLibraryService.performImport",
                                         {source, databasePath, trackData, playlistData, options});
    if (performImportThrows)
        throw std::runtime_error("no import");
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

std::vector<KV3ArtworkSize> RecordingArtworkConfiguration::sizesToAutogenerateForMediaType(
    std::uint32_t mediaType, std::int64_t artworkType) {
    if (_recorder.fails("KV3ArtworkConfiguration.sizesToAutogenerate", {mediaType, artworkType}))
        return {};
    return sizes;
}

RecordingMediaLibrary::RecordingMediaLibrary(Recorder& recorder, VirtualScheduler& scheduler,
                                             MemoryFileSystem& files)
    : _recorder(recorder),
      _library(std::make_shared<RecordingLibrary>(recorder, files)),
      _importService(recorder, scheduler),
      _artworkConfiguration(recorder) {}

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

void RecordingMediaLibrary::enumerateChapterArtworkCacheIDs(
    const platform::Data& data,
    const std::function<void(const std::string& cacheID, bool& stop)>& block) {
    _recorder.record("KVTSChapterTOC.enumerateArtworkCacheIDs", {data});
    const auto found = chapterArtworkCacheIDs.find(data);
    if (found == chapterArtworkCacheIDs.end())
        return;
    bool stop = false;
    for (auto id = found->second.begin(); id != found->second.end() && !stop; ++id)
        block(*id, stop);
}

std::shared_ptr<KV3Container> RecordingMediaLibrary::containerWithPersistentID(
    std::int64_t persistentID, const std::shared_ptr<KV3Korvane>&) {
    _recorder.record("KV3Container.initWithPersistentID", {persistentID});
    return std::make_shared<RecordingContainer>(_recorder, persistentID,
                                                builtInSmartPlaylists.contains(persistentID));
}

std::shared_ptr<KV3QORXExportSession> RecordingMediaLibrary::makeExportSession(
    const std::shared_ptr<KV3Korvane>&,
    const std::shared_ptr<platform::OutputStream>& outputStream) {
    _recorder.record("KV3QORXExportSession.initWithLibrary", {outputStream->description()});
    return std::make_shared<RecordingExportSession>(_recorder, outputStream, exportHeader,
                                                    exportTrailer);
}

}  // namespace support
