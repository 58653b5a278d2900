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

class Asset final : public ORAsset {
public:
    enum class Direction { Download, Upload, Pulled };

    Asset(Direction direction, std::string identifier, std::string dataclass,
          std::string sourcePath, std::optional<std::string> prettyName);

    std::string identifier() const override { return _identifier; }
    bool isDownload() const override { return _direction == Direction::Download; }
    std::optional<std::string> assetType() const override { return _assetType; }
    void setAssetType(const std::string& type) override { _assetType = type; }
    platform::Value variantOptions() const override { return _variantOptions; }
    void setVariantOptions(const platform::Value& options) override { _variantOptions = options; }
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
    const std::string& dataclass() const { return _dataclass; }
    const std::optional<std::string>& prettyName() const { return _prettyName; }

private:
    // What few assets of a long list have: a list of a whole library is as large as its records.
    struct Rare {
        std::string sourcePath;
        std::optional<std::string> path;
        std::shared_ptr<ORStoreInfo> storeInfo;
        std::optional<std::int64_t> storePID;
    };
    Rare& rare();

    std::string _identifier;
    std::string _dataclass;
    std::optional<std::string> _prettyName;
    std::optional<std::string> _assetType;
    platform::Value _variantOptions;
    std::unique_ptr<Rare> _rare;
    const Direction _direction;
    bool _isRestore = false;
    bool _bypassStore = false;
};

// The bits of "AssetParts"; 0 when there are none.
std::uint32_t partsOf(const ORAsset& asset);
bool isDeletedAfterUpload(const ORAsset& asset);

}  // namespace orlith
