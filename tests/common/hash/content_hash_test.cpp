#include "common/hash/content_hash.h"

#include <gtest/gtest.h>

namespace common {
namespace {

TEST(ContentHash, IsTheSameInPiecesAndWhole) {
    std::string text;
    for (int i = 0; i < 100000; ++i)
        text += static_cast<char>(i * 7);
    ContentHasher hasher;
    hasher.update(std::string_view(text).substr(0, 1));
    hasher.update(std::string_view(text).substr(1, 70000));
    hasher.update(std::string_view(text).substr(70001));
    EXPECT_EQ(hasher.digest(),
              contentHashOf({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}));
}

TEST(ContentHash, TravelsAsSixteenBytesHighHalfFirst) {
    const ContentHash hash{0x0102030405060708, 0x090a0b0c0d0e0f10};
    EXPECT_EQ(hash.bytes(),
              std::string("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f\x10"));
}

// The published value of XXH3-128 over no bytes, seed 0.
TEST(ContentHash, OfNothingIsThePublishedValue) {
    EXPECT_EQ(contentHashOf({}), (ContentHash{0x99aa06d3014798d8, 0x6001c324468d497f}));
}

}  // namespace
}  // namespace common
