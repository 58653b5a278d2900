#include "host/playlists/playlists.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/media_maker.h"
#include "tests/support/temporary_directory.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Playlists : public testing::Test {
protected:
    void addFile(const std::string& path) {
        MediaFile& file = files.emplace_back();
        file.stamp.path = path;
    }
    Playlist read(const std::string& name, const std::string& text) {
        test::writeFile(folder / name, text);
        FileStamp stamp;
        stamp.path = name;
        return readPlaylist(folder.path(), stamp, FileIndex(folder.path(), files), files);
    }
    // The paths found, and "!" with the reason of each missing entry behind them.
    std::vector<std::string> outcome(const std::string& name, const std::string& text) {
        const Playlist playlist = read(name, text);
        EXPECT_EQ(playlist.reason, "");
        std::vector<std::string> result;
        for (const std::size_t place : playlist.items)
            result.push_back(files[place].stamp.path);
        for (const MissingEntry& entry : playlist.missing)
            result.push_back("!" + std::to_string(entry.position) + " " + entry.reason);
        return result;
    }
    static std::string xspf(const std::string& locations) {
        return "<?xml version=\"1.0\"?><playlist version=\"1\" xmlns=\"http://xspf.org/ns/0/\">"
               "<title> Über </title><trackList>" +
               locations + "</trackList></playlist>";
    }
    static std::string track(const std::string& location) {
        return "<track><location>" + location + "</location></track>";
    }

    test::TemporaryDirectory folder;
    std::vector<MediaFile> files;
};

TEST_F(Playlists, OrderAndDuplicatesAreKept) {
    addFile("a.mp3");
    addFile("b.mp3");
    EXPECT_THAT(outcome("x.m3u", "#EXTM3U\n#EXTINF:1,A\nb.mp3\r\na.mp3\n\nb.mp3"),
                ElementsAre("b.mp3", "a.mp3", "b.mp3"));
}

TEST_F(Playlists, MissingFilesAreListedWithTheirPlace) {
    addFile("a.mp3");
    const Playlist playlist = read("x.m3u", "gone.mp3\na.mp3\nhttp://radio/x\n");
    EXPECT_EQ(playlist.items, std::vector<std::size_t>{0});
    ASSERT_EQ(playlist.missing.size(), 2u);
    EXPECT_EQ(playlist.missing[0].position, 1u);
    EXPECT_EQ(playlist.missing[0].text, "gone.mp3");
    EXPECT_EQ(playlist.missing[0].reason, "there is no such file");
    EXPECT_EQ(playlist.missing[1].position, 3u);
    EXPECT_EQ(playlist.missing[1].reason, "it is no file of this folder");
}

TEST_F(Playlists, AFileThatCannotBeReadIsMissingWithItsReason) {
    addFile("a.mp3");
    files[0].reason = "the file is empty";
    EXPECT_THAT(outcome("x.m3u", "a.mp3\n"), ElementsAre("!1 the file is empty"));
}

TEST_F(Playlists, PathsAreFoundFromThePlaylistOrFromTheTop) {
    addFile("Music/a.mp3");
    addFile("Lists/b.mp3");
    EXPECT_THAT(outcome("Lists/x.m3u",
                        "../Music/a.mp3\nb.mp3\n./b.mp3\nMusic/a.mp3\n"
                        "..\\Music\\a.mp3\n../../Music/a.mp3\n"),
                ElementsAre("Music/a.mp3", "Lists/b.mp3", "Lists/b.mp3", "Music/a.mp3",
                            "Music/a.mp3", "!6 there is no such file"));
}

TEST_F(Playlists, AbsolutePathsAndFileAddressesAreFoundWithinTheFolder) {
    addFile("Music/a b.mp3");
    EXPECT_THAT(
        outcome("x.m3u", folder / "Music/a b.mp3\n" + "file://" + (folder / "Music/a%20b.mp3\n") +
                             "file://localhost" + (folder / "Music/../Music/a%20b.mp3\n") +
                             "/elsewhere/Music/a b.mp3\n"),
        ElementsAre("Music/a b.mp3", "Music/a b.mp3", "Music/a b.mp3", "!4 there is no such file"));
}

TEST_F(Playlists, NamesThatMeanThemselvesComeBeforeDecodedOnes) {
    addFile("100%25.mp3");
    addFile("100%.mp3");
    EXPECT_THAT(outcome("x.m3u", "100%25.mp3\n100%.mp3\n"), ElementsAre("100%25.mp3", "100%.mp3"));
    EXPECT_THAT(outcome("x.xspf", xspf(track("100%25.mp3"))), ElementsAre("100%.mp3"));
}

TEST_F(Playlists, UnicodeFormsAndCaseMeetWhereOneFileFits) {
    addFile("e\xCC\x81t\xC3\xA9.mp3");
    addFile("Loud.mp3");
    addFile("Twin.mp3");
    addFile("twin.mp3");
    EXPECT_THAT(
        outcome("x.m3u8", "\xC3\xA9te\xCC\x81.mp3\nLOUD.MP3\ntwin.mp3\nTWIN.mp3\n"),
        ElementsAre("e\xCC\x81t\xC3\xA9.mp3", "Loud.mp3", "twin.mp3", "!4 there is no such file"));
}

TEST_F(Playlists, OlderEncodingsAreUnderstood) {
    addFile("Caf\xC3\xA9 \xE2\x80\x94 1.mp3");
    addFile("raw\xe9.mp3");
    EXPECT_THAT(outcome("x.m3u", "Caf\xe9 \x97 1.mp3\nraw\xe9.mp3\n"),
                ElementsAre("Caf\xC3\xA9 \xE2\x80\x94 1.mp3", "raw\xe9.mp3"));
    EXPECT_THAT(outcome("y.m3u", "\xEF\xBB\xBF#EXTM3U\nCaf\xC3\xA9 \xE2\x80\x94 1.mp3\n"),
                ElementsAre("Caf\xC3\xA9 \xE2\x80\x94 1.mp3"));
    std::string wide = "\xff\xfe";
    for (const char c : std::string("Caf\xe9 ")) {
        wide += c;
        wide += '\0';
    }
    wide += "\x14\x20 ";
    wide += '\0';
    for (const char c : std::string("1.mp3\n")) {
        wide += c;
        wide += '\0';
    }
    EXPECT_THAT(outcome("z.m3u", wide), ElementsAre("Caf\xC3\xA9 \xE2\x80\x94 1.mp3"));
}

TEST_F(Playlists, APlaylistThatNamesPlaylistsIsNotFollowed) {
    EXPECT_THAT(
        outcome("x.m3u", "x.m3u\nother.m3u8\n"),
        ElementsAre("!1 the playlist names itself", "!2 a playlist in a playlist is not followed"));
}

TEST_F(Playlists, TheTitleComesFromWithinOrFromTheName) {
    EXPECT_EQ(read("Some mix.m3u", "#PLAYLIST: Évening \na.mp3\n").name, "Évening");
    EXPECT_EQ(read("Some mix.m3u", "#EXTM3U\n").name, "Some mix");
    EXPECT_EQ(read("x.xspf", xspf("")).name, "Über");
}

TEST_F(Playlists, XspfLocationsAreDecoded) {
    addFile("Ö/a & b.mp3");
    EXPECT_THAT(
        outcome("x.xspf", xspf(track("%C3%96/a%20&amp;%20b.mp3") + track("Ö/a &amp; b.mp3") +
                               "<track><title>none</title></track>" + track("https://x/y.mp3"))),
        ElementsAre("Ö/a & b.mp3", "Ö/a & b.mp3", "!3 it is no file of this folder"));
}

TEST_F(Playlists, DamagedXspfIsRefusedWithTheLine) {
    EXPECT_THAT(read("x.xspf", "<playlist>\n<oops>").reason, HasSubstr("line 2 is damaged"));
    EXPECT_EQ(read("x.xspf", "<html/>").reason, "it is no XSPF playlist");
    EXPECT_THAT(read("x.xspf", "").reason, HasSubstr("damaged"));
    EXPECT_THAT(read("x.xspf", "<!DOCTYPE a [<!ENTITY b \"c\">]><playlist/>").reason,
                HasSubstr("document type"));
    std::string deep = "<playlist>";
    for (int depth = 0; depth < 100'000; ++depth)
        deep += "<a>";
    EXPECT_EQ(read("x.xspf", deep).reason, "its elements are nested too deep");
    EXPECT_EQ(read("x.xspf", xspf(track(std::string(70'000, 'a')))).reason,
              "an element holds too much text");
}

TEST_F(Playlists, SizeAndCountAreBounded) {
    addFile("a");
    std::string many;
    for (std::size_t count = 0; count < PlaylistEntryLimit; ++count)
        many += "a\n";
    EXPECT_EQ(read("x.m3u", many).items.size(), PlaylistEntryLimit);
    EXPECT_EQ(read("x.m3u", many + "a\n").reason, "it names more than 100000 files");
    EXPECT_THAT(read("x.m3u", std::string(PlaylistSizeLimit + 1, '#')).reason,
                HasSubstr("larger than"));
}

TEST_F(Playlists, APlaylistThatIsGoneHasItsReason) {
    FileStamp stamp;
    stamp.path = "gone.m3u";
    const Playlist playlist = readPlaylist(folder.path(), stamp, FileIndex("", files), files);
    EXPECT_THAT(playlist.reason, HasSubstr("cannot be opened"));
    EXPECT_THAT(playlist.items, IsEmpty());
}

TEST_F(Playlists, AnEmptyPlaylistIsEmpty) {
    EXPECT_THAT(outcome("x.m3u", ""), IsEmpty());
    EXPECT_THAT(outcome("x.m3u", "#EXTM3U\n# comment\n   \n"), IsEmpty());
}

}  // namespace
}  // namespace host
