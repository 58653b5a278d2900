#include "host/artwork/artwork.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/media_maker.h"
#include "tests/support/temporary_directory.h"

namespace host {
namespace {

class Artwork : public testing::Test {
protected:
    void write(const std::string& relative, const std::string& bytes) {
        test::writeFile(folder / relative, bytes);
    }
    // Scans, takes each file's best candidate and prepares it; by file.
    std::vector<PreparedArtwork> prepareBest() {
        ScanOptions options;
        options.folder = folder.path();
        EXPECT_FALSE(scanFolder(options, workers, scan));
        const FolderImages images(scan.images);
        std::vector<ArtworkCandidate> best;
        for (const MediaFile& file : scan.files) {
            const auto candidates = artworkCandidates(file, images);
            if (!candidates.empty())
                best.push_back(candidates.front());
        }
        std::vector<PreparedArtwork> prepared;
        ArtworkPreparer preparer(folder.path(), cache.path(), workers);
        EXPECT_FALSE(preparer.prepare(best, prepared));
        return prepared;
    }

    test::TemporaryDirectory folder;
    test::TemporaryDirectory cache;
    MediaWorkers workers;
    ScanResult scan;
};

TEST_F(Artwork, TheBestCandidateIsDecidedPerTrack) {
    const std::string inside = test::plainJpeg(10, 10);
    write("A/embedded.mp3", test::taggedMp3({}, 1, inside));
    write("A/own.mp3", test::taggedMp3({}, 1, inside));
    write("A/plain.mp3", test::taggedMp3({}));
    write("A/OWN.JPG", test::plainJpeg(11, 11));
    write("A/Cover.png", test::plainPng(12, 12));
    write("B/none.mp3", test::taggedMp3({}));
    const auto prepared = prepareBest();
    ASSERT_EQ(prepared.size(), 3u);
    EXPECT_EQ(prepared[0].width, 10);
    EXPECT_EQ(prepared[1].width, 11);
    EXPECT_EQ(prepared[2].width, 12);
    EXPECT_EQ(prepared[2].extension, "png");
    EXPECT_EQ(test::bytesOfFile(prepared[0].path), inside);
}

TEST_F(Artwork, AnImageNamedLikeTheAlbumServes) {
    write("A/song.mp3", test::taggedMp3({{"TALB", "Tides"}}));
    write("A/tides.webp", test::plainWebp(20, 20));
    const auto prepared = prepareBest();
    ASSERT_EQ(prepared.size(), 1u);
    EXPECT_EQ(prepared[0].extension, "jpg");
}

TEST_F(Artwork, EqualPicturesShareOneTokenAndOneFile) {
    const std::string cover = test::plainJpeg(50, 50);
    for (const char* name : {"A/1.mp3", "A/2.mp3", "B/3.mp3"})
        write(name, test::taggedMp3({}, 1, cover));
    write("C/4.mp3", test::taggedMp3({}));
    write("C/folder.jpg", cover);
    const auto prepared = prepareBest();
    ASSERT_EQ(prepared.size(), 4u);
    for (const PreparedArtwork& artwork : prepared) {
        EXPECT_EQ(artwork.token, prepared[0].token);
        EXPECT_EQ(artwork.path, prepared[0].path);
    }
    EXPECT_EQ(prepared[0].token.size(), 32u);
}

TEST_F(Artwork, ABadPictureCostsOnlyItself) {
    write("A/1.mp3", test::taggedMp3({}, 1, "this is no picture"));
    write("A/2.mp3", test::taggedMp3({}, 1, test::plainJpeg(5, 5)));
    write("A/3.mp3", test::taggedMp3({}));
    write("A/3.png", test::pngBomb(20'000, 20'000));
    write("A/4.mp3", test::taggedMp3({}));
    write("A/4.jpg", "");
    const auto prepared = prepareBest();
    ASSERT_EQ(prepared.size(), 4u);
    EXPECT_THAT(prepared[0].reason, testing::HasSubstr("no picture that the device can show"));
    EXPECT_TRUE(prepared[1].usable());
    EXPECT_THAT(prepared[2].reason, testing::HasSubstr("20000 x 20000 pixels"));
    EXPECT_EQ(prepared[3].reason, "the picture is empty");
}

TEST_F(Artwork, ASecondRunDecodesNothing) {
    write("A/1.mp3", test::taggedMp3({}, 1, test::plainJpeg(5, 5)));
    write("A/2.mp3", test::taggedMp3({}));
    write("A/2.jpg", test::plainJpeg(6, 6));
    write("A/3.mp3", test::taggedMp3({}, 1, "no picture"));
    const auto first = prepareBest();
    const FolderImages images(scan.images);
    std::vector<ArtworkCandidate> candidates;
    for (const MediaFile& file : scan.files)
        candidates.push_back(artworkCandidates(file, images).front());
    MediaWorkerOptions none;
    none.executable = "/nowhere/at-all";
    MediaWorkers noWorkers(none);
    ArtworkPreparer preparer(folder.path(), cache.path(), noWorkers);
    std::vector<PreparedArtwork> second;
    ASSERT_FALSE(preparer.prepare(candidates, second));
    ASSERT_EQ(second.size(), first.size());
    for (std::size_t place = 0; place < first.size(); ++place) {
        EXPECT_EQ(second[place].reason, first[place].reason);
        EXPECT_EQ(second[place].token, first[place].token);
        EXPECT_EQ(second[place].path, first[place].path);
    }
}

TEST_F(Artwork, EachChapterHasThePictureThatItBeginsWith) {
    write("book.m4b",
          test::bytesOfFile(ORLITH_SOURCE_DIR "/examples/media/Audiobooks/The Lantern Keeper.m4b"));
    const auto covers = prepareBest();
    ASSERT_EQ(covers.size(), 1u);
    EXPECT_EQ(covers[0].width, 300);
    const auto candidates = chapterArtworkCandidates(scan.files[0]);
    ASSERT_EQ(candidates.size(), 3u);
    ArtworkPreparer preparer(folder.path(), cache.path(), workers);
    std::vector<PreparedArtwork> pictures;
    ASSERT_FALSE(preparer.prepare(candidates, pictures));
    for (const PreparedArtwork& picture : pictures) {
        EXPECT_EQ(picture.reason, "");
        EXPECT_EQ(picture.width, 96);
    }
    EXPECT_NE(pictures[0].token, pictures[1].token);
    EXPECT_NE(pictures[1].token, pictures[2].token);
}

TEST_F(Artwork, AnImageThatLeftTheCacheIsPreparedAgain) {
    write("A/1.mp3", test::taggedMp3({}, 1, test::plainJpeg(5, 5)));
    const auto first = prepareBest();
    std::filesystem::remove(first[0].path);
    const auto second = prepareBest();
    EXPECT_TRUE(second[0].usable());
    EXPECT_TRUE(std::filesystem::exists(second[0].path));
}

TEST_F(Artwork, ADamagedIndexIsAnEmptyOne) {
    write("A/1.mp3", test::taggedMp3({}, 1, test::plainJpeg(5, 5)));
    prepareBest();
    const std::string index = test::bytesOfFile(cache / "index");
    for (std::size_t size = 0; size < index.size(); size += 3) {
        test::writeFile(cache / "index", index.substr(0, size));
        EXPECT_TRUE(prepareBest()[0].usable());
    }
}

TEST_F(Artwork, TokensOfTracksAndSnapshotsDiffer) {
    const ContentHash picture{1, 2};
    EXPECT_NE(artworkTokenOfTrack(picture, 1, {}), artworkTokenOfTrack(picture, 2, {}));
    EXPECT_NE(artworkTokenOfTrack(picture, 1, {}), artworkTokenOfSnapshot(1));
    EXPECT_EQ(artworkTokenOfSnapshot(7), artworkTokenOfSnapshot(7));
    EXPECT_EQ(artworkTokenOfSnapshot(7).size(), 32u);
}

TEST_F(Artwork, OtherChapterPicturesOrStartsMakeAnotherToken) {
    const ContentHash cover{1, 2};
    const std::vector<Chapter> chapters{{0, "I", ContentHash{3}}, {2'000, "II", ContentHash{4}}};
    const auto tokenOf = [&](auto change) {
        std::vector<Chapter> changed = chapters;
        change(changed[1]);
        return artworkTokenOfTrack(cover, 1, changed);
    };
    const std::string token = artworkTokenOfTrack(cover, 1, chapters);
    EXPECT_NE(tokenOf([](Chapter& chapter) { chapter.picture = ContentHash{5}; }), token);
    EXPECT_NE(tokenOf([](Chapter& chapter) { chapter.picture.reset(); }), token);
    EXPECT_NE(tokenOf([](Chapter& chapter) { chapter.startMilliseconds = 2'001; }), token);
    EXPECT_EQ(tokenOf([](Chapter& chapter) { chapter.title = "Another"; }), token);
}

}  // namespace
}  // namespace host
