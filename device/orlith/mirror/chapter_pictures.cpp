#include "device/orlith/mirror/chapter_pictures.h"

#include <set>

#include "device/orlith/names.h"

namespace orlith {

std::vector<ChapterPicture> chapterPictures(MediaLibraryFramework& library, PeerLibrary& pictures,
                                            KV3Track& track) {
    const platform::Value chapters = track.valueForProperty(KV3TrackPropertyChapterData);
    if (!chapters.isData())
        return {};
    std::vector<double> times;
    library.enumerateChapterTimes(*chapters.data(),
                                  [&](double seconds) { times.push_back(seconds); });
    std::vector<ChapterPicture> found;
    std::set<std::string> names;
    std::size_t chapter = 0;
    library.enumerateChapterArtworkCacheIDs(
        *chapters.data(), [&](const std::string& cacheID, bool&) {
            const std::size_t index = chapter++;
            if (!isArtworkCacheID(cacheID) || !names.insert(cacheID).second)
                return;
            std::string path = pictures.picturePath(cacheID);
            if (path.empty() && index < times.size())
                path = pictures.picturePath(
                    library.artworkTokenForChapterArtwork(track.persistentID(), times[index]));
            found.push_back({cacheID, std::move(path)});
        });
    return found;
}

}  // namespace orlith
