#include "device/orlith/asset.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <memory_resource>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

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

namespace {

constexpr std::size_t RecordsPerBatch = 64;
// Most identifiers and titles are no longer together; longer ones go beside.
constexpr std::size_t TextBytesPerRecord = 40;

// Types are few; a record points to its own.
const std::string* keptType(const std::string& type) {
    static std::mutex mutex;             // protects types
    static std::set<std::string> types;  // whose elements stay where they are
    const std::lock_guard lock(mutex);
    return &*types.insert(type).first;
}

}  // namespace

class Asset::Batch {
public:
    explicit Batch(std::string_view dataclass) : _dataclass(dataclass) {
        _records.reserve(RecordsPerBatch);
    }

    bool takes(std::string_view dataclass) const {
        return _records.size() < RecordsPerBatch && dataclass == _dataclass;
    }
    Asset& add(Direction direction, std::string_view identifier,
               std::optional<std::string_view> prettyName) {
        const std::string_view name = prettyName.value_or(std::string_view());
        auto* const bytes = static_cast<char*>(_texts.allocate(identifier.size() + name.size(), 1));
        std::ranges::copy(name, std::ranges::copy(identifier, bytes).out);
        return _records.emplace_back(
            direction,
            Texts{&_dataclass, bytes, static_cast<std::uint32_t>(identifier.size()),
                  static_cast<std::uint32_t>(name.size())},
            prettyName.has_value());
    }

private:
    const std::string _dataclass;
    std::array<std::byte, RecordsPerBatch * TextBytesPerRecord> _firstTexts;
    std::pmr::monotonic_buffer_resource _texts{_firstTexts.data(), _firstTexts.size()};
    std::vector<Asset> _records;  // within what was reserved: they stay where they are
};

std::shared_ptr<Asset> Asset::make(Direction direction, std::string_view identifier,
                                   std::string_view dataclass,
                                   std::optional<std::string_view> prettyName) {
    thread_local std::shared_ptr<Batch> batch;  // the next record's
    if (!batch || !batch->takes(dataclass))
        batch = std::make_shared<Batch>(dataclass);
    return {batch, &batch->add(direction, identifier, prettyName)};
}

std::optional<std::string> Asset::assetType() const {
    return _assetType ? std::optional(*_assetType) : std::nullopt;
}

void Asset::setAssetType(const std::string& type) {
    _assetType = keptType(type);
}

Asset::Rare& Asset::rare() {
    if (!_rare)
        _rare = std::make_unique<Rare>();
    return *_rare;
}

std::optional<std::string_view> Asset::prettyName() const {
    if (!_hasPrettyName)
        return std::nullopt;
    return std::string_view(_texts.bytes + _texts.identifierSize, _texts.prettyNameSize);
}

std::optional<std::string> Asset::path() const {
    return _rare ? _rare->path : std::nullopt;
}

std::string Asset::description() const {
    constexpr std::array directions{"download", "upload", "pulled"};
    std::string text =
        fmt::format("<ORAsset {} {} of {}", directions.at(static_cast<std::size_t>(_direction)),
                    identifier(), *_texts.dataclass);
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
