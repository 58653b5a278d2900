#include "host/scan/scanner.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "platform/media_library_properties.h"
#include "tests/support/media_maker.h"
#include "tests/support/temporary_directory.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string Samples = ORLITH_SOURCE_DIR "/examples/media";

class Scanner : public testing::Test {
protected:
    ScanResult scan(const std::string& path) {
        ScanOptions options;
        options.folder = path;
        return scan(options);
    }
    ScanResult scan(const ScanOptions& options) {
        ScanResult result;
        const auto error = scanFolder(options, workers, result);
        EXPECT_FALSE(error) << error->description();
        return result;
    }
    std::int64_t errorOf(const std::string& path) {
        ScanOptions options;
        options.folder = path;
        ScanResult result;
        const auto error = scanFolder(options, workers, result);
        return error ? error->code : 0;
    }
    void write(const std::string& relative, const std::string& bytes) {
        test::writeFile(folder / relative, bytes);
    }
    static const MediaFile& file(const ScanResult& result, const std::string& path) {
        const auto found =
            std::ranges::find(result.files, path, [](const MediaFile& f) { return f.stamp.path; });
        if (found == result.files.end())
            throw std::runtime_error("not listed: " + path);
        return *found;
    }
    static std::vector<std::string> paths(const ScanResult& result) {
        std::vector<std::string> all;
        for (const MediaFile& f : result.files)
            all.push_back(f.stamp.path);
        return all;
    }

    test::TemporaryDirectory folder;
    MediaWorkers workers;
};

TEST_F(Scanner, AFolderThatIsMissingIsToldFromOneThatIsNoFolder) {
    write("file", "x");
    EXPECT_EQ(errorOf(folder / "missing"), ScanErrorFolderNotFound);
    EXPECT_EQ(errorOf(folder / "file"), ScanErrorNotAFolder);
    EXPECT_EQ(errorOf(folder / "file/below"), ScanErrorNotAFolder);
}

TEST_F(Scanner, AnEmptyFolderHasNoFiles) {
    const ScanResult result = scan(folder.path());
    EXPECT_THAT(result.files, IsEmpty());
    EXPECT_THAT(result.skipped, IsEmpty());
}

TEST_F(Scanner, TagsAndStreamsOfEveryFormatAreRead) {
    const ScanResult result = scan(Samples);
    const MediaFile& mp3 = file(result, "Music/Lumen Field/Harbour Lights/02 Salt and Rope.mp3");
    EXPECT_EQ(mp3.tags.title, "Salt and Rope");
    EXPECT_EQ(mp3.tags.artist, "Lumen Field");
    EXPECT_EQ(mp3.tags.album, "Harbour Lights");
    EXPECT_EQ(mp3.tags.genre, "Folk");
    EXPECT_EQ(mp3.tags.year, 2019);
    EXPECT_EQ(mp3.tags.trackNumber, 2);
    EXPECT_EQ(mp3.tags.trackCount, 4);
    EXPECT_EQ(mp3.tags.discNumber, 1);
    EXPECT_EQ(mp3.tags.beatsPerMinute, 92);
    EXPECT_EQ(mp3.container, "mp3");
    EXPECT_EQ(mp3.sampleRate, 44100);
    EXPECT_EQ(mp3.channels, 1);
    EXPECT_NEAR(static_cast<double>(mp3.durationMilliseconds), 3000, 60);
    ASSERT_TRUE(mp3.artwork);
    EXPECT_GT(mp3.artwork->size, 1000);
    const MediaFile& m4a = file(result, "Music/Ørnevik Kvartett/Nordlys/02 Søndag.m4a");
    EXPECT_EQ(m4a.tags.title, "Søndag");
    EXPECT_EQ(m4a.tags.composer, "I. Ørnevik");
    EXPECT_EQ(m4a.tags.releaseDate, 1614902400);
    EXPECT_EQ(m4a.container, "mp4");
    for (const auto& [path, codec] : {std::pair("Music/Kettle/Odds/Whistle.flac", "flac"),
                                      std::pair("Music/Kettle/Odds/Steam.ogg", "vorbis"),
                                      std::pair("Music/Kettle/Odds/Boil.opus", "opus")}) {
        EXPECT_EQ(file(result, path).audioCodec, codec);
        EXPECT_EQ(file(result, path).tags.artist, "Kettle");
        EXPECT_GE(file(result, path).durationMilliseconds, 2000);
        EXPECT_GT(file(result, path).sampleRate, 0);
    }
    const MediaFile& film = file(result, "Movies/Northern Ferry.mkv");
    EXPECT_TRUE(film.hasVideo);
    EXPECT_EQ(film.videoCodec, "h264");
    EXPECT_EQ(film.width, 160);
    EXPECT_EQ(film.height, 120);
}

TEST_F(Scanner, ChaptersAreReadInOrder) {
    const ScanResult result = scan(Samples + "/Audiobooks");
    const MediaFile& book = file(result, "The Lantern Keeper.m4b");
    EXPECT_EQ(book.mediaType, KV3MediaTypeAudiobook);
    ASSERT_EQ(book.chapters.size(), 3u);
    EXPECT_EQ(book.chapters[1].startMilliseconds, 2000);
    EXPECT_EQ(book.chapters[2].title, "III. The Lämp");
    EXPECT_TRUE(book.artwork);
    EXPECT_FALSE(book.hasVideo) << "the chapters' pictures are no film";
}

TEST_F(Scanner, EachSampleIsOfItsKind) {
    const ScanResult result = scan(Samples);
    EXPECT_EQ(file(result, "Podcasts/Field Notes/Episode 1.mp3").mediaType, KV3MediaTypePodcast);
    EXPECT_EQ(file(result, "Movies/Paper Boats.mp4").mediaType, KV3MediaTypeMovie);
    EXPECT_EQ(file(result, "Home Videos/IMG_0001.mov").mediaType, KV3MediaTypeHomeVideo);
    EXPECT_EQ(file(result, "Music Videos/Lumen Field - Lamp Room.m4v").mediaType,
              KV3MediaTypeMusicVideo);
    EXPECT_EQ(file(result, "TesselU/Tides and Currents/Lecture 1.m4a").mediaType,
              KV3MediaTypeTesselU);
    const MediaFile& episode =
        file(result, "TV Shows/Tidewater/Season 1/Tidewater - S01E02 - Low Water.mp4");
    EXPECT_EQ(episode.mediaType, KV3MediaTypeTVEpisode);
    EXPECT_EQ(episode.tags.show, "Tidewater");
    EXPECT_EQ(episode.tags.season, 1);
    EXPECT_EQ(episode.tags.episode, 2);
    EXPECT_EQ(episode.tags.title, "Low Water");
    EXPECT_EQ(result.playlists.size(), 2u);
    EXPECT_EQ(result.images.size(), 1u);
}

TEST_F(Scanner, OneBadFileNeverStopsTheRest) {
    const std::string good = test::taggedMp3({{"TIT2", "Good"}});
    const std::string film = test::bytesOfFile(Samples + "/Movies/Paper Boats.mp4");
    write("good.mp3", good);
    write("empty.mp3", "");
    write("text.mp3", std::string(5000, 'a'));
    write("noise.m4a", std::string(2000, '\x07'));
    write("half.mp4", film.substr(0, film.size() / 2));
    write("head.mp4", film.substr(0, 300));
    write("film.avi", "RIFF");
    write("thing.xyz", "what");
    write("cover.gif", "GIF89a");
    write("notes.txt", "notes");
    const ScanResult result = scan(folder.path());
    EXPECT_TRUE(file(result, "good.mp3").readable());
    EXPECT_EQ(file(result, "empty.mp3").reason, "the file is empty");
    EXPECT_EQ(file(result, "text.mp3").reason,
              "it is damaged, or no media file of a kind that can be synced");
    EXPECT_FALSE(file(result, "noise.m4a").readable());
    EXPECT_EQ(file(result, "half.mp4").reason, "the file is cut short");
    EXPECT_FALSE(file(result, "head.mp4").readable());
    EXPECT_THAT(file(result, "film.avi").reason, HasSubstr("files of the kind .avi"));
    EXPECT_EQ(file(result, "thing.xyz").reason, "it is no kind of file that can be synced");
    EXPECT_EQ(result.files.size(), 8u) << "pictures and texts are no media";
}

// Looking at the first bytes alone would tell the format by the picture's: this one looks like a
// broadcast, packet after packet.
TEST_F(Scanner, ATagOfAnyLengthHidesNoSound) {
    constexpr std::size_t PacketSize = 188;
    std::string picture;
    for (int packet = 0; picture.size() < 600'000; ++packet) {
        std::string bytes(PacketSize, '\xFF');
        bytes[0] = 'G';
        bytes[1] = '\0';
        bytes[2] = '\x11';
        bytes[3] = static_cast<char>(0x10 | (packet & 0xF));
        picture += bytes;
    }
    write("long.mp3", test::taggedMp3({{"TIT2", "Long tag"}}, 1, picture));
    const ScanResult result = scan(folder.path());
    EXPECT_EQ(file(result, "long.mp3").reason, "");
    EXPECT_EQ(file(result, "long.mp3").tags.title, "Long tag");
}

TEST_F(Scanner, EveryTruncationOfAFileIsReadOrRefused) {
    const std::string book = test::bytesOfFile(Samples + "/Audiobooks/The Lantern Keeper.m4b");
    for (std::size_t size = 1; size < book.size(); size += book.size() / 60)
        write("cut" + std::to_string(size) + ".m4b", book.substr(0, size));
    const ScanResult result = scan(folder.path());
    for (const MediaFile& f : result.files)
        EXPECT_NE(f.reason, "the file crashed the reader") << f.stamp.path;
}

TEST_F(Scanner, AnyBytesMayNameAFile) {
    const std::string song = test::taggedMp3({});
    const std::vector<std::string> names = {"a\nb.mp3",
                                            "concat:x|y.mp3",
                                            "e\xCC\x81t\xC3\xA9.mp3",
                                            "\xF0\x9F\x8E\xB5.mp3",
                                            "\xff\xfe.mp3",
                                            "%n%s.mp3",
                                            "file:.mp3",
                                            " .mp3"};
    for (const std::string& name : names)
        write(name, song);
    const ScanResult result = scan(folder.path());
    EXPECT_THAT(paths(result), testing::UnorderedElementsAreArray(names));
    for (const MediaFile& f : result.files) {
        EXPECT_TRUE(f.readable()) << f.reason;
        EXPECT_FALSE(f.tags.title.empty());
    }
    EXPECT_EQ(file(result, "a\nb.mp3").tags.title, "a b");
    EXPECT_EQ(file(result, "\xff\xfe.mp3").tags.title, "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST_F(Scanner, TwinsOfCaseAndContentAreFilesOfTheirOwn) {
    const std::string song = test::taggedMp3({{"TIT2", "Same"}});
    write("Song.mp3", song);
    write("song.mp3", song);
    write("copy.mp3", song);
    EXPECT_THAT(paths(scan(folder.path())), ElementsAre("Song.mp3", "copy.mp3", "song.mp3"));
}

TEST_F(Scanner, HiddenFilesAndSystemFoldersAreNotListed) {
    const std::string song = test::taggedMp3({});
    write(".hidden.mp3", song);
    write("._song.mp3", song);
    write(".trash/song.mp3", song);
    write("@eaDir/song.mp3", song);
    write("Thumbs.db", "x");
    const ScanResult result = scan(folder.path());
    EXPECT_THAT(result.files, IsEmpty());
    EXPECT_THAT(result.skipped, IsEmpty());
}

TEST_F(Scanner, ALinkStandsForAFileInTheFolderThatIsNotListedItself) {
    const test::TemporaryDirectory elsewhere;
    const std::string song = test::taggedMp3({});
    write("song.mp3", song);
    write(".store/object", song);
    test::writeFile(elsewhere / "out.mp3", song);
    std::filesystem::create_symlink("song.mp3", folder / "again.mp3");
    std::filesystem::create_symlink(".store/object", folder / "stored.mp3");
    std::filesystem::create_symlink(elsewhere / "out.mp3", folder / "out.mp3");
    std::filesystem::create_symlink("nowhere.mp3", folder / "broken.mp3");
    std::filesystem::create_directory_symlink(".", folder / "loop");
    const ScanResult result = scan(folder.path());
    EXPECT_THAT(paths(result), ElementsAre("song.mp3", "stored.mp3"));
    std::vector<std::string> skipped;
    for (const SkippedPath& path : result.skipped)
        skipped.push_back(path.path + ": " + path.reason);
    EXPECT_THAT(skipped, ElementsAre("again.mp3: the link leads to a file that is listed itself",
                                     HasSubstr("broken.mp3: the link leads nowhere"),
                                     "loop: links to folders are not followed",
                                     "out.mp3: the link leads out of the folder"));
}

TEST_F(Scanner, APipeNamedLikeASongIsSkippedWithoutWaiting) {
    ASSERT_EQ(::mkfifo((folder / "pipe.mp3").c_str(), 0600), 0);
    const ScanResult result = scan(folder.path());
    ASSERT_EQ(result.skipped.size(), 1u);
    EXPECT_EQ(result.skipped[0].reason, "it is no file");
}

TEST_F(Scanner, AFolderNestedTooDeepIsSkipped) {
    std::string path;
    for (int depth = 0; depth < 70; ++depth)
        path += "d/";
    write(path + "song.mp3", test::taggedMp3({}));
    const ScanResult result = scan(folder.path());
    EXPECT_THAT(result.files, IsEmpty());
    ASSERT_EQ(result.skipped.size(), 1u);
    EXPECT_THAT(result.skipped[0].reason, HasSubstr("64 folders deep"));
}

TEST_F(Scanner, AKnownFileIsNotOpenedAgain) {
    write("a.mp3", test::taggedMp3({{"TIT2", "One"}}));
    write("b.mp3", test::taggedMp3({{"TIT2", "Two"}}));
    const ScanResult first = scan(folder.path());
    EXPECT_EQ(first.filesRead, 2);
    ScanOptions options;
    options.folder = folder.path();
    options.known = [&](const FileStamp& stamp) -> const MediaFile* {
        return &file(first, stamp.path);
    };
    ScanResult second = scan(options);
    EXPECT_EQ(second.filesRead, 0);
    EXPECT_EQ(second.files, first.files);
    write("b.mp3", test::taggedMp3({{"TIT2", "Changed"}}));
    second = scan(options);
    EXPECT_EQ(second.filesRead, 1);
    EXPECT_EQ(file(second, "b.mp3").tags.title, "Changed");
}

TEST_F(Scanner, AFileThatFailedForAPassingReasonIsTriedAgain) {
    write("bad.mp3", std::string(500, 'x'));
    write("hang.mp3", "x");
    MediaWorkerOptions faulty;
    faulty.executable = ORLITH_BINARY_DIR "/faulty-scan-worker";
    faulty.fileTimeout = std::chrono::milliseconds(50);
    MediaWorkers faultyWorkers(faulty);
    ScanOptions options;
    options.folder = folder.path();
    ScanResult first;
    ASSERT_FALSE(scanFolder(options, faultyWorkers, first));
    EXPECT_TRUE(file(first, "hang.mp3").readAgain);
    options.known = [&](const FileStamp& stamp) -> const MediaFile* {
        return &file(first, stamp.path);
    };
    EXPECT_EQ(scan(options).filesRead, 1);
}

TEST_F(Scanner, RulesAreAppliedAnewToKnownFiles) {
    write("talk.mp3", test::taggedMp3({{"TIT2", "Talk"}, {"TCON", "Speech"}}));
    write("draft.mp3", test::taggedMp3({}));
    write("orlith-rules.toml",
          "[[rule]]\nmatch = \"talk.*\"\nkind = \"tessel-u\"\ngenre = \"Lecture\"\n"
          "[[rule]]\nmatch = \"draft*\"\nignore = true\n");
    const ScanResult first = scan(folder.path());
    EXPECT_THAT(paths(first), ElementsAre("talk.mp3"));
    EXPECT_EQ(file(first, "talk.mp3").mediaType, KV3MediaTypeTesselU);
    EXPECT_EQ(file(first, "talk.mp3").tags.genre, "Lecture");
    std::filesystem::remove(folder / "orlith-rules.toml");
    ScanOptions options;
    options.folder = folder.path();
    options.known = [&](const FileStamp& stamp) -> const MediaFile* {
        return stamp.path == "talk.mp3" ? &first.files[0] : nullptr;
    };
    const ScanResult second = scan(options);
    EXPECT_EQ(second.filesRead, 1) << "the draft alone";
    EXPECT_EQ(file(second, "talk.mp3").mediaType, KV3MediaTypeMusic);
    EXPECT_EQ(file(second, "talk.mp3").tags.genre, "Speech");
}

TEST_F(Scanner, AFaultyRuleFileStopsTheScanBeforeAnythingIsRead) {
    write("song.mp3", test::taggedMp3({}));
    write("orlith-rules.toml", "[[rule]]\nmatch = \"*\"\nkind = \"flim\"\n");
    ScanOptions options;
    options.folder = folder.path();
    ScanResult result;
    const auto error = scanFolder(options, workers, result);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ScanErrorRuleFile);
    EXPECT_THAT(error->text(), HasSubstr("orlith-rules.toml, line 3: \"flim\" is no kind"));
}

TEST_F(Scanner, ProgressCountsUpToAllFiles) {
    test::makeSongs(folder.path(), 200);
    ScanOptions options;
    options.folder = folder.path();
    std::vector<ScanProgress> reports;
    options.progress = [&](const ScanProgress& progress) { reports.push_back(progress); };
    scan(options);
    ASSERT_GE(reports.size(), 3u);
    EXPECT_TRUE(reports.front().walking);
    EXPECT_FALSE(reports.back().walking);
    EXPECT_EQ(reports.back().filesSeen, 200);
    EXPECT_EQ(reports.back().filesRead, 200);
    EXPECT_TRUE(std::ranges::is_sorted(reports, {}, &ScanProgress::filesRead));
}

TEST_F(Scanner, AStoppedScanSaysSo) {
    test::makeSongs(folder.path(), 200);
    std::stop_source stop;
    ScanOptions options;
    options.folder = folder.path();
    options.stop = stop.get_token();
    options.progress = [&](const ScanProgress& progress) {
        if (progress.filesRead > 0)
            stop.request_stop();
    };
    ScanResult result;
    const auto error = scanFolder(options, workers, result);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ScanErrorCancelled);
}

// As root everything can be read: root plays somebody else for a while.
class WithoutPrivileges {
public:
    WithoutPrivileges() : _user(::geteuid()) {
        EXPECT_EQ(::seteuid(_user == 0 ? 65534 : _user), 0);
    }
    ~WithoutPrivileges() { EXPECT_EQ(::seteuid(_user), 0); }

private:
    uid_t _user;
};

TEST_F(Scanner, AFolderThatCannotBeReadIsAnError) {
    std::filesystem::permissions(folder.path(), std::filesystem::perms::none);
    const WithoutPrivileges nobody;
    EXPECT_EQ(errorOf(folder.path()), ScanErrorFolderUnreadable);
}

TEST_F(Scanner, AFolderWithinThatCannotBeReadIsSkipped) {
    write("closed/song.mp3", test::taggedMp3({}));
    std::filesystem::permissions(folder.path(), static_cast<std::filesystem::perms>(0755));
    std::filesystem::permissions(folder / "closed", std::filesystem::perms::none);
    {
        const WithoutPrivileges nobody;
        const ScanResult result = scan(folder.path());
        ASSERT_EQ(result.skipped.size(), 1u);
        EXPECT_EQ(result.skipped[0].path, "closed/");
        EXPECT_EQ(result.skipped[0].reason, "the folder cannot be read: Permission denied");
    }
    std::filesystem::permissions(folder / "closed", std::filesystem::perms::owner_all);
}

}  // namespace
}  // namespace host
