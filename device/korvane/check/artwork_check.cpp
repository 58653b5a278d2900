// Pictures: recorded and gone, or there and nobody's.
#include <algorithm>
#include <map>

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

constexpr char Again[] = "it is recorded no more, and the next sync or mirror brings it again";

struct Pictures {
    std::unordered_set<std::string> wanted;       // paths below the originals
    std::map<std::string, std::string> recorded;  // path to token
};

Pictures readPictures(common::Database& database) {
    Pictures pictures;
    pictures.wanted = wantedPictures(database);
    auto rows = database.query("SELECT relative_path, artwork_token FROM artwork");
    while (rows.step())
        pictures.recorded.emplace(rows->text(0), rows->text(1));
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

}  // namespace

void checkArtwork(CheckRun& run) {
    device::RootedFileSystem& files = run.library.configuration().files;
    const auto pictures = run.library.connections().reading<Pictures>(readPictures);
    std::vector<std::string> forgotten;  // paths whose rows go
    std::vector<std::string> unrecorded;
    const auto report = [&](const std::string& subject, const char* problem,
                            const std::string& remedy, bool canMend) {
        run.report({CheckArea::Artwork, subject, problem, remedy, run.repairs && canMend});
    };
    for (const auto& [path, token] : pictures.recorded)
        if (!files.fileExists(ArtworkStore::originalPath(path))) {
            forgotten.push_back(path);
            report(ArtworkStore::originalPath(path), "this picture is recorded and not there",
                   pictures.wanted.contains(path) ? Again : "it is recorded no more", true);
        }
    std::vector<std::string> present = files.subpathsOfDirectory(ArtworkOriginalsDirectory);
    std::ranges::sort(present);
    for (const std::string& path : present) {
        const std::string whole = ArtworkStore::originalPath(path);
        const bool isWanted = pictures.wanted.contains(path);
        if (isWanted && pictures.recorded.contains(path))
            continue;
        const auto attributes = files.attributes(whole, nullptr);
        if (!attributes || !attributes->isRegularFile)
            continue;
        if (isWanted) {
            unrecorded.push_back(path);
            report(whole, "a track asks for this picture, which is there and not recorded",
                   "it is recorded", true);
            continue;
        }
        const bool isAside = run.repairs && setFileAside(run.library, whole);
        if (isAside)
            forgotten.push_back(path);
        report(whole, "no track of the library asks for this picture",
               std::string("it goes to ") + SetAsideDirectory, isAside);
    }
    if (!run.repairs)
        return;
    run.library.connections().write([&](common::Database& database) {
        for (const std::string& path : forgotten)
            database.execute("DELETE FROM artwork WHERE relative_path = ?", path);
        recordChapterPictures(database, unrecorded);
        return true;
    });
    if (!unrecorded.empty())
        run.library.recordFoundOriginals();
}

}  // namespace korvane
