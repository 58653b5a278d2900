#include "device/orlith/asset.h"

#include <gmock/gmock.h>

#include <string>
#include <thread>
#include <vector>

namespace orlith {
namespace {

using Direction = Asset::Direction;
using ::testing::HasSubstr;
using ::testing::Not;

std::string titleOf(int number) {
    return "Title of track " + std::to_string(number);
}

// Made on this thread; more than one batch.
std::vector<std::shared_ptr<Asset>> manyAssets(int count) {
    std::vector<std::shared_ptr<Asset>> assets;
    for (int number = 0; number < count; ++number)
        assets.push_back(
            Asset::make(Direction::Pulled, std::to_string(number), "Media", titleOf(number)));
    return assets;
}

TEST(Asset, KeepsCopiesOfItsTexts) {
    std::string identifier = "8101231231231231231", title = "A title";
    const auto asset = Asset::make(Direction::Download, identifier, "Media", title);
    identifier.assign(identifier.size(), 'x');
    title.assign(title.size(), 'x');
    EXPECT_EQ(asset->identifier(), "8101231231231231231");
    EXPECT_EQ(asset->prettyName(), "A title");
}

TEST(Asset, TellsAnEmptyNameFromNone) {
    EXPECT_EQ(Asset::make(Direction::Upload, "1", "Media", "")->prettyName(), "");
    EXPECT_EQ(Asset::make(Direction::Upload, "1", "Media", std::nullopt)->prettyName(),
              std::nullopt);
}

TEST(Asset, OfAnyNumberEachHasItsOwnTexts) {
    const auto assets = manyAssets(1000);
    for (int number = 0; number < 1000; ++number) {
        const auto& asset = assets[static_cast<std::size_t>(number)];
        EXPECT_EQ(asset->identifier(), std::to_string(number));
        EXPECT_EQ(asset->prettyName(), titleOf(number));
    }
}

TEST(Asset, TextsMayBeLong) {
    std::vector<std::shared_ptr<Asset>> assets;
    for (const std::size_t size : {0u, 1u, 39u, 40u, 2559u, 2560u, 2561u, 100000u})
        assets.push_back(Asset::make(Direction::Pulled, std::string(size, 'i'), "Media",
                                     std::string(size, 't')));
    EXPECT_EQ(assets.back()->identifier(), std::string(100000, 'i'));
    EXPECT_EQ(assets.back()->prettyName(), std::string(100000, 't'));
    EXPECT_EQ(assets[4]->prettyName(), std::string(2559, 't'));
}

TEST(Asset, DataclassesMayDifferFromOneToTheNext) {
    const auto media = Asset::make(Direction::Download, "1", "Media", "");
    const auto book = Asset::make(Direction::Download, "2", "Book", "");
    EXPECT_THAT(media->description(), HasSubstr("<ORAsset download 1 of Media"));
    EXPECT_THAT(book->description(), HasSubstr("<ORAsset download 2 of Book"));
}

TEST(Asset, OneOutlivesItsNeighboursAndTheThreadThatMadeIt) {
    std::shared_ptr<Asset> kept;
    std::thread([&] {
        auto assets = manyAssets(200);
        kept = assets[100];
    }).join();
    EXPECT_EQ(kept->identifier(), "100");
    EXPECT_EQ(kept->prettyName(), titleOf(100));
}

TEST(Asset, ThreadsMakeAndDropThemBesideEachOther) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([] {
            for (int round = 0; round < 50; ++round) {
                auto assets = manyAssets(100);
                for (const auto& asset : assets)
                    asset->setAssetType(asset->identifier().size() == 1 ? "Music" : "Podcast");
                EXPECT_EQ(assets[5]->assetType(), "Music");
                EXPECT_EQ(assets[50]->assetType(), "Podcast");
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(Asset, WhatWasNeverSetIsAbsent) {
    const auto asset = Asset::make(Direction::Download, "1", "Media", "");
    EXPECT_EQ(asset->assetType(), std::nullopt);
    EXPECT_TRUE(asset->variantOptions().isNull());
    EXPECT_EQ(asset->path(), std::nullopt);
    EXPECT_EQ(asset->sourcePath(), "");
    EXPECT_FALSE(asset->isRestore());
    EXPECT_FALSE(asset->bypassStore());
    EXPECT_EQ(partsOf(*asset), 0u);
    EXPECT_FALSE(isDeletedAfterUpload(*asset));
}

TEST(Asset, WhatWasSetIsGivenBack) {
    const auto asset = Asset::make(Direction::Upload, "1", "Media", "");
    asset->setAssetType("Music");
    asset->setVariantOptions(platform::Dictionary{{std::string(AssetPartsKey), 3u},
                                                  {std::string(DeleteAfterUploadKey), true}});
    asset->setPath("/received");
    asset->setSourcePath("/sent");
    asset->setIsRestore(true);
    asset->setBypassStore(true);
    EXPECT_EQ(asset->assetType(), "Music");
    EXPECT_EQ(partsOf(*asset), 3u);
    EXPECT_TRUE(isDeletedAfterUpload(*asset));
    EXPECT_EQ(asset->path(), "/received");
    EXPECT_EQ(asset->sourcePath(), "/sent");
    EXPECT_TRUE(asset->isRestore());
    EXPECT_TRUE(asset->bypassStore());
    asset->setVariantOptions(nullptr);
    EXPECT_TRUE(asset->variantOptions().isNull());
    EXPECT_THAT(asset->description(), Not(HasSubstr("parts")));
}

}  // namespace
}  // namespace orlith
