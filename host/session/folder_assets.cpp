#include "host/session/folder_assets.h"

#include <charconv>
#include <fstream>
#include <iterator>

#include "common/property_list/property_list.h"
#include "host/scan/content_hash.h"
#include "host/scan/file_names.h"
#include "host/session/part_reader.h"

namespace host {

namespace {

// Prepared pictures are small, so that they are read at once.
AssetPart picturePart(AssetPart::Kind kind, const Picture& picture) {
    AssetPart part;
    part.kind = kind;
    std::ifstream file(picture.path, std::ios::binary);
    part.bytes.assign(std::istreambuf_iterator<char>(file), {});
    part.contentHash = contentHashOfText(part.bytes);
    return part;
}

}  // namespace

FolderAssets::FolderAssets(std::string folder, const FolderState& state,
                           const FolderMaterials& materials)
    : _folder(std::move(folder)), _state(state), _materials(materials) {}

const KnownFile* FolderAssets::fileOf(const OutstandingAsset& asset) const {
    std::int64_t syncId = 0;
    const char* end = asset.identifier.data() + asset.identifier.size();
    const auto [stop, status] = std::from_chars(asset.identifier.data(), end, syncId);
    if (status != std::errc() || stop != end)
        return nullptr;
    return _state.fileWithSyncId(syncId);
}

std::string FolderAssets::nameOf(const OutstandingAsset& asset) const {
    const KnownFile* file = fileOf(asset);
    return file != nullptr ? file->media.stamp.path : asset.identifier;
}

AssetContent FolderAssets::contentOf(const OutstandingAsset& asset) {
    AssetContent content;
    const KnownFile* file = fileOf(asset);
    if (file == nullptr || file->presence != Presence::Present) {
        content.failure = "the folder does not hold it (any more)";
        return content;
    }
    const auto place = static_cast<std::size_t>(file - _state.files.data());
    if ((asset.parts & AssetPartArtwork) != 0)
        addPictures(place, content);
    if ((asset.parts & AssetPartKenning) != 0)
        addRecommendations(*file, content);
    if ((asset.parts & AssetPartFile) != 0)
        content.parts.push_back(filePart(*file));
    return content;
}

AssetPart FolderAssets::filePart(const KnownFile& file) const {
    const FileStamp& stamp = file.media.stamp;
    AssetPart part;
    part.kind = AssetPart::Kind::File;
    part.path = _folder + "/" + stamp.path;
    part.size = stamp.size;
    part.modifiedNanoseconds = stamp.modifiedNanoseconds;
    part.contentHash = file.contentHash;
    part.extension = extensionOfPath(stamp.path);
    return part;
}

void FolderAssets::addPictures(std::size_t place, AssetContent& content) const {
    if (place >= _materials.covers.size() || _materials.covers[place].path.empty())
        return;
    for (const ChapterPicture& chapter : _materials.chapterPictures[place]) {
        AssetPart part = picturePart(AssetPart::Kind::ChapterArtwork, chapter.picture);
        part.chapterMilliseconds = chapter.milliseconds;
        content.parts.push_back(std::move(part));
    }
    content.parts.push_back(picturePart(AssetPart::Kind::Artwork, _materials.covers[place]));
}

void FolderAssets::addRecommendations(const KnownFile& file, AssetContent& content) const {
    const auto found = _materials.recommendations.find(file.globalId);
    if (found == _materials.recommendations.end())
        return;
    const auto plist = common::serializePropertyList(found->second.plist(),
                                                     platform::PropertyListFormat::Binary, nullptr);
    if (!plist)
        return;
    AssetPart part;
    part.kind = AssetPart::Kind::Kenning;
    part.bytes.assign(plist->begin(), plist->end());
    part.contentHash = contentHashOfText(part.bytes);
    part.kenningId = std::to_string(file.globalId);
    content.parts.push_back(std::move(part));
}

std::optional<ContentHash> FolderAssets::prefixHash(const OutstandingAsset& asset,
                                                    std::uint64_t bytes) const {
    const KnownFile* file = fileOf(asset);
    if (file == nullptr || file->presence != Presence::Present)
        return std::nullopt;
    const AssetPart part = filePart(*file);
    if (bytes > static_cast<std::uint64_t>(part.size))
        return std::nullopt;
    PartReader reader(part);
    if (!reader.open(bytes).empty())
        return std::nullopt;
    return reader.hash();
}

}  // namespace host
