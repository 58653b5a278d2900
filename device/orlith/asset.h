// The daemon's records of one transferable asset and of a track's store identity: what a plug-in
// fills in and the daemon reads back.
//
// One thread at a time; plain values, nothing fails.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/sync_daemon.h"

namespace orlith {

// Bits of the variant option "AssetParts".
inline constexpr std::uint32_t PartFile = 1;
inline constexpr std::uint32_t PartArtwork = 2;
inline constexpr std::uint32_t PartKenning = 4;

inline constexpr std::string_view AssetPartsKey = "AssetParts";
// Width and height in pixels of a picture that is wanted no larger.
inline constexpr std::string_view DimensionsKey = "Dimensions";
inline constexpr std::string_view DeleteAfterUploadKey = "delete_after_upload";

class StoreInfo final : public ORStoreInfo {
public:
    void setDSID(const platform::Value& accountID) override;
    void setVantorID(const platform::Value& accountName) override;
    void setFlavor(const platform::Value& flavor) override;
    void setOrbisID(const platform::Value& itemID) override;
    void setVeskaID(const platform::Value& cloudID) override;
    void setMatchStatus(const platform::Value& status) override;
    void setRedownloadStatus(const platform::Value& status) override;
    void setPodcastEpisodeGUID(const platform::Value& guid) override;

    std::string description() const;

private:
    platform::Dictionary _fields;
};

// Records and their texts lie in batches, which go with the last of their records: a list may hold
// one for every track of the library.
class Asset final : public ORAsset {
public:
    enum class Direction : std::uint8_t { Download, Upload, Pulled };
    class Batch;
    // Of a batch: the dataclass that its records share; the identifier and behind it the pretty
    // name, and their sizes in bytes.
    struct Texts {
        const std::string* dataclass = nullptr;
        const char* bytes = nullptr;
        std::uint32_t identifierSize = 0;
        std::uint32_t prettyNameSize = 0;
    };

    // The texts are copied. Any thread.
    static std::shared_ptr<Asset> make(Direction direction, std::string_view identifier,
                                       std::string_view dataclass,
                                       std::optional<std::string_view> prettyName);
    // For batches, which hold the texts.
    Asset(Direction direction, const Texts& texts, bool hasPrettyName)
        : _texts(texts), _direction(direction), _hasPrettyName(hasPrettyName) {}

    std::string identifier() const override { return {_texts.bytes, _texts.identifierSize}; }
    bool isDownload() const override { return _direction == Direction::Download; }
    std::optional<std::string> assetType() const override;
    void setAssetType(const std::string& type) override;
    platform::Value variantOptions() const override { return platform::Value(_variantOptions); }
    void setVariantOptions(const platform::Value& options) override {
        _variantOptions = options.sharedDictionary();
    }
    bool isRestore() const override { return _isRestore; }
    void setIsRestore(bool isRestore) override { _isRestore = isRestore; }
    bool bypassStore() const override { return _bypassStore; }
    void setBypassStore(bool bypassStore) override { _bypassStore = bypassStore; }
    std::optional<std::string> path() const override;
    void setPath(const std::string& path) override { rare().path = path; }
    void setStoreInfo(std::shared_ptr<ORStoreInfo> storeInfo) override {
        rare().storeInfo = std::move(storeInfo);
    }
    void setStorePID(std::int64_t persistentIdentifier) override {
        rare().storePID = persistentIdentifier;
    }
    std::string description() const override;

    // The device's file of an upload, an absolute device path; "" for a download.
    std::string sourcePath() const { return _rare ? _rare->sourcePath : std::string(); }
    void setSourcePath(std::string_view path) { rare().sourcePath = path; }
    std::optional<std::string_view> prettyName() const;

private:
    // What few assets of a long list have: a list of a whole library is as large as its records.
    struct Rare {
        std::string sourcePath;
        std::optional<std::string> path;
        std::shared_ptr<ORStoreInfo> storeInfo;
        std::optional<std::int64_t> storePID;
    };
    Rare& rare();

    Texts _texts;
    Direction _direction;
    bool _hasPrettyName;
    bool _isRestore = false;
    bool _bypassStore = false;
    const std::string* _assetType = nullptr;                      // one of the few that there are
    std::shared_ptr<const platform::Dictionary> _variantOptions;  // null: none
    std::unique_ptr<Rare> _rare;
};

// The bits of "AssetParts"; 0 when there are none.
std::uint32_t partsOf(const ORAsset& asset);
bool isDeletedAfterUpload(const ORAsset& asset);

}  // namespace orlith
