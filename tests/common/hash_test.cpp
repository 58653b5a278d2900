#include "common/hash.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(Hash, GivesThePublishedValues) {
    EXPECT_EQ(common::hexText(common::xxh3({})), "99aa06d3014798d86001c324468d497f");
    EXPECT_EQ(common::xxh3Short(""), 0x2d06800538d394c2u);
    EXPECT_EQ(common::hexText(common::sha256(bytesOf("abc"))),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(common::hexText(common::sha256({})),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

template <typename Stream, typename Whole>
void expectPiecesToGiveTheWhole(Whole whole) {
    std::vector<std::uint8_t> bytes(100'000);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 31 >> 3);
    const std::span<const std::uint8_t> all(bytes);
    Stream stream;
    EXPECT_EQ(stream.digest(), whole({}));
    std::size_t done = 0;
    for (std::size_t piece = 1; done < all.size(); piece = piece * 3 + 1) {
        const std::size_t count = std::min(piece, all.size() - done);
        stream.update(all.subspan(done, count));
        done += count;
        EXPECT_EQ(stream.digest(), whole(all.first(done)));
    }
}

TEST(Hash, PiecesGiveTheHashOfTheWhole) {
    expectPiecesToGiveTheWhole<common::XXH3Stream>(common::xxh3);
    expectPiecesToGiveTheWhole<common::SHA256Stream>(common::sha256);
}

}  // namespace
