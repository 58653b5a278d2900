#include "device/artwork/image_resize.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/device/artwork/media_samples.h"

namespace {

using artwork::ErrorCode;
using artwork::imageFormat;
using artwork::PixelSize;
using artwork::resizeImage;
using samples::Bytes;

constexpr int Tolerance = 24;  // lossy encoding and colour conversion

void expectColour(const std::array<int, 3>& actual, const std::array<int, 3>& expected) {
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_NEAR(actual[i], expected[i], Tolerance) << "channel " << i;
}

constexpr std::array<int, 3> Red{255, 0, 0}, Green{0, 128, 0}, Blue{0, 0, 255};

// Red on the left third, green in the middle, blue on the right.
std::string stripes(int width, int height) {
    const std::string w = std::to_string(width / 3), h = std::to_string(height);
    return "color=red:s=" + w + "x" + h + "[r];color=green:s=" + w + "x" + h +
           "[g];color=blue:s=" + w + "x" + h + "[b];[r][g][b]hstack=3";
}

TEST(ImageResize, EveryFormatComesOutInItsOwnFormatAndTheExactSize) {
    for (const char* suffix : {"jpg", "png", "webp"}) {
        const Bytes source = samples::picture("testsrc=s=640x480", suffix);
        platform::OptionalError error;
        const PixelSize sizes[] = {{600, 600}, {123, 77}, {1, 1}};
        const auto results = resizeImage(source, sizes, error);
        ASSERT_FALSE(error) << error->text();
        ASSERT_EQ(results.size(), 3u);
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(imageFormat(results[i]), imageFormat(source)) << suffix;
            const samples::Pixels pixels = samples::decode(results[i]);
            EXPECT_EQ(pixels.width, static_cast<int>(sizes[i].width)) << suffix;
            EXPECT_EQ(pixels.height, static_cast<int>(sizes[i].height)) << suffix;
        }
    }
}

TEST(ImageResize, ProportionsAreKeptAndTheMiddleIsCutOut) {
    const Bytes source = samples::picture(stripes(900, 300), "png");
    platform::OptionalError error;
    const PixelSize sizes[] = {{100, 100}, {300, 100}};
    const auto results = resizeImage(source, sizes, error);
    ASSERT_FALSE(error);
    const samples::Pixels square = samples::decode(results[0]);
    for (int x : {5, 50, 94})
        expectColour(square.at(x, 50), Green);
    const samples::Pixels whole = samples::decode(results[1]);
    expectColour(whole.at(20, 50), Red);
    expectColour(whole.at(150, 50), Green);
    expectColour(whole.at(280, 50), Blue);
}

TEST(ImageResize, ASmallPictureIsEnlarged) {
    platform::OptionalError error;
    const PixelSize sizes[] = {{500, 400}};
    const auto results = resizeImage(samples::picture("color=blue:s=20x20", "jpg"), sizes, error);
    ASSERT_FALSE(error);
    const samples::Pixels pixels = samples::decode(results[0]);
    EXPECT_EQ(pixels.width, 500);
    EXPECT_EQ(pixels.height, 400);
    expectColour(pixels.at(250, 200), Blue);
}

// The two bytes of an EXIF block that ask for a quarter turn clockwise.
Bytes withOrientation(const Bytes& jpeg, std::uint8_t orientation) {
    const std::uint8_t exif[] = {0xFF, 0xE1, 0, 34, 'E', 'x',         'i', 'f', 0, 0,    'M', 'M',
                                 0,    42,   0, 0,  0,   8,           0,   1,   1, 0x12, 0,   3,
                                 0,    0,    0, 1,  0,   orientation, 0,   0,   0, 0,    0,   0};
    Bytes result(jpeg.begin(), jpeg.begin() + 2);
    result.insert(result.end(), std::begin(exif), std::end(exif));
    result.insert(result.end(), jpeg.begin() + 2, jpeg.end());
    return result;
}

TEST(ImageResize, APictureLyingOnItsSideIsSetUpright) {
    const Bytes source = withOrientation(samples::picture(stripes(900, 300), "jpg"), 6);
    platform::OptionalError error;
    const PixelSize sizes[] = {{100, 300}};
    const auto results = resizeImage(source, sizes, error);
    ASSERT_FALSE(error) << error->text();
    const samples::Pixels pixels = samples::decode(results[0]);
    EXPECT_EQ(pixels.width, 100);
    EXPECT_EQ(pixels.height, 300);
    expectColour(pixels.at(50, 20), Red);
    expectColour(pixels.at(50, 150), Green);
    expectColour(pixels.at(50, 280), Blue);
}

TEST(ImageResize, GreyAndDeepAndTransparentPicturesAreMade) {
    for (const char* format : {"gray", "gray16be", "rgb48be", "rgba", "ya8", "pal8"}) {
        const Bytes source =
            samples::picture("testsrc=s=200x100", "png", std::string("-pix_fmt ") + format);
        platform::OptionalError error;
        const PixelSize sizes[] = {{50, 50}};
        const auto results = resizeImage(source, sizes, error);
        ASSERT_FALSE(error) << format << ": " << error->text();
        EXPECT_EQ(samples::decode(results[0]).width, 50) << format;
    }
}

TEST(ImageResize, AHostileSourceIsRefusedWithAReason) {
    const PixelSize sizes[] = {{600, 600}};
    platform::OptionalError error;
    EXPECT_TRUE(resizeImage(samples::pngClaiming(20'000, 20'000), sizes, error).empty());
    ASSERT_TRUE(error);
    EXPECT_EQ(*error, artwork::makeError(ErrorCode::TooLarge,
                                         "The picture is too large: 20000 x 20000 pixels; at most "
                                         "50 million can be decoded safely."));
    error.reset();
    EXPECT_TRUE(resizeImage(Bytes{'n', 'o'}, sizes, error).empty());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, static_cast<std::int64_t>(ErrorCode::NotAPicture));
}

TEST(ImageResize, AnEndlesslyTallPictureCostsLittle) {
    platform::OptionalError error;
    const PixelSize sizes[] = {{600, 600}};
    const auto results = resizeImage(samples::picture("color=red:s=2x16000", "png"), sizes, error);
    ASSERT_FALSE(error) << error->text();
    EXPECT_EQ(samples::decode(results[0]).height, 600);
}

TEST(ImageResize, PossibleSizesAreBounded) {
    EXPECT_TRUE(artwork::isPossible({1, 1}));
    EXPECT_TRUE(artwork::isPossible({16'383, 3'000}));
    EXPECT_FALSE(artwork::isPossible({0, 600}));
    EXPECT_FALSE(artwork::isPossible({600, 0}));
    EXPECT_FALSE(artwork::isPossible({16'384, 1}));
    EXPECT_FALSE(artwork::isPossible({10'000, 10'000}));
}

TEST(ImageResize, DamagedPicturesGiveAPictureOrAnErrorButNeverCrash) {
    std::uint64_t state = 88172645463325252ULL;
    const auto random = [&state] {
        state ^= state << 13, state ^= state >> 7, state ^= state << 17;
        return static_cast<std::size_t>(state);
    };
    for (const char* suffix : {"jpg", "png", "webp"}) {
        const Bytes original = samples::picture("testsrc=s=160x120", suffix);
        for (int round = 0; round < 300; ++round) {
            Bytes damaged = original;
            for (int i = 0; i < 6; ++i)
                damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
            if (round % 4 == 0)
                damaged.resize(random() % damaged.size());
            platform::OptionalError error;
            const PixelSize sizes[] = {{32, 32}};
            const auto results = resizeImage(damaged, sizes, error);
            EXPECT_NE(results.size() == 1, error.has_value());
        }
    }
}

}  // namespace
