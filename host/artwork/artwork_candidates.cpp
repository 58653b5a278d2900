#include <algorithm>
#include <array>
#include <unordered_map>

#include "host/artwork/artwork.h"
#include "host/scan/file_names.h"

namespace host {

namespace {

// Names of a folder's picture, folded; an earlier one is preferred.
constexpr auto FolderImageNames = std::to_array<std::string_view>({"cover", "folder", "front"});
constexpr auto ImageExtensions = std::to_array<std::string_view>({"jpg", "jpeg", "png", "webp"});

std::size_t rankOfExtension(std::string_view path) {
    return static_cast<std::size_t>(std::ranges::find(ImageExtensions, extensionOfPath(path)) -
                                    ImageExtensions.begin());
}

}  // namespace

struct FolderImages::Index {
    // Images of one folder by folded stem, the preferred extension.
    using Folder = std::unordered_map<std::string, FileStamp>;
    std::unordered_map<std::string, Folder> folders;  // by exact path, "" for the top
};

FolderImages::FolderImages(const std::vector<FileStamp>& images)
    : _index(std::make_unique<Index>()) {
    for (const FileStamp& image : images) {
        auto& folder = _index->folders[std::string(folderOfPath(image.path))];
        const auto [place, added] =
            folder.try_emplace(caseFoldedName(stemOfPath(image.path)), image);
        if (!added && rankOfExtension(image.path) < rankOfExtension(place->second.path))
            place->second = image;
    }
}

FolderImages::~FolderImages() = default;
FolderImages::FolderImages(FolderImages&&) noexcept = default;
FolderImages& FolderImages::operator=(FolderImages&&) noexcept = default;

const FileStamp* FolderImages::imageOfFile(const MediaFile& file) const {
    return find(file, caseFoldedName(stemOfPath(file.stamp.path)));
}

const FileStamp* FolderImages::imageOfFolder(const MediaFile& file) const {
    for (const std::string_view name : FolderImageNames)
        if (const FileStamp* image = find(file, std::string(name)))
            return image;
    return file.tags.album.empty() ? nullptr : find(file, caseFoldedName(file.tags.album));
}

const FileStamp* FolderImages::find(const MediaFile& file, const std::string& foldedStem) const {
    const auto folder = _index->folders.find(std::string(folderOfPath(file.stamp.path)));
    if (folder == _index->folders.end())
        return nullptr;
    const auto image = folder->second.find(foldedStem);
    return image == folder->second.end() ? nullptr : &image->second;
}

std::vector<ArtworkCandidate> artworkCandidates(const MediaFile& file, const FolderImages& images) {
    using Source = ArtworkCandidate::Source;
    std::vector<ArtworkCandidate> candidates;
    if (const FileStamp* own = images.imageOfFile(file))
        candidates.push_back({Source::ImageFile, *own, -1, std::nullopt});
    if (file.artwork)
        candidates.push_back({Source::Embedded, file.stamp, -1, file.artwork->hash});
    if (const FileStamp* shared = images.imageOfFolder(file))
        candidates.push_back({Source::ImageFile, *shared, -1, std::nullopt});
    return candidates;
}

std::vector<ArtworkCandidate> chapterArtworkCandidates(const MediaFile& file) {
    std::vector<ArtworkCandidate> candidates;
    for (std::size_t place = 0; place < file.chapters.size(); ++place)
        if (const auto& picture = file.chapters[place].picture)
            candidates.push_back({ArtworkCandidate::Source::ChapterImage, file.stamp,
                                  static_cast<std::int32_t>(place), picture});
    return candidates;
}

}  // namespace host
