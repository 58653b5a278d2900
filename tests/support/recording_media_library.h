// The media-library framework: the shared library, the import service, artwork and chapters.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/recording_library.h"
#include "tests/support/virtual_scheduler.h"

namespace support {

class RecordingImportService : public KVMediaLibraryService {
public:
    RecordingImportService(Recorder& recorder, VirtualScheduler& scheduler)
        : _recorder(recorder), _scheduler(scheduler) {}

    // What every import answers, after how long; the same for a cancel.
    bool success = true;
    platform::OptionalError error;
    platform::Nanoseconds importTime = 0;
    platform::Nanoseconds cancelTime = 0;
    // As when memory runs out: a std::runtime_error, and no answer.
    bool performImportThrows = false;
    // Run on the service's thread just before an import answers.
    std::function<void()> whileImporting;

    void performImportFromSource(std::int64_t source, const std::string& databasePath,
                                 std::optional<platform::Data> trackData,
                                 std::optional<platform::Data> playlistData,
                                 const platform::Dictionary& options,
                                 Completion completionHandler) override;
    void cancelImportOperation(std::int64_t source,
                               std::function<void()> completionHandler) override;

private:
    Recorder& _recorder;
    VirtualScheduler& _scheduler;
};

class RecordingArtworkConfiguration : public KV3ArtworkConfiguration {
public:
    explicit RecordingArtworkConfiguration(Recorder& recorder) : _recorder(recorder) {}

    // What is answered for every media type.
    std::vector<KV3ArtworkSize> sizes;

    std::vector<KV3ArtworkSize> sizesToAutogenerateForMediaType(std::uint32_t mediaType,
                                                                std::int64_t artworkType) override;

private:
    Recorder& _recorder;
};

class RecordingMediaLibrary : public MediaLibraryFramework {
public:
    RecordingMediaLibrary(Recorder& recorder, VirtualScheduler& scheduler, MemoryFileSystem& files);

    RecordingLibrary& library() { return *_library; }
    RecordingImportService& importService() { return _importService; }

    // What a test sets up.
    std::vector<std::int64_t> autoCreatedSmartPlaylists;
    std::set<std::string> tokensWithOriginalArtwork;
    std::map<platform::Data, std::vector<double>> chapterTimes;  // by chapter data
    std::map<platform::Data, std::vector<std::string>> chapterArtworkCacheIDs;
    std::int64_t nextIntegerUUID = 4711;
    std::set<std::int64_t> builtInSmartPlaylists;  // by persistent id
    // What an export session writes at its begin and at its end.
    std::string exportHeader = "[";
    std::string exportTrailer = "]";

    std::shared_ptr<KV3Korvane> sharedLibrary() override;
    std::string sharedLibraryDatabasePath() override;
    KVMediaLibraryService& mediaLibraryService() override { return _importService; }
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
    // "artwork/" and the token; "" for "".
    std::string artworkRelativePathFromToken(const std::string& token) override;
    bool artworkHasOriginalArtwork(const std::string& relativePath) override;
    // e.g. "chapter-5-12.5".
    std::string artworkTokenForChapterArtwork(std::int64_t persistentID, double seconds) override;
    std::int64_t createIntegerUUID() override;
    void enumerateChapterTimes(const platform::Data& data,
                               const std::function<void(double seconds)>& block) override;
    std::shared_ptr<KV3Container> containerWithPersistentID(
        std::int64_t persistentID, const std::shared_ptr<KV3Korvane>& library) override;
    // Writes "P5;" for a playlist, "p5;" for a deleted one, "T5;" and "t5;" for tracks. A fault is
    // an error of the domain "KV3QORX" with the id as its code.
    std::shared_ptr<KV3QORXExportSession> makeExportSession(
        const std::shared_ptr<KV3Korvane>& library,
        const std::shared_ptr<platform::OutputStream>& outputStream) override;
    void enumerateChapterArtworkCacheIDs(
        const platform::Data& data,
        const std::function<void(const std::string& cacheID, bool& stop)>& block) override;
    RecordingArtworkConfiguration& artworkConfiguration() override { return _artworkConfiguration; }

private:
    Recorder& _recorder;
    const std::shared_ptr<RecordingLibrary> _library;
    RecordingImportService _importService;
    RecordingArtworkConfiguration _artworkConfiguration;
};

}  // namespace support
