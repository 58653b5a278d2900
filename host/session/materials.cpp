#include "host/session/materials.h"

#include <set>

#include "common/chapters/chapters.h"
#include "host/scan/file_names.h"
#include "platform/media_library.h"

namespace host {

namespace {

using platform::OptionalError;

class Maker {
public:
    Maker(const MaterialInput& input, MediaWorkers& workers, FolderMaterials& materials)
        : _input(input),
          _files(input.state.files),
          _preparer(input.folder, input.cacheDirectory, workers),
          _folderImages(input.images),
          _materials(materials) {}

    OptionalError run() {
        _materials = FolderMaterials();
        _materials.tracks.resize(_files.size());
        _materials.covers.resize(_files.size());
        _materials.chapterPictures.resize(_files.size());
        if (auto error = makeCovers())
            return error;
        if (auto error = makeChapters())
            return error;
        makeChapterTables();
        nameSnapshots();
        if (_input.withRecommendations)
            makeRecommendations();
        return std::nullopt;
    }

private:
    // The best candidate of each track first; where it is refused, the next one.
    OptionalError makeCovers() {
        std::vector<std::vector<ArtworkCandidate>> candidates(_files.size());
        std::vector<std::size_t> open;
        for (std::size_t i = 0; i < _files.size(); ++i) {
            if (_files[i].presence != Presence::Present)
                continue;
            candidates[i] = artworkCandidates(_files[i].media, _folderImages);
            // Chapter pictures travel with a cover only, so without one the first stands in.
            for (ArtworkCandidate& chapter : chapterArtworkCandidates(_files[i].media))
                candidates[i].push_back(std::move(chapter));
            if (!candidates[i].empty())
                open.push_back(i);
        }
        for (std::size_t round = 0; !open.empty(); ++round) {
            std::vector<ArtworkCandidate> batch;
            for (const std::size_t file : open)
                batch.push_back(candidates[file][round]);
            std::vector<PreparedArtwork> prepared;
            if (auto error = _preparer.prepare(batch, prepared, _input.stop))
                return error;
            std::vector<std::size_t> refused;
            for (std::size_t i = 0; i < open.size(); ++i) {
                if (prepared[i].usable()) {
                    takeCover(open[i], prepared[i]);
                    continue;
                }
                note(batch[i], prepared[i].reason);
                if (round + 1 < candidates[open[i]].size())
                    refused.push_back(open[i]);
            }
            open = std::move(refused);
        }
        return std::nullopt;
    }

    void takeCover(std::size_t place, const PreparedArtwork& picture) {
        const KnownFile& file = _files[place];
        _materials.covers[place] = {picture.path, picture.size};
        // A picture that tracks share is sent once; one with chapters needs its own, because its
        // chapters' pictures come with it.
        _materials.tracks[place].artworkToken =
            file.media.chapters.empty()
                ? picture.token
                : artworkTokenOfTrack(picture.hash, file.globalId, file.media.chapters);
    }

    OptionalError makeChapters() {
        std::vector<ArtworkCandidate> batch;
        std::vector<std::size_t> owners;
        for (std::size_t i = 0; i < _files.size(); ++i) {
            if (_files[i].presence != Presence::Present || _files[i].media.chapters.empty())
                continue;
            if (_materials.covers[i].path.empty())
                continue;
            for (ArtworkCandidate& candidate : chapterArtworkCandidates(_files[i].media)) {
                batch.push_back(std::move(candidate));
                owners.push_back(i);
            }
        }
        std::vector<PreparedArtwork> prepared;
        if (!batch.empty())
            if (auto error = _preparer.prepare(batch, prepared, _input.stop))
                return error;
        for (std::size_t i = 0; i < batch.size(); ++i) {
            const auto chapter = static_cast<std::size_t>(batch[i].chapter);
            if (!prepared[i].usable()) {
                note(batch[i], prepared[i].reason);
                continue;
            }
            const auto& chapters = _files[owners[i]].media.chapters;
            _materials.chapterPictures[owners[i]].push_back(
                {static_cast<std::uint64_t>(chapters[chapter].startMilliseconds),
                 {prepared[i].path, prepared[i].size}});
        }
        return std::nullopt;
    }

    // Companions find a chapter's picture by a name that is the same on every device; one that does
    // not travel has none.
    std::vector<common::Chapter> chapterTable(std::size_t place) const {
        std::set<std::uint64_t> illustrated;
        for (const ChapterPicture& chapter : _materials.chapterPictures[place])
            illustrated.insert(chapter.milliseconds);
        std::vector<common::Chapter> table;
        for (const Chapter& chapter : _files[place].media.chapters) {
            const auto start = static_cast<std::uint64_t>(chapter.startMilliseconds);
            const bool travels = chapter.picture && illustrated.contains(start);
            table.push_back({start, displayText(chapter.title),
                             travels ? common::hexText(*chapter.picture) : std::string()});
        }
        return table;
    }

    void makeChapterTables() {
        for (std::size_t i = 0; i < _files.size(); ++i) {
            const std::vector<Chapter>& chapters = _files[i].media.chapters;
            if (_files[i].presence != Presence::Present || chapters.empty())
                continue;
            if (const auto bytes = common::encodeChapters(chapterTable(i)))
                _materials.tracks[i].chapterData.assign(bytes->begin(), bytes->end());
            else
                _materials.failures.push_back(
                    {_files[i].media.stamp.path, "its chapters are too many for the device"});
        }
    }

    // Episodes and home videos without a cover get one from the film itself, on the device.
    void nameSnapshots() {
        constexpr std::uint32_t snapshotKinds = KV3MediaTypeTVEpisode | KV3MediaTypeHomeVideo;
        for (std::size_t i = 0; i < _files.size(); ++i)
            if (_files[i].presence == Presence::Present && _files[i].media.hasVideo &&
                (_files[i].media.mediaType & snapshotKinds) != 0 &&
                _materials.tracks[i].artworkToken.empty())
                _materials.tracks[i].artworkToken = artworkTokenOfSnapshot(_files[i].globalId);
    }

    void makeRecommendations() {
        std::vector<KenningTrack> tracks;
        std::vector<std::size_t> places;
        std::unordered_map<std::int64_t, std::size_t> bySyncId;
        for (std::size_t i = 0; i < _files.size(); ++i) {
            if (_files[i].presence != Presence::Present)
                continue;
            bySyncId[_files[i].syncId] = tracks.size();
            tracks.push_back({_files[i].globalId, &_files[i].media});
            places.push_back(i);
        }
        std::vector<std::vector<std::size_t>> playlists;
        for (const KnownPlaylist& playlist : _input.state.playlists) {
            std::vector<std::size_t>& items = playlists.emplace_back();
            for (const std::int64_t syncId : playlist.items)
                if (const auto found = bySyncId.find(syncId); found != bySyncId.end())
                    items.push_back(found->second);
        }
        for (KenningRecord& record : makeKenningRecords(tracks, playlists))
            _materials.recommendations.emplace(record.kenningId, std::move(record));
        for (const std::size_t place : places) {
            const auto found = _materials.recommendations.find(_files[place].globalId);
            if (found != _materials.recommendations.end())
                _materials.tracks[place].kenningChecksum = found->second.checksum;
        }
    }

    // Each picture once, however many tracks would show it.
    void note(const ArtworkCandidate& candidate, const std::string& reason) {
        if (_noted.emplace(candidate.file.path, candidate.chapter).second)
            _materials.failures.push_back(
                {candidate.file.path, "its picture: " + reason, ItemFailure::Kind::Picture});
    }

    const MaterialInput& _input;
    const std::vector<KnownFile>& _files;
    ArtworkPreparer _preparer;
    FolderImages _folderImages;
    FolderMaterials& _materials;
    std::set<std::pair<std::string, std::int32_t>> _noted;
};

}  // namespace

OptionalError makeMaterials(const MaterialInput& input, MediaWorkers& workers,
                            FolderMaterials& materials) {
    return Maker(input, workers, materials).run();
}

std::string nextStepAfter(const ItemFailure& failure) {
    switch (failure.kind) {
        case ItemFailure::Kind::File:
            return "repair or replace it, or have a rule in orlith-rules.toml ignore it";
        case ItemFailure::Kind::Playlist:
            return "correct the playlist, or take the entry out";
        case ItemFailure::Kind::Picture:
            return "put a picture in its place that can be read; the track is there without one";
        case ItemFailure::Kind::Transfer:
            return "sync again; it is sent first";
        case ItemFailure::Kind::Space:
            return "make room on the device and sync again; it is sent first";
    }
    return "";
}

}  // namespace host
