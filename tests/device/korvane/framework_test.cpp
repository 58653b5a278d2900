// The class operations that bundles reach the library through.
#include "device/korvane/framework.h"

#include <gmock/gmock.h>

#include "common/chapters/chapters.h"
#include "device/korvane/saver.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FrameworkTest : public test::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        framework = std::make_unique<korvane::Framework>(library, korvane::FrameworkParts{});
    }
    std::vector<std::string> cacheIDs(const platform::Data& data, std::size_t atMost = SIZE_MAX) {
        std::vector<std::string> found;
        framework->enumerateChapterArtworkCacheIDs(data, [&](const std::string& id, bool& stop) {
            found.push_back(id);
            stop = found.size() == atMost;
        });
        return found;
    }

    std::unique_ptr<korvane::Framework> framework;
};

TEST_F(FrameworkTest, ChaptersNameTheirPicturesAndTheBlockMayStop) {
    const auto data =
        common::encodeChapters({{0, "One", "a"}, {1000, "Two", ""}, {2000, "Three", "c"}});
    EXPECT_THAT(cacheIDs(*data), ElementsAre("a", "", "c"));
    EXPECT_THAT(cacheIDs(*data, 1), ElementsAre("a"));
    EXPECT_THAT(cacheIDs({}), IsEmpty());
    EXPECT_THAT(cacheIDs({1, 2, 3}), IsEmpty());
}

TEST_F(FrameworkTest, CoversOfMusicAreShownInThreeSizes) {
    const auto sizes =
        framework->artworkConfiguration().sizesToAutogenerateForMediaType(KV3MediaTypeMusic, 1);
    ASSERT_EQ(sizes.size(), 3u);
    EXPECT_EQ(sizes.back().width, 600);
    EXPECT_EQ(sizes.back().height, 600);
    for (const auto& [mediaType, artworkType] :
         {std::pair(KV3MediaTypeMusic, 3), std::pair(KV3MediaTypeMovie, 1), std::pair(0u, 1)})
        EXPECT_THAT(framework->artworkConfiguration().sizesToAutogenerateForMediaType(mediaType,
                                                                                      artworkType),
                    IsEmpty());
}

TEST_F(FrameworkTest, ThereIsAlwaysAPlaylistToAskAndASessionToExportWith) {
    EXPECT_FALSE(framework->containerWithPersistentID(5, library)->isBuiltInSmartPlaylist());
    const auto builtIn = framework->autoCreatedBuiltInSmartPlaylistsPIDs(library);
    ASSERT_FALSE(builtIn.empty());
    EXPECT_TRUE(
        framework->containerWithPersistentID(builtIn[0], library)->isBuiltInSmartPlaylist());
    const std::shared_ptr<platform::MemoryOutputStream> stream = files.makeMemoryOutputStream();
    stream->open();
    const auto session = framework->makeExportSession(library, stream);
    EXPECT_TRUE(session->begin());
    EXPECT_TRUE(session->end());
    const platform::Data bytes = stream->takeData();
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "QORX");
}

TEST_F(FrameworkTest, TheLibrarysUidIsAnsweredAsText) {
    EXPECT_EQ(library->libraryUID(), platform::Value(library->uid()));
    EXPECT_FALSE(library->uid().empty());
}

}  // namespace
