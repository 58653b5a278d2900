#include "device/orlith/asset.h"

#include <fmt/format.h>

#include <utility>

namespace orlith {

using platform::Value;

void StoreInfo::setDSID(const Value& accountID) {
    _fields.insert_or_assign("DSID", accountID);
}
void StoreInfo::setVantorID(const Value& accountName) {
    _fields.insert_or_assign("VantorID", accountName);
}
void StoreInfo::setFlavor(const Value& flavor) {
    _fields.insert_or_assign("Flavor", flavor);
}
void StoreInfo::setOrbisID(const Value& itemID) {
    _fields.insert_or_assign("OrbisID", itemID);
}
void StoreInfo::setVeskaID(const Value& cloudID) {
    _fields.insert_or_assign("VeskaID", cloudID);
}
void StoreInfo::setMatchStatus(const Value& status) {
    _fields.insert_or_assign("MatchStatus", status);
}
void StoreInfo::setRedownloadStatus(const Value& status) {
    _fields.insert_or_assign("RedownloadStatus", status);
}
void StoreInfo::setPodcastEpisodeGUID(const Value& guid) {
    _fields.insert_or_assign("PodcastEpisodeGUID", guid);
}

std::string StoreInfo::description() const {
    return Value(_fields).description();
}

Asset::Asset(Direction direction, std::string identifier, std::string dataclass,
             std::string sourcePath, std::optional<std::string> prettyName)
    : _identifier(std::move(identifier)),
      _dataclass(std::move(dataclass)),
      _prettyName(std::move(prettyName)),
      _direction(direction) {
    if (!sourcePath.empty())
        rare().sourcePath = std::move(sourcePath);
}

Asset::Rare& Asset::rare() {
    if (!_rare)
        _rare = std::make_unique<Rare>();
    return *_rare;
}

std::optional<std::string> Asset::path() const {
    return _rare ? _rare->path : std::nullopt;
}

std::string Asset::description() const {
    constexpr std::array directions{"download", "upload", "pulled"};
    std::string text =
        fmt::format("<ORAsset {} {} of {}", directions.at(static_cast<std::size_t>(_direction)),
                    _identifier, _dataclass);
    if (_assetType)
        text += fmt::format(", {}", *_assetType);
    if (const std::uint32_t parts = partsOf(*this); parts != 0)
        text += fmt::format(", parts {}", parts);
    if (_isRestore)
        text += ", restore";
    if (_rare && _rare->storePID)
        text += fmt::format(", store download {}", *_rare->storePID);
    if (_rare && _rare->path)
        text += fmt::format(", path {}", *_rare->path);
    return text + ">";
}

std::uint32_t partsOf(const ORAsset& asset) {
    return static_cast<std::uint32_t>(asset.variantOptions()[AssetPartsKey].unsignedValue());
}

bool isDeletedAfterUpload(const ORAsset& asset) {
    return asset.variantOptions()[DeleteAfterUploadKey].boolValue();
}

}  // namespace orlith
