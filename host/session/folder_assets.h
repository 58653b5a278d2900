// Purpose: serves the assets that a device asks for from the folder and what was made of it.
// Thread: contentOf runs on the feeder's thread while the session's thread changes neither the
// files' places nor the materials.
// Ownership: borrows state and materials.
// Failure: what is not in the folder has its reason.
#pragma once

#include <optional>
#include <string>

#include "host/session/asset_source.h"
#include "host/session/materials.h"
#include "host/state/folder_state.h"

namespace host {

class FolderAssets : public AssetSource {
public:
    // `materials` may be empty as long as only files are asked for.
    FolderAssets(std::string folder, const FolderState& state, const FolderMaterials& materials);

    AssetContent contentOf(const OutstandingAsset& asset) override;

    // The file of an asset, by its identifier; null when there is none.
    const KnownFile* fileOf(const OutstandingAsset& asset) const;
    // What a person calls the asset.
    std::string nameOf(const OutstandingAsset& asset) const;
    // Of the first bytes of an asset's file.
    std::optional<ContentHash> prefixHash(const OutstandingAsset& asset, std::uint64_t bytes) const;

private:
    AssetPart filePart(const KnownFile& file) const;
    void addPictures(std::size_t place, AssetContent& content) const;
    void addRecommendations(const KnownFile& file, AssetContent& content) const;

    const std::string _folder;
    const FolderState& _state;
    const FolderMaterials& _materials;
};

}  // namespace host
