#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "host/artwork/artwork.h"
#include "host/artwork/prepared_image.h"
#include "tests/support/media_maker.h"

namespace host {
namespace {

using testing::HasSubstr;

PreparedImage prepare(const std::string& bytes) {
    return prepareImage({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

TEST(ImagePreparation, WhatFitsStaysByteForByte) {
    const std::string jpeg = test::plainJpeg(600, 400);
    PreparedImage image = prepare(jpeg);
    EXPECT_EQ(image.reason, "");
    EXPECT_EQ(image.extension, "jpg");
    EXPECT_EQ(image.width, 600);
    EXPECT_EQ(image.height, 400);
    EXPECT_EQ(image.bytes, jpeg);
    const std::string png = test::plainPng(1400, 3);
    image = prepare(png);
    EXPECT_EQ(image.extension, "png");
    EXPECT_EQ(image.bytes, png);
}

TEST(ImagePreparation, ThePictureOfExactlyTheLimitIsSentAsItIs) {
    const std::string jpeg = test::plainJpeg(600, 600, 10'485'760);
    const PreparedImage image = prepare(jpeg);
    EXPECT_EQ(image.reason, "");
    EXPECT_EQ(image.bytes.size(), 10'485'760u);
}

TEST(ImagePreparation, OneByteMoreIsMadeSmaller) {
    const PreparedImage image = prepare(test::plainJpeg(600, 600, 10'485'761));
    EXPECT_EQ(image.reason, "");
    EXPECT_EQ(image.extension, "jpg");
    EXPECT_EQ(image.width, 600);
    EXPECT_LT(image.bytes.size(), 1'000'000u);
}

TEST(ImagePreparation, OneByteMoreThatIsNoPictureIsRefused) {
    EXPECT_NE(prepare("\xff\xd8\xff" + std::string(10'485'758, 'x')).reason, "");
}

TEST(ImagePreparation, LargePicturesAreScaledKeepingTheirShape) {
    const PreparedImage image = prepare(test::plainJpeg(2800, 1400));
    EXPECT_EQ(image.reason, "");
    EXPECT_EQ(image.width, 1400);
    EXPECT_EQ(image.height, 700);
    EXPECT_EQ(prepare(image.bytes).bytes, image.bytes) << "the result is itself acceptable";
}

TEST(ImagePreparation, WebpBecomesJpeg) {
    const PreparedImage image = prepare(test::plainWebp(100, 80));
    EXPECT_EQ(image.reason, "");
    EXPECT_EQ(image.extension, "jpg");
    EXPECT_EQ(image.width, 100);
}

TEST(ImagePreparation, ABombIsRefusedByItsHeader) {
    const std::string bomb = test::pngBomb(20'000, 20'000);
    EXPECT_LT(bomb.size(), 1'000'000u);
    prepare(test::plainPng(4, 4));  // the library starts once
    const std::clock_t start = std::clock();
    const PreparedImage image = prepare(bomb);
    const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    EXPECT_THAT(image.reason, HasSubstr("20000 x 20000 pixels"));
    EXPECT_LT(seconds, 0.1);
}

TEST(ImagePreparation, WhatIsNoPictureIsRefused) {
    EXPECT_EQ(prepare("").reason, "the picture is empty");
    for (const std::string bytes : {"GIF89a\1\0\1\0", "BM......", "<svg/>", "%PDF-1.4", "text"})
        EXPECT_EQ(prepare(bytes).reason,
                  "it is no picture that the device can show (JPEG, PNG or WebP)");
}

TEST(ImagePreparation, DamagedPicturesAreRefused) {
    for (const std::string& whole :
         {test::plainJpeg(300, 300), test::plainPng(300, 300), test::plainWebp(300, 300)})
        for (const std::size_t part : {4u, 30u, 50u, 90u})
            EXPECT_NE(prepare(whole.substr(0, whole.size() * part / 100)).reason, "")
                << whole.substr(0, 4) << ' ' << part;
}

TEST(ImagePreparation, TheHashIsOfThePictureAsFound) {
    EXPECT_EQ(prepare(test::plainJpeg(8, 8)).hash, prepare(test::plainJpeg(8, 8)).hash);
    EXPECT_NE(prepare(test::plainJpeg(8, 8)).hash, prepare(test::plainJpeg(9, 8)).hash);
}

TEST(ImagePreparation, RecordsComeBackAndTruncatedOnesDoNot) {
    const PreparedImage image = prepare(test::plainJpeg(8, 8));
    const std::string record = encodePreparedImage(image);
    const auto decoded = decodePreparedImage(record);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->bytes, image.bytes);
    EXPECT_EQ(decoded->hash, image.hash);
    for (std::size_t size = 0; size < record.size(); ++size)
        EXPECT_FALSE(decodePreparedImage(std::string_view(record).substr(0, size)));
}

}  // namespace
}  // namespace host
