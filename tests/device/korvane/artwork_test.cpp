#include <cmath>
#include <regex>

#include "device/korvane/artwork_store.h"
#include "device/korvane/library.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

class LibraryArtwork : public test::LibraryTest {
protected:
    const std::string _received = "/var/mobile/Media/Stagehold/Media/1";
};

TEST_F(LibraryArtwork, AnyTokenStaysBelowTheArtworkDirectory) {
    const std::regex shape("[0-9a-f]{2}/[0-9a-f]{2}/[0-9a-f]{32}");
    for (const std::string& token :
         {std::string("token"), std::string("../../etc/passwd"), std::string("/absolute"),
          std::string("a\0b", 3), std::string(100000, 'x'), std::string("\xff\xfe")}) {
        EXPECT_TRUE(std::regex_match(korvane::artworkRelativePath(token), shape));
    }
    EXPECT_EQ(korvane::artworkRelativePath(""), "");
    EXPECT_EQ(korvane::artworkRelativePath("a"), korvane::artworkRelativePath("a"));
    EXPECT_NE(korvane::artworkRelativePath("a"), korvane::artworkRelativePath("b"));
}

TEST_F(LibraryArtwork, AChaptersTokenNamesTrackAndMillisecond) {
    EXPECT_EQ(korvane::chapterArtworkToken(5, 12.3456), korvane::chapterArtworkToken(5, 12.346));
    EXPECT_NE(korvane::chapterArtworkToken(5, 12.3456), korvane::chapterArtworkToken(5, 12.347));
    EXPECT_NE(korvane::chapterArtworkToken(5, 1), korvane::chapterArtworkToken(6, 1));
    EXPECT_FALSE(korvane::chapterArtworkToken(5, std::nan("")).empty());
}

TEST_F(LibraryArtwork, AReceivedPictureMovesToItsPlace) {
    writeFile(_received, "picture");
    EXPECT_TRUE(library->importOriginalArtworkFromFileURL(_received, "token", 1, 2, 8));
    EXPECT_FALSE(files.fileExists(_received));
    const auto path = korvane::ArtworkStore::originalPath(korvane::artworkRelativePath("token"));
    EXPECT_TRUE(files.fileExists(path));
    EXPECT_TRUE(library->artwork().hasOriginal(korvane::artworkRelativePath("token")));
    EXPECT_EQ(number("SELECT source_type FROM artwork WHERE artwork_token = 'token'"), 2);
}

TEST_F(LibraryArtwork, WhatIsNoPictureStaysWhereItIs) {
    writeFile(_received, "no picture");
    inspector.showable = false;
    EXPECT_FALSE(library->importOriginalArtworkFromFileURL(_received, "token", 1, 2, 8));
    EXPECT_TRUE(files.fileExists(_received));
    inspector.showable = true;
    EXPECT_FALSE(library->importOriginalArtworkFromFileURL(_received, "", 1, 2, 8));
    EXPECT_FALSE(
        library->importOriginalArtworkFromFileURL(_received + "missing", "token", 1, 2, 8));
    EXPECT_EQ(number("SELECT count(*) FROM artwork"), 0);
}

TEST_F(LibraryArtwork, APictureOnDiskGetsItsRowBack) {
    writeFile(_received, "picture");
    library->importOriginalArtworkFromFileURL(_received, "token", 1, 2, 8);
    execute("DELETE FROM artwork");
    EXPECT_TRUE(library->importExistingOriginalArtworkWithArtworkToken("token", 1, 2, 8));
    EXPECT_EQ(number("SELECT count(*) FROM artwork"), 1);
    EXPECT_FALSE(library->importExistingOriginalArtworkWithArtworkToken("other", 1, 2, 8));
    EXPECT_FALSE(library->importExistingOriginalArtworkWithArtworkToken("", 1, 2, 8));
}

TEST_F(LibraryArtwork, AnItemsPictureIsThatOfItsBestTokenOrNone) {
    add({.pid = 1});
    const auto picture = [&] { return library->fetchItemArtworkForPersistentID(1); };
    EXPECT_FALSE(picture());
    execute("UPDATE item_artwork SET cloud_artwork_token = 'cloud'");
    EXPECT_FALSE(picture());
    writeFile(_received, "picture");
    ASSERT_TRUE(library->importOriginalArtworkFromFileURL(_received, "cloud", 1, 1, 8));
    ASSERT_TRUE(picture());
    EXPECT_EQ(picture()->originalFileURL,
              korvane::ArtworkStore::originalPath(korvane::artworkRelativePath("cloud")));
    EXPECT_TRUE(files.fileExists(picture()->originalFileURL));
    execute("UPDATE item_artwork SET sync_artwork_token = 'sync'");
    EXPECT_FALSE(picture());
    EXPECT_FALSE(library->fetchItemArtworkForPersistentID(2));
    EXPECT_FALSE(library->fetchItemArtworkForPersistentID(0));
}

TEST_F(LibraryArtwork, APictureWhoseFileIsMissingIsStillNamed) {
    add({.pid = 1});
    execute("UPDATE item_artwork SET sync_artwork_token = 'sync'");
    execute(
        "INSERT INTO artwork (artwork_token, relative_path, artwork_type, source_type, "
        "picture_media_type) VALUES ('sync', 'aa/bb/cc', 1, 2, 8)");
    ASSERT_TRUE(library->fetchItemArtworkForPersistentID(1));
    EXPECT_EQ(library->fetchItemArtworkForPersistentID(1)->originalFileURL,
              "/var/mobile/Media/Tessel_Control/Artwork/Originals/aa/bb/cc");
}

class LibraryOrphanedArtwork : public LibraryArtwork {
protected:
    void importPicture(const std::string& token) {
        writeFile(_received, "picture");
        ASSERT_TRUE(library->importOriginalArtworkFromFileURL(_received, token, 1, 2, 8));
    }
    bool isThere(const std::string& token) {
        return library->artwork().hasOriginal(korvane::artworkRelativePath(token));
    }
    std::int64_t recorded() { return number("SELECT count(*) FROM artwork"); }
};

TEST_F(LibraryOrphanedArtwork, PicturesThatNobodyAsksForGo) {
    add({.pid = 1});
    execute("UPDATE item_artwork SET sync_artwork_token = 'sync', store_artwork_token = 'store'");
    for (const char* token : {"sync", "store", "old"})
        importPicture(token);
    library->deleteOrphanedArtworkWithSearchOptions(2);
    EXPECT_TRUE(isThere("sync"));
    EXPECT_TRUE(isThere("store"));
    EXPECT_FALSE(isThere("old"));
    EXPECT_EQ(recorded(), 2);
}

TEST_F(LibraryOrphanedArtwork, AnotherSearchFindsNone) {
    importPicture("old");
    for (const std::int64_t options : {0, 1, 3, -1})
        library->deleteOrphanedArtworkWithSearchOptions(options);
    EXPECT_TRUE(isThere("old"));
    EXPECT_EQ(recorded(), 1);
}

TEST_F(LibraryOrphanedArtwork, PicturesStayUntilTheTransactionIsCommitted) {
    importPicture("old");
    const auto inTransaction = [&](bool commits) {
        library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
            library->deleteOrphanedArtworkWithSearchOptions(2);
            EXPECT_TRUE(isThere("old"));
            return commits;
        });
    };
    inTransaction(false);
    EXPECT_TRUE(isThere("old"));
    EXPECT_EQ(recorded(), 1);
    inTransaction(true);
    EXPECT_FALSE(isThere("old"));
    EXPECT_EQ(recorded(), 0);
}

TEST_F(LibraryOrphanedArtwork, ARowWithoutItsPictureGoesQuietly) {
    importPicture("old");
    files.removeItem(korvane::ArtworkStore::originalPath(korvane::artworkRelativePath("old")));
    library->deleteOrphanedArtworkWithSearchOptions(2);
    EXPECT_EQ(recorded(), 0);
    EXPECT_TRUE(log.messages().empty());
}

}  // namespace
