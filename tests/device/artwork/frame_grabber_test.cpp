#include "device/artwork/frame_grabber.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "common/unique_fd.h"
#include "tests/device/artwork/media_samples.h"
#include "tests/support/temporary_directory.h"

namespace {

using artwork::FrameGrabber;
using artwork::FrameGrabberErrorCode;
using samples::Bytes;

constexpr int Tolerance = 12;

class FrameGrabbing : public testing::Test {
protected:
    // The frame at a time, taken apart; a failure when there is none.
    samples::Pixels frameAt(const std::string& path, double seconds) {
        platform::OptionalError error;
        const Bytes jpeg = grab(path, seconds, error);
        EXPECT_FALSE(error) << error->text();
        return jpeg.empty() ? samples::Pixels() : samples::decode(jpeg);
    }
    Bytes grab(const std::string& path, double seconds, platform::OptionalError& error,
               const FrameGrabber& grabber = FrameGrabber(FRAME_GRABBER_PATH)) {
        const common::UniqueFd film(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_TRUE(film) << path;
        return grabber.grab(film.get(), seconds, error);
    }
    std::string reasonFor(const std::string& path) {
        platform::OptionalError error;
        EXPECT_TRUE(grab(path, 105, error).empty());
        if (!error)
            return "";
        EXPECT_EQ(error->code, static_cast<std::int64_t>(FrameGrabberErrorCode::NoFrame));
        return error->text();
    }
    // A film whose grey level is 2 per second: second 105 is 210, or near it.
    std::string greyFilm(const std::string& name, int seconds, const std::string& options) {
        const std::string path = directory / name;
        samples::ffmpeg("-f lavfi -i \"color=black:s=64x48:r=5:d=" + std::to_string(seconds) +
                        ",format=gray,geq=lum='2*floor(T+0.001)'\" " + options + " " + path);
        return path;
    }

    test::TemporaryDirectory directory;
};

void expectGrey(const samples::Pixels& pixels, int level) {
    ASSERT_GT(pixels.width, 0);
    for (int channel : pixels.at(pixels.width / 2, pixels.height / 2))
        EXPECT_NEAR(channel, level, 2);
}

TEST_F(FrameGrabbing, TheFrameIsThatOfTheSecondAskedFor) {
    const std::string full = "-pix_fmt yuvj420p -color_range pc -c:v mpeg4 -q:v 1";
    const std::string mp4 = greyFilm("film.mp4", 120, full + " -g 25");
    expectGrey(frameAt(mp4, 105), 210);
    expectGrey(frameAt(mp4, 105.9), 210);
    expectGrey(frameAt(mp4, 40), 80);
    expectGrey(frameAt(mp4, 0), 0);
}

TEST_F(FrameGrabbing, OtherContainersAndDecodersDoAsWell) {
    expectGrey(frameAt(greyFilm("film.mkv", 112, "-c:v libx264 -crf 8 -pix_fmt yuv420p"), 105),
               210);
    expectGrey(
        frameAt(greyFilm("film.ts", 112, "-c:v mpeg2video -r 25 -q:v 1 -pix_fmt yuv420p"), 105),
        210);
}

TEST_F(FrameGrabbing, AShortFilmGivesItsLastFrame) {
    const std::string film =
        greyFilm("short.mp4", 60, "-c:v libx264 -crf 4 -pix_fmt yuv420p -bf 2");
    expectGrey(frameAt(film, 105), 118);
    const std::string threeSeconds = directory / "three.mp4";
    samples::ffmpeg(
        "-f lavfi -i color=red:s=64x48:r=5:d=1 -f lavfi -i color=green:s=64x48:r=5:d=1 "
        "-f lavfi -i color=blue:s=64x48:r=5:d=1 -filter_complex '[0][1][2]concat=n=3' "
        "-c:v libx264 -pix_fmt yuv420p " +
        threeSeconds);
    const auto colour = frameAt(threeSeconds, 105).at(32, 24);
    EXPECT_NEAR(colour[2], 255, Tolerance);
    EXPECT_NEAR(colour[0], 0, Tolerance);
}

TEST_F(FrameGrabbing, ALargeFilmIsScaledDownAndItsPixelsMadeSquare) {
    const std::string large = directory / "large.mp4";
    samples::ffmpeg("-f lavfi -i testsrc=s=1920x1080:r=5:d=1 -c:v mpeg4 " + large);
    samples::Pixels pixels = frameAt(large, 0);
    EXPECT_EQ(pixels.width, 1280);
    EXPECT_EQ(pixels.height, 720);

    const std::string wide = directory / "wide.mkv";
    samples::ffmpeg("-f lavfi -i testsrc=s=320x240:r=5:d=1 -vf setsar=2/1 -c:v mpeg4 " + wide);
    pixels = frameAt(wide, 0);
    EXPECT_EQ(pixels.width, 640);
    EXPECT_EQ(pixels.height, 240);
}

// Red above blue in the frame as stored, turned by what the container says.
TEST_F(FrameGrabbing, ATurnedFilmIsSetUpright) {
    const std::string plain = directory / "plain.mp4";
    samples::ffmpeg(
        "-f lavfi -i color=red:s=96x32:r=5:d=1 -f lavfi -i color=blue:s=96x32:r=5:d=1 "
        "-filter_complex '[0][1]vstack' -c:v mpeg4 -q:v 2 " +
        plain);
    for (const int degrees : {90, 180, 270}) {
        const std::string turned = directory / ("turned" + std::to_string(degrees) + ".mp4");
        const std::string shown = directory / "shown.png";
        samples::ffmpeg("-i " + plain + " -c copy -metadata:s:v rotate=" + std::to_string(degrees) +
                        " " + turned);
        samples::ffmpeg("-i " + turned + " -frames:v 1 " + shown);  // turns by itself
        const samples::Pixels expected = samples::decode(samples::readFile(shown));
        const samples::Pixels actual = frameAt(turned, 0);
        ASSERT_EQ(actual.width, expected.width) << degrees;
        ASSERT_EQ(actual.height, expected.height) << degrees;
        for (const int part : {1, 3}) {
            const int x = actual.width * part / 4;
            const int y = actual.height * part / 4;
            for (std::size_t i = 0; i < 3; ++i)
                EXPECT_NEAR(actual.at(x, y)[i], expected.at(x, y)[i], 2 * Tolerance) << degrees;
        }
    }
}

TEST_F(FrameGrabbing, WhatIsNoFilmIsRefusedWithAReason) {
    const std::string audio = directory / "audio.m4a";
    samples::ffmpeg("-f lavfi -i sine=d=2 -c:a aac " + audio);
    EXPECT_EQ(reasonFor(audio), "The file has no moving picture.");

    samples::writeFile(directory / "cover.jpg", samples::picture("testsrc=s=64x64", "jpg"));
    const std::string covered = directory / "covered.m4a";
    samples::ffmpeg("-i " + audio + " -i " + (directory / "cover.jpg") +
                    " -map 0 -map 1 -c copy -disposition:v:0 attached_pic " + covered);
    EXPECT_EQ(reasonFor(covered), "The file has no moving picture.");

    samples::writeFile(directory / "garbage.mp4", Bytes(100'000, 0x5A));
    EXPECT_EQ(reasonFor(directory / "garbage.mp4"), "The file is not a film that can be read.");
    samples::writeFile(directory / "empty.mp4", {});
    EXPECT_EQ(reasonFor(directory / "empty.mp4"), "The file is not a film that can be read.");
    EXPECT_EQ(reasonFor(directory / "cover.jpg"), "The file is not a film that can be read.");
}

TEST_F(FrameGrabbing, APlaylistThatNamesOtherFilesOpensNone) {
    const std::string film = greyFilm("secret.mp4", 2, "-c:v mpeg4");
    std::ofstream(directory / "list.m3u8") << "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n"
                                           << film << "\n#EXT-X-ENDLIST\n";
    EXPECT_EQ(reasonFor(directory / "list.m3u8"), "The file is not a film that can be read.");
    std::ofstream(directory / "list.txt") << "ffconcat version 1.0\nfile '" << film << "'\n";
    EXPECT_EQ(reasonFor(directory / "list.txt"), "The file is not a film that can be read.");
}

TEST_F(FrameGrabbing, DamagedFilmsGiveAFrameOrAReason) {
    const Bytes original = samples::readFile(
        greyFilm("film.mp4", 4, "-c:v libx264 -pix_fmt yuv420p -movflags +faststart"));
    std::uint64_t state = 0x9E3779B97F4A7C15ULL;
    const auto random = [&state] {
        state ^= state << 13, state ^= state >> 7, state ^= state << 17;
        return static_cast<std::size_t>(state);
    };
    for (int round = 0; round < 25; ++round) {
        Bytes damaged = original;
        for (int i = 0; i < 20; ++i)
            damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
        if (round % 3 == 0)
            damaged.resize(random() % damaged.size());
        samples::writeFile(directory / "damaged.mp4", damaged);
        platform::OptionalError error;
        const Bytes jpeg = grab(directory / "damaged.mp4", 2, error);
        EXPECT_NE(jpeg.empty(), !error);
    }
}

TEST_F(FrameGrabbing, AHelperThatDiesHangsOrIsMissingIsAnError) {
    const std::string film = greyFilm("film.mp4", 1, "-c:v mpeg4");
    const auto codeWith = [&](const FrameGrabber& grabber) {
        platform::OptionalError error;
        EXPECT_TRUE(grab(film, 0, error, grabber).empty());
        return error ? *error : platform::Error();
    };
    EXPECT_EQ(codeWith(FrameGrabber("/bin/false")).code,
              static_cast<std::int64_t>(FrameGrabberErrorCode::Died));
    EXPECT_EQ(codeWith(FrameGrabber("/nowhere/helper")), platform::Error::posix(ENOENT));

    const std::string hanging = directory / "hanging";
    std::ofstream(hanging) << "#!/bin/sh\nexec /bin/sleep 600\n";
    ASSERT_EQ(::chmod(hanging.c_str(), 0700), 0);
    EXPECT_EQ(codeWith(FrameGrabber(hanging, std::chrono::milliseconds(100))).code,
              static_cast<std::int64_t>(FrameGrabberErrorCode::TimedOut));

    const std::string flooding = directory / "flooding";
    std::ofstream(flooding) << "#!/bin/sh\nexec /bin/cat /dev/zero | /usr/bin/tr '\\0' '\\377'\n";
    ASSERT_EQ(::chmod(flooding.c_str(), 0700), 0);
    EXPECT_EQ(codeWith(FrameGrabber(flooding)).code,
              static_cast<std::int64_t>(FrameGrabberErrorCode::Died));
}

}  // namespace
