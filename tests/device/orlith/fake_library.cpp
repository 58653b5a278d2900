// The library of a fake device.
#include "tests/device/orlith/fake_device.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "tests/support/hand_off.h"

namespace orlith::testing {
namespace {

using platform::OptionalError;
using platform::Value;

class TrackHandle final : public KV3Track {
public:
    TrackHandle(FakeTracks& tracks, std::int64_t persistentID)
        : _tracks(tracks), _persistentID(persistentID) {}

    std::int64_t persistentID() const override { return _persistentID; }
    bool existsInLibrary() override {
        const std::scoped_lock lock(_tracks.mutex);
        return _tracks.byPersistentID(_persistentID) != nullptr;
    }
    std::optional<std::string> absoluteFilePath() override {
        const std::scoped_lock lock(_tracks.mutex);
        const FakeTrack* track = _tracks.byPersistentID(_persistentID);
        return track ? track->path : std::nullopt;
    }
    bool deleteFromLibrary() override { return false; }
    Value valueForProperty(KV3TrackProperty property) override {
        const std::scoped_lock lock(_tracks.mutex);
        const FakeTrack* track = _tracks.byPersistentID(_persistentID);
        if (!track)
            return {};
        switch (property) {
            case KV3TrackPropertyFilePath:
                return track->path;
            case KV3TrackPropertyNeedsRestore:
                return track->needsRestore;
            case KV3TrackPropertySyncArtworkToken:
                return track->artworkToken;
            case KV3TrackPropertyCloudArtworkToken:
                return track->cloudArtworkToken;
            case KV3TrackPropertyChapterData:
                return track->chapters.empty()
                           ? Value()
                           : Value(platform::Data(track->chapters.begin(), track->chapters.end()));
            case KV3TrackPropertyKenningChecksum:
                return track->kenningChecksum;
            case KV3TrackPropertyPendingKenningChecksum:
                return track->pendingKenningChecksum;
            default:
                return {};
        }
    }
    std::vector<Value> getValues(std::span<const KV3TrackProperty> properties) override {
        std::vector<Value> values;
        for (const KV3TrackProperty property : properties)
            values.push_back(valueForProperty(property));
        return values;
    }
    bool setValue(const Value& value, KV3TrackProperty property) override {
        const test::Turn turn;
        const std::scoped_lock lock(_tracks.mutex);
        FakeTrack* track = _tracks.byPersistentID(_persistentID);
        if (track && property == KV3TrackPropertyNeedsRestore)
            track->needsRestore = value.boolValue();
        return track != nullptr;
    }
    bool setValues(std::span<const Value>, std::span<const KV3TrackProperty>) override {
        return false;
    }
    bool populateLocationPropertiesWithPath(const std::string& path) override {
        const test::Turn turn;
        const std::scoped_lock lock(_tracks.mutex);
        FakeTrack* track = _tracks.byPersistentID(_persistentID);
        if (track)
            track->path = path;
        return track != nullptr;
    }
    bool needsVideoSnapshot() override { return false; }
    bool createVideoSnapshotAtTime(double) override { return false; }
    std::string description() const override { return "track"; }

private:
    FakeTracks& _tracks;
    std::int64_t _persistentID;
};

// Only transactions are used, and they do not need a connection.
class TransactionLibrary final : public KV3Korvane, private KV3DatabaseConnection {
public:
    Value valueForDatabaseProperty(std::string_view) override { return {}; }
    bool setValueForDatabaseProperty(const Value&, std::string_view) override { return true; }
    bool deleteDatabaseProperty(std::string_view) override { return true; }
    bool performReadOnlyDatabaseTransactionWithBlock(const TransactionBlock& block) override {
        return block(*this);
    }
    bool performDatabaseTransactionWithBlock(const TransactionBlock& block) override {
        return block(*this);
    }
    void databaseConnectionAllowingWrites(
        bool, const std::function<void(KV3DatabaseConnection&)>& block) override {
        block(*this);
    }
    void reconnectToDatabase() override {}
    std::int64_t currentRevision() override { return 7; }
    void saveTrackMetadataSinceRevision(std::int64_t, std::uint32_t) override {}
    void savePlaylistsSinceRevision(std::int64_t, std::uint32_t) override {}
    void notifyContentsDidChange() override {}
    void notifyDisplayValuesPropertyDidChange() override {}
    void updateTrackIntegrity() override {}
    bool removeSourceFromTracksWithPersistentIDs(std::int64_t,
                                                 const std::vector<std::int64_t>&) override {
        return true;
    }
    void setSyncGenerationID(std::int64_t) override {}
    void removeTombstonesForDeletedItems() override {}
    bool importExistingOriginalArtworkWithArtworkToken(const std::string&, std::int64_t,
                                                       std::int64_t, std::uint32_t) override {
        return true;
    }
    bool importOriginalArtworkFromFileURL(const std::string&, const std::string&, std::int64_t,
                                          std::int64_t, std::uint32_t) override {
        return true;
    }
    void deleteOrphanedArtworkWithSearchOptions(std::int64_t) override {}
    KV3AccountCacheDatabase& accountCacheDatabase() override { std::abort(); }
    Value libraryUID() override { return "uid"; }
    std::uint64_t countOfChangedPersistentIdsAfterRevision(std::int64_t, std::int64_t,
                                                           std::int64_t) override {
        return 0;
    }
    void enumeratePersistentIDsAfterRevision(std::int64_t, std::int64_t, std::int64_t,
                                             const RevisionBlock&) override {}
    void enumeratePersistentIDsAfterRevisionForMediaTypes(std::int64_t, std::int64_t, std::int64_t,
                                                          const Value&,
                                                          const RevisionBlock&) override {}
    bool removeSource(std::int64_t) override { return true; }
    std::optional<KV3Artwork> fetchItemArtworkForPersistentID(std::int64_t) override {
        return std::nullopt;
    }

private:
    std::unique_ptr<KV3QueryResult> executeQuery(std::string_view) override { return nullptr; }
    bool executeUpdate(std::string_view) override { return false; }
    bool executeUpdateWithParameters(std::string_view, std::span<const Value>,
                                     OptionalError*) override {
        return false;
    }
};

}  // namespace

FakeTrack* FakeTracks::bySyncID(std::int64_t syncID) {
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const FakeTrack& t) { return t.syncID == syncID; });
    return found == all.end() ? nullptr : &*found;
}

FakeTrack* FakeTracks::byPersistentID(std::int64_t persistentID) {
    const auto found = std::find_if(
        all.begin(), all.end(), [&](const FakeTrack& t) { return t.persistentID == persistentID; });
    return found == all.end() ? nullptr : &*found;
}

FakeTrack FakeTracks::get(std::int64_t syncID) {
    const std::scoped_lock lock(mutex);
    const FakeTrack* track = bySyncID(syncID);
    return track ? *track : FakeTrack();
}

FakeLibraryFramework::FakeLibraryFramework(FakeTracks& tracks)
    : _tracks(tracks), _library(std::make_shared<TransactionLibrary>()) {}
FakeLibraryFramework::~FakeLibraryFramework() = default;

std::shared_ptr<KV3Korvane> FakeLibraryFramework::sharedLibrary() {
    return _library;
}

KVMediaLibraryService& FakeLibraryFramework::mediaLibraryService() {
    std::abort();
}

std::shared_ptr<KV3Track> FakeLibraryFramework::trackWithPersistentID(
    std::int64_t persistentID, const std::shared_ptr<KV3Korvane>&) {
    return std::make_shared<TrackHandle>(_tracks, persistentID);
}

std::shared_ptr<KV3Track> FakeLibraryFramework::anyTrack(const std::shared_ptr<KV3Korvane>&,
                                                         const KV3Predicate& predicate) {
    const std::scoped_lock lock(_tracks.mutex);
    const FakeTrack* track = _tracks.bySyncID(predicate.value.int64Value());
    return std::make_shared<TrackHandle>(_tracks, track ? track->persistentID : 0);
}

bool FakeLibraryFramework::artworkHasOriginalArtwork(const std::string& relativePath) {
    const std::scoped_lock lock(_tracks.mutex);
    return std::any_of(_tracks.all.begin(), _tracks.all.end(), [&](const FakeTrack& track) {
        return track.artworkToken == relativePath && track.hasArtwork;
    });
}

void FakeLibraryFramework::enumerateChapterTimes(const platform::Data& data,
                                                 const std::function<void(double)>& block) {
    double seconds = 0;
    enumerateChapterArtworkCacheIDs(data, [&](const std::string&, bool&) { block(seconds++); });
}

void FakeLibraryFramework::enumerateChapterArtworkCacheIDs(
    const platform::Data& data, const std::function<void(const std::string&, bool&)>& block) {
    std::istringstream lines(std::string(data.begin(), data.end()));
    bool stop = false;
    for (std::string line; !stop && std::getline(lines, line);)
        block(line, stop);
}

KV3ArtworkConfiguration& FakeLibraryFramework::artworkConfiguration() {
    std::abort();
}

std::vector<std::string> FakeLibraryAccess::filesHeldByHostAlone() {
    test::takeOver();
    const std::scoped_lock lock(_tracks.mutex);
    std::vector<std::string> paths;
    for (const FakeTrack& track : _tracks.all)
        if (track.path)
            paths.push_back(*track.path);
    return paths;
}

void FakeLibraryAccess::forEachTrack(
    const std::function<bool(const korvane::ListedTrack&)>& callback) {
    test::takeOver();
    const std::scoped_lock lock(_tracks.mutex);
    for (const FakeTrack& track : _tracks.all) {
        korvane::ListedTrack row;
        row.persistentID = track.persistentID;
        row.syncID = track.syncID;
        row.title = "t\xffitle";
        row.mediaType = KV3MediaTypeTVEpisode | KV3MediaTypeMusic;
        if (!callback(row))
            return;
    }
}

void FakeLibraryAccess::forEachPlaylist(
    const std::function<bool(const korvane::ListedPlaylist&)>& callback) {
    korvane::ListedPlaylist playlist;
    playlist.persistentID = 1;
    playlist.name = "long";
    playlist.tracks.assign(250000, 5);
    callback(playlist);
}

EditOutcome FakeLibraryAccess::rate(const std::string& track, std::uint32_t stars) {
    if (track != "5")
        return {platform::Error(platform::POSIXErrorDomain, ENOENT, "no such track"), {}};
    return {std::nullopt, std::string(stars, '*')};
}

}  // namespace orlith::testing
