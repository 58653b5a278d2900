#include "device/downloads/file_manifest.h"

#include <future>

#include "device/downloads/manifest_list.h"
#include "tests/device/downloads/download_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;

class FileManifest : public test::DownloadsTest {
protected:
    using Paths = std::optional<std::vector<std::string>>;

    FileManifest() { start(); }

    void addFile(const std::string& name) { writeFile("/var/mobile/Media/Purchases", name, {}); }
    void writeManifest(const std::string& bytes) {
        writeFile("/var/mobile/Media/Downloads", "Manifest.plist", bytes);
    }
    Paths pathsOf(std::int64_t fileClass, std::int64_t type = 0) {
        std::promise<Paths> answer;
        service->makeFileManifest(type)->getPathsForFilesWithClass(
            fileClass, [&](const Paths& paths) { answer.set_value(paths); });
        return answer.get_future().get();
    }
    void rebuild(std::int64_t type = 0) {
        std::promise<void> done;
        service->makeFileManifest(type)->rebuildManifestWithCompletionBlock(
            [&] { done.set_value(); });
        done.get_future().get();
    }
    // Of the log's last line, once a question has been answered.
    std::string lastComplaint() {
        const auto lines = log.lines();
        return lines.empty() ? std::string() : lines.back().message;
    }

private:
    void writeFile(const std::string& directory, const std::string& name,
                   const std::string& bytes) {
        system.fileSystem().createDirectory(directory);
        system.fileSystem().writeFileDurably(
            directory + "/" + name,
            {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    }
};

TEST_F(FileManifest, TellsTheFilesOfAClass) {
    addFile("2.own");
    addFile("1.own");
    addFile("3.mp3");
    addFile("4.none");
    EXPECT_THAT(pathsOf(2), Optional(ElementsAre("/var/mobile/Media/Purchases/1.own",
                                                 "/var/mobile/Media/Purchases/2.own")));
    EXPECT_THAT(pathsOf(1), Optional(ElementsAre("/var/mobile/Media/Purchases/3.mp3")));
    EXPECT_THAT(pathsOf(0), Optional(ElementsAre("/var/mobile/Media/Purchases/4.none")));
    EXPECT_THAT(pathsOf(77), Optional(IsEmpty()));
}

TEST_F(FileManifest, HasNoFilesWhereNothingWasBought) {
    EXPECT_THAT(pathsOf(2), Optional(IsEmpty()));
}

TEST_F(FileManifest, IsKeptWhileTheFilesStayTheSame) {
    addFile("1.own");
    pathsOf(2);
    pathsOf(1);
    stop();
    start();
    EXPECT_THAT(pathsOf(2), Optional(ElementsAre("/var/mobile/Media/Purchases/1.own")));
    EXPECT_EQ(installer.timesSettled(), 1);
}

TEST_F(FileManifest, IsMadeAnewWhenThereAreOtherFiles) {
    addFile("1.own");
    pathsOf(2);
    addFile("2.own");
    EXPECT_THAT(pathsOf(2), Optional(testing::SizeIs(2)));
    system.fileSystem().unlink("/var/mobile/Media/Purchases/1.own");
    EXPECT_THAT(pathsOf(2), Optional(ElementsAre("/var/mobile/Media/Purchases/2.own")));
    EXPECT_EQ(installer.timesSettled(), 3);
}

TEST_F(FileManifest, IsMadeAnewAfterAnInstall) {
    test::HttpServer server([](const test::HttpRequest& asked) {
        return test::serveFile(asked, content(100), "\"1\"");
    });
    pathsOf(2);
    request(server.url("/a.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_FALSE(system.fileSystem().fileExists(downloads::ManifestPath));
}

TEST_F(FileManifest, ARebuildAsksTheLibraryEveryTime) {
    rebuild();
    rebuild();
    EXPECT_EQ(installer.timesSettled(), 2);
}

TEST_F(FileManifest, WhatIsNoManifestIsMadeAnewInPlainWords) {
    addFile("1.own");
    struct Case {
        std::string bytes, words;
    };
    const auto list = [](const std::string& version, const std::string& files) {
        return "<plist><dict><key>Version</key>" + version + "<key>Files</key>" + files +
               "</dict></plist>";
    };
    const auto entry = [](const std::string& name, const std::string& fileClass) {
        return "<dict><key>Name</key><string>" + name + "</string><key>Class</key>" + fileClass +
               "</dict>";
    };
    const std::string one = "<integer>1</integer>";
    for (const Case& bad : {
             Case{"no property list at all", "damaged"},
             Case{"", "damaged"},
             Case{"<plist><array/></plist>", "no manifest of files"},
             Case{list("<string>1</string>", "<array/>"), "no manifest of files"},
             Case{list("<integer>9</integer>", "<array/>"), "version 9"},
             Case{list(one, "<dict/>"), "no manifest of files"},
             Case{list(one, "<array><string>x</string></array>"), "no file's"},
             Case{list(one, "<array>" + entry("a", "<true/>") + "</array>"), "no file's"},
             Case{list(one, "<array>" + entry("a", "<integer>3</integer>") + "</array>"),
                  "no file's"},
             Case{list(one, "<array>" + entry("../a", one) + "</array>"), "no file may be called"},
             Case{list(one, "<array>" + entry("..", one) + "</array>"), "no file may be called"},
             Case{list(one, "<array>" + entry("/etc/passwd", one) + "</array>"),
                  "no file may be called"},
             Case{list(one, "<array>" + entry("a&#10;b", one) + "</array>"),
                  "no file may be called"},
             Case{list(one, "<array>" + entry("a", one) + entry("a", one) + "</array>"), "twice"},
         }) {
        writeManifest(bad.bytes);
        EXPECT_THAT(pathsOf(2), Optional(ElementsAre("/var/mobile/Media/Purchases/1.own")))
            << bad.bytes;
        EXPECT_THAT(lastComplaint(), HasSubstr(bad.words)) << bad.bytes;
    }
}

TEST_F(FileManifest, FilesThatNoneMayBeCalledAreLeftOut) {
    addFile(".hidden.own");
    addFile("a\nb.own");
    EXPECT_THAT(pathsOf(2), Optional(IsEmpty()));
}

TEST_F(FileManifest, GivesNoAnswerWhenTheLibraryCannotBeAsked) {
    installer.loseLibrary();
    EXPECT_EQ(pathsOf(2), std::nullopt);
    EXPECT_THAT(lastComplaint(), HasSubstr("The library is away."));
    rebuild();
}

TEST_F(FileManifest, OfAnotherTypeHasNoAnswer) {
    addFile("1.own");
    EXPECT_EQ(pathsOf(2, 1), std::nullopt);
    rebuild(1);
    EXPECT_EQ(installer.timesSettled(), 0);
}

TEST_F(FileManifest, AnswersOnAThreadOfItsOwn) {
    std::promise<std::thread::id> answer;
    service->makeFileManifest(0)->rebuildManifestWithCompletionBlock(
        [&] { answer.set_value(std::this_thread::get_id()); });
    EXPECT_NE(answer.get_future().get(), std::this_thread::get_id());
}

TEST_F(FileManifest, WhatIsWrittenIsReadAgain) {
    const std::map<std::string, downloads::FileClass> classes{
        {"1.mp3", downloads::FileClass::Fetchable}, {"ü.m4a", downloads::FileClass::Backup}};
    platform::OptionalError error;
    const auto bytes = downloads::serializeManifest(classes, error);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(downloads::parseManifest(*bytes, error), classes);
}

}  // namespace
