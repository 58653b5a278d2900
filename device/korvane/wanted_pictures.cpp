#include "device/korvane/wanted_pictures.h"

#include "common/chapters/chapters.h"
#include "common/sqlite/database.h"
#include "device/korvane/artwork_store.h"

namespace korvane {

namespace {

constexpr std::string_view CoverTokens =
    "SELECT sync_artwork_token, cloud_artwork_token, store_artwork_token, "
    "purchase_history_artwork_token FROM item_artwork";
constexpr int CoverTokenColumns = 4;

// Of the row that the statement stands on.
template <typename Use>
void forEachCover(common::Statement& tokens, const Use& use) {
    for (int column = 0; column < CoverTokenColumns; ++column)
        if (!tokens.text(column).empty())
            use(artworkRelativePath(std::string(tokens.text(column))));
}

}  // namespace

std::vector<std::string> coversOf(common::Database& database, std::int64_t persistentID) {
    std::vector<std::string> paths;
    auto tokens = database.query(std::string(CoverTokens) + " WHERE item_pid = ?", persistentID);
    while (tokens.step())
        forEachCover(*tokens, [&](std::string path) { paths.push_back(std::move(path)); });
    return paths;
}

std::unordered_set<std::string> wantedPictures(common::Database& database) {
    std::unordered_set<std::string> paths;
    auto tokens = database.query(CoverTokens);
    while (tokens.step())
        forEachCover(*tokens, [&](std::string path) { paths.insert(std::move(path)); });
    auto chapters = database.query(
        "SELECT item_pid, chapter_data FROM item_extra WHERE chapter_data IS NOT NULL");
    while (chapters.step())
        for (const auto& chapter :
             common::decodeChapters(chapters->blob(1)).value_or(std::vector<common::Chapter>())) {
            paths.insert(chapterPicturePath(chapters->int64(0), chapter.startMs));
            if (!chapter.artworkCacheID.empty())
                paths.insert(artworkRelativePath(chapter.artworkCacheID));
        }
    return paths;
}

std::vector<std::string> forgetOrphanedArtwork(common::Database& database) {
    const auto wanted = wantedPictures(database);
    std::vector<std::string> orphans;
    auto recorded = database.query("SELECT DISTINCT relative_path FROM artwork");
    while (recorded.step())
        if (std::string path(recorded->text(0)); !wanted.contains(path))
            orphans.push_back(std::move(path));
    auto row = database.prepare("DELETE FROM artwork WHERE relative_path = ?");
    for (const std::string& orphan : orphans) {
        row->bindAllBorrowed(orphan);
        row.run();
    }
    return orphans;
}

}  // namespace korvane
