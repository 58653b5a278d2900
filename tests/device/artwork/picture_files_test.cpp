#include "device/artwork/picture_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "device/artwork/frame_grabber.h"
#include "device/system/rooted_file_system.h"
#include "tests/device/artwork/media_samples.h"
#include "tests/support/temporary_directory.h"

namespace {

TEST(PictureFiles, ADevicePathIsCheckedInsideTheDevice) {
    const test::TemporaryDirectory outside;
    samples::writeFile(outside / "cover", samples::picture("testsrc=s=40x30", "png"));
    const test::TemporaryDirectory root;
    device::RootedFileSystem files(root.path());
    samples::writeFile(root / "cover", samples::picture("testsrc=s=80x60", "jpg"));
    ASSERT_EQ(::symlink((outside / "cover").c_str(), (root / "link").c_str()), 0);
    ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);

    const artwork::ImageCheck check = artwork::checkPicture(files, "/cover");
    ASSERT_TRUE(check.info) << check.reason;
    EXPECT_EQ(check.info->width, 80u);
    for (const char* path : {"/link", "/pipe", "/none", "cover"}) {
        EXPECT_FALSE(artwork::checkPicture(files, path).info) << path;
        EXPECT_NE(artwork::checkPicture(files, path).reason, "") << path;
    }
}

TEST(PictureFiles, AFrameIsTakenFromAFilmOfTheDevice) {
    const test::TemporaryDirectory root;
    device::RootedFileSystem files(root.path());
    samples::ffmpeg("-f lavfi -i color=blue:s=64x48:r=5:d=2 -c:v mpeg4 -f mp4 " + (root / "film"));
    const artwork::FrameGrabber grabber(FRAME_GRABBER_PATH);
    platform::OptionalError error;
    const auto jpeg = artwork::grabFrame(files, grabber, "/film", 105, error);
    ASSERT_FALSE(error) << error->text();
    EXPECT_EQ(samples::decode(jpeg).width, 64);

    EXPECT_TRUE(artwork::grabFrame(files, grabber, "/none", 105, error).empty());
    EXPECT_EQ(error, platform::Error::posix(ENOENT));
}

}  // namespace
