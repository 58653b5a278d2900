// Pictures: recorded and gone, damaged, lacked by chapters, or there and nobody's.
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "common/chapters/chapters.h"
#include "common/sqlite/database.h"
#include "device/korvane/artwork_rows.h"
#include "device/korvane/artwork_store.h"
#include "device/korvane/check/check_run.h"
#include "device/korvane/library.h"
#include "device/korvane/wanted_pictures.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

namespace {

constexpr char Again[] = ", and the next sync or mirror brings it again";

// A track whose chapters have pictures. Paths are relative to the originals.
struct ChapteredTrack {
    std::int64_t persistentID = 0;
    std::string title;
    std::vector<std::string> covers;
    // Of each chapter that has one: a host's picture lies under the chapter's time, a pulled one
    // under its name.
    std::vector<std::pair<std::string, std::string>> pictures;
};

struct Pictures {
    std::unordered_set<std::string> wanted;       // paths below the originals
    std::map<std::string, std::string> recorded;  // path to token
    std::vector<ChapteredTrack> chaptered;
};

std::vector<ChapteredTrack> readChapteredTracks(common::Database& database) {
    std::vector<ChapteredTrack> tracks;
    auto rows = database.query(
        "SELECT item_pid, title, chapter_data FROM item_extra WHERE chapter_data IS NOT NULL");
    while (rows.step()) {
        ChapteredTrack track{rows->int64(0), std::string(rows->text(1)), {}, {}};
        for (const common::Chapter& chapter :
             common::decodeChapters(rows->blob(2)).value_or(std::vector<common::Chapter>()))
            if (!chapter.artworkCacheID.empty())
                track.pictures.emplace_back(chapterPicturePath(track.persistentID, chapter.startMs),
                                            artworkRelativePath(chapter.artworkCacheID));
        if (track.pictures.empty())
            continue;
        track.covers = coversOf(database, track.persistentID);
        tracks.push_back(std::move(track));
    }
    return tracks;
}

Pictures readPictures(common::Database& database) {
    Pictures pictures;
    pictures.wanted = wantedPictures(database);
    auto rows = database.query("SELECT relative_path, artwork_token FROM artwork");
    while (rows.step())
        pictures.recorded.emplace(rows->text(0), rows->text(1));
    pictures.chaptered = readChapteredTracks(database);
    return pictures;
}

// Covers are found by the library itself.
void recordChapterPictures(common::Database& database, const std::vector<std::string>& paths) {
    std::map<std::string, OriginalArtwork> byPath;
    auto rows = database.query(
        "SELECT i.item_pid, i.media_type, e.chapter_data FROM item_extra e JOIN item i USING "
        "(item_id) WHERE e.chapter_data IS NOT NULL");
    while (rows.step())
        for (const common::Chapter& chapter :
             common::decodeChapters(rows->blob(2)).value_or(std::vector<common::Chapter>()))
            for (const std::string& token :
                 {chapterArtworkToken(rows->int64(0),
                                      static_cast<double>(chapter.startMs) / 1000.0),
                  chapter.artworkCacheID})
                byPath[artworkRelativePath(token)] = {token, ArtworkTypeChapter, ArtworkSourceHost,
                                                      static_cast<std::uint32_t>(rows->int64(1))};
    for (const std::string& path : paths)
        if (const auto found = byPath.find(path); found != byPath.end())
            recordArtwork(database, found->second);
}

enum class PictureState : std::uint8_t { Gone, Damaged, Good };

class ArtworkCheck {
public:
    explicit ArtworkCheck(CheckRun& run)
        : _run(run),
          _files(run.library.configuration().files),
          _pictures(run.library.connections().reading<Pictures>(readPictures)) {}

    void check() {
        for (const ChapteredTrack& track : _pictures.chaptered)
            lookAtChapters(track);
        for (const auto& [path, token] : _pictures.recorded)
            if (stateOf(path) != PictureState::Good && !_told.contains(path))
                reportBad(path);
        std::vector<std::string> present = _files.subpathsOfDirectory(ArtworkOriginalsDirectory);
        std::ranges::sort(present);
        for (const std::string& path : present)
            lookAtPresent(path);
        mend();
    }

private:
    PictureState stateOf(const std::string& path) {
        const auto [known, isNew] = _states.try_emplace(path, PictureState::Good);
        if (!isNew)
            return known->second;
        const std::string whole = ArtworkStore::originalPath(path);
        const auto attributes = _files.attributes(whole, nullptr);
        if (!attributes)
            known->second = PictureState::Gone;
        else if (!attributes->isRegularFile ||
                 !_run.library.configuration().artworkInspector.isShowablePicture(whole))
            known->second = PictureState::Damaged;
        return known->second;
    }

    // Chapters' pictures come with the cover: while that is awaited, so are they.
    void lookAtChapters(const ChapteredTrack& track) {
        const auto isGood = [this](const std::string& path) {
            return stateOf(path) == PictureState::Good;
        };
        if (std::ranges::none_of(track.covers, isGood))
            return;
        std::size_t lacking = 0;
        bool isMended = _run.repairs;
        for (const auto& [byTime, byName] : track.pictures) {
            if (isGood(byTime) || isGood(byName))
                continue;
            ++lacking;
            for (const std::string& path : {byTime, byName}) {
                _told.insert(path);
                isMended = isMended && putAway(path);
            }
        }
        if (lacking == 0)
            return;
        report(track.title,
               fmt::format("{} of its chapters' pictures {} not there or damaged", lacking,
                           lacking == 1 ? "is" : "are"),
               fmt::format("its cover goes to {}, and the next sync or mirror brings it again with "
                           "the chapters' pictures",
                           SetAsideDirectory),
               isMended && setCoversAside(_run.library, track.persistentID));
    }

    void reportBad(const std::string& path) {
        _told.insert(path);
        const bool isGone = stateOf(path) == PictureState::Gone;
        const std::string remedy = isGone ? std::string("it is recorded no more")
                                          : fmt::format("it goes to {}", SetAsideDirectory);
        report(ArtworkStore::originalPath(path),
               isGone ? "this picture is recorded and not there" : "this picture is damaged",
               remedy + (_pictures.wanted.contains(path) ? Again : ""),
               _run.repairs && putAway(path));
    }

    // Whether nothing is left there; its row goes then.
    bool putAway(const std::string& path) {
        if (stateOf(path) == PictureState::Damaged &&
            !setFileAside(_run.library, ArtworkStore::originalPath(path)))
            return false;
        _states[path] = PictureState::Gone;
        _forgotten.push_back(path);
        return true;
    }

    void lookAtPresent(const std::string& path) {
        const std::string whole = ArtworkStore::originalPath(path);
        const bool isWanted = _pictures.wanted.contains(path);
        if (_told.contains(path) || (isWanted && _pictures.recorded.contains(path)))
            return;
        const auto attributes = _files.attributes(whole, nullptr);
        if (!attributes || !attributes->isRegularFile)
            return;
        if (isWanted && stateOf(path) == PictureState::Damaged)
            return reportBad(path);
        if (isWanted) {
            _unrecorded.push_back(path);
            return report(whole, "a track asks for this picture, which is there and not recorded",
                          "it is recorded", _run.repairs);
        }
        const bool isAside = _run.repairs && setFileAside(_run.library, whole);
        if (isAside)
            _forgotten.push_back(path);
        report(whole, "no track of the library asks for this picture",
               fmt::format("it goes to {}", SetAsideDirectory), isAside);
    }

    void report(const std::string& subject, const std::string& problem, const std::string& remedy,
                bool isMended) {
        _run.report({CheckArea::Artwork, subject, problem, remedy, isMended});
    }

    void mend() {
        if (!_run.repairs)
            return;
        _run.library.connections().write([this](common::Database& database) {
            for (const std::string& path : _forgotten)
                database.execute("DELETE FROM artwork WHERE relative_path = ?", path);
            recordChapterPictures(database, _unrecorded);
            return true;
        });
        if (!_unrecorded.empty())
            _run.library.recordFoundOriginals();
    }

    CheckRun& _run;
    device::RootedFileSystem& _files;
    const Pictures _pictures;
    std::unordered_map<std::string, PictureState> _states;  // by path, of those looked at
    std::unordered_set<std::string> _told;                  // reported, perhaps with their track
    std::vector<std::string> _forgotten;                    // paths whose rows go
    std::vector<std::string> _unrecorded;
};

}  // namespace

void checkArtwork(CheckRun& run) {
    ArtworkCheck(run).check();
}

}  // namespace korvane
