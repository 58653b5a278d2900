#include "device/artwork/image_check.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <random>

#include "tests/device/artwork/media_samples.h"
#include "tests/support/temporary_directory.h"

namespace {

using artwork::checkImage;
using artwork::ImageCheck;
using artwork::ImageFormat;
using samples::Bytes;
using testing::HasSubstr;

TEST(ImageCheck, EachFormatIsKnownByItsHeaderAndItsSizeIsRead) {
    const std::pair<const char*, ImageFormat> formats[] = {
        {"jpg", ImageFormat::Jpeg}, {"png", ImageFormat::Png}, {"webp", ImageFormat::WebP}};
    for (const auto& [suffix, format] : formats) {
        const ImageCheck check = checkImage(samples::picture("testsrc=s=320x200", suffix));
        ASSERT_TRUE(check.info) << suffix << ": " << check.reason;
        EXPECT_EQ(check.info->format, format);
        EXPECT_EQ(check.info->width, 320u);
        EXPECT_EQ(check.info->height, 200u);
        EXPECT_EQ(check.reason, "");
    }
}

TEST(ImageCheck, OtherFormatsAreRefused) {
    for (const char* suffix : {"gif", "bmp", "tiff"}) {
        const ImageCheck check = checkImage(samples::picture("testsrc=s=32x32", suffix));
        EXPECT_FALSE(check.info) << suffix;
        EXPECT_EQ(check.reason, "The file is not a JPEG, PNG or WebP picture.");
    }
    const std::string svg = "<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>";
    EXPECT_FALSE(checkImage(Bytes(svg.begin(), svg.end())).info);
}

TEST(ImageCheck, AnEmptyFileIsRefused) {
    EXPECT_EQ(checkImage({}).reason, "The file is empty.");
}

TEST(ImageCheck, APictureBombIsRefusedByItsHeaderAlone) {
    checkImage(samples::picture("testsrc=s=32x32", "png"));  // libvips has started
    const Bytes png = samples::pngClaiming(20'000, 20'000);
    const Bytes jpeg = samples::jpegClaiming(20'000, 20'000);
    for (const Bytes& bomb : {png, jpeg}) {
        const auto start = std::chrono::steady_clock::now();
        const ImageCheck check = checkImage(bomb);
        const auto took = std::chrono::steady_clock::now() - start;
        EXPECT_FALSE(check.info);
        EXPECT_TRUE(check.isTooLarge);
        EXPECT_EQ(check.reason,
                  "The picture is too large: 20000 x 20000 pixels; at most 50 million can be "
                  "decoded safely.");
#ifdef NDEBUG
        EXPECT_LT(took, std::chrono::milliseconds(20));
#else
        EXPECT_LT(took, std::chrono::milliseconds(200));
#endif
    }
}

TEST(ImageCheck, FiftyMegapixelsAreTheLimit) {
    EXPECT_TRUE(checkImage(samples::jpegClaiming(10'000, 5'000)).info);
    EXPECT_FALSE(checkImage(samples::jpegClaiming(10'000, 5'001)).info);
}

TEST(ImageCheck, APictureThatDecodesAsAWholeHasALowerLimit) {
    EXPECT_TRUE(checkImage(samples::pngClaiming(8'000, 6'000)).info);
    EXPECT_TRUE(checkImage(samples::pngClaiming(4'000, 3'000, true)).info);
    const ImageCheck check = checkImage(samples::pngClaiming(8'000, 6'000, true));
    EXPECT_TRUE(check.isTooLarge);
    EXPECT_EQ(check.reason,
              "The picture is too large for its kind of compression: 8000 x 6000 pixels would take "
              "more than 128 MiB to decode.");
}

TEST(ImageCheck, DamagedPicturesAreRefusedOrReadButNeverCrash) {
    std::minstd_rand random(20240917);
    for (const char* suffix : {"jpg", "png", "webp"}) {
        const Bytes original = samples::picture("testsrc=s=64x48", suffix);
        for (int round = 0; round < 700; ++round) {
            Bytes damaged = original;
            for (int i = 0; i < 8; ++i)
                damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
            if (round % 3 == 0)
                damaged.resize(random() % damaged.size());
            const ImageCheck check = checkImage(damaged);
            EXPECT_NE(check.info.has_value(), !check.reason.empty());
        }
    }
}

TEST(ImageCheck, AFileIsReadFromItsBeginningWhateverItsNameOrPosition) {
    const test::TemporaryDirectory directory;
    samples::writeFile(directory / "cover.gif", samples::picture("testsrc=s=40x30", "jpg"));
    const int fd = ::open((directory / "cover.gif").c_str(), O_RDONLY | O_CLOEXEC);
    ::lseek(fd, 100, SEEK_SET);
    const ImageCheck check = artwork::checkImageFile(fd);
    ASSERT_TRUE(check.info) << check.reason;
    EXPECT_EQ(check.info->width, 40u);
    EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), 100);
    ::close(fd);
}

TEST(ImageCheck, ADirectoryOrAHugeFileIsRefusedUnread) {
    const test::TemporaryDirectory directory;
    int fd = ::open(directory.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_THAT(artwork::checkImageFile(fd).reason, HasSubstr("cannot be read"));
    ::close(fd);

    fd = ::open((directory / "huge").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::ftruncate(fd, off_t{1} << 40), 0);
    const ImageCheck check = artwork::checkImageFile(fd);
    EXPECT_TRUE(check.isTooLarge);
    EXPECT_EQ(check.reason, "The file is larger than 32 MiB.");
    ::close(fd);
}

}  // namespace
