#include "common/chapters/chapters.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>

namespace {

using common::Chapter;
using common::decodeChapters;
using common::encodeChapters;

const std::vector<Chapter> Three{{0, "One", "cache-1"}, {12'346, "", ""}, {60'000, "Drei", "c"}};

TEST(Chapters, ComeBackAsTheyWere) {
    const auto data = encodeChapters(Three);
    ASSERT_TRUE(data);
    EXPECT_EQ(decodeChapters(*data), Three);
    EXPECT_EQ(decodeChapters(*encodeChapters({})), std::vector<Chapter>());
}

TEST(Chapters, AreWrittenInOrderOfTheirStarts) {
    auto backwards = Three;
    std::ranges::reverse(backwards);
    EXPECT_EQ(decodeChapters(*encodeChapters(backwards)), Three);
}

TEST(Chapters, TheBytesAreThoseOfTheFormat) {
    EXPECT_EQ(*encodeChapters({{0x0102, "T", ""}}),
              (platform::Data{'K', 'V', 'T', 'C', 1, 0, 1, 0, 0,   0, 2, 1,
                              0,   0,   0,   0,   0, 0, 1, 0, 'T', 0, 0}));
}

TEST(Chapters, CutShortAnywhereTheyAreRefused) {
    const auto data = *encodeChapters(Three);
    for (std::size_t size = 0; size < data.size(); ++size)
        EXPECT_FALSE(decodeChapters(std::span(data).first(size))) << size;
    auto longer = data;
    longer.push_back(0);
    EXPECT_FALSE(decodeChapters(longer));
}

TEST(Chapters, WrongMagicVersionCountOrOrderIsRefused) {
    const auto data = *encodeChapters(Three);
    for (const std::size_t at : {0u, 4u, 6u, 8u}) {
        auto changed = data;
        changed[at] ^= 0xff;
        EXPECT_FALSE(decodeChapters(changed)) << at;
    }
    auto unordered = data;
    unordered[10] = 0xff;  // the first start is later than the second
    unordered[12] = 0xff;
    EXPECT_FALSE(decodeChapters(unordered));
}

TEST(Chapters, LimitsHoldBothWays) {
    EXPECT_FALSE(encodeChapters({{0, std::string(4'097, 'x'), ""}}));
    EXPECT_TRUE(encodeChapters({{0, std::string(4'096, 'x'), ""}}));
    EXPECT_FALSE(encodeChapters(std::vector<Chapter>(10'001)));
    EXPECT_FALSE(encodeChapters(std::vector<Chapter>(1'000, {0, std::string(4'000, 'x'), ""})));
    EXPECT_FALSE(decodeChapters(platform::Data((1u << 20) + 1)));
}

TEST(Chapters, AnyBytesAreReadWithoutHarm) {
    EXPECT_TRUE(rc::check([](std::vector<std::uint8_t> tail) {
        platform::Data bytes{'K', 'V', 'T', 'C', 1, 0};
        bytes.insert(bytes.end(), tail.begin(), tail.end());
        if (const auto chapters = decodeChapters(bytes)) {
            RC_ASSERT(encodeChapters(*chapters) == bytes);
        }
    }));
}

}  // namespace
