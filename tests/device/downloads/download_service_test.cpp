#include "device/downloads/download_service.h"

#include <sys/stat.h>

#include <cerrno>
#include <fstream>

#include "tests/device/downloads/download_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class DownloadService : public test::DownloadsTest {
protected:
    std::string writeFile(const std::string& name, const std::string& bytes) {
        const std::string path = outside / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return "file://" + path;
    }

    // Sends 1,000 bytes of the song, and nothing more.
    test::HttpServer::Handler stallingAfter1000() {
        return [this](const test::HttpRequest& request) {
            auto reply = test::serveFile(request, song, "\"1\"");
            reply.sends = 1000;
            reply.stalls = true;
            return reply;
        };
    }

    const std::string song = content(300'000);
    test::TemporaryDirectory outside;
    // A song's server, which sends everything at once.
    test::HttpServer server{[this](const test::HttpRequest& request) {
        return test::serveFile(request, song, "\"1\"");
    }};
};

TEST_F(DownloadService, AFileComesAndIsInstalledPhaseByPhase) {
    start();
    request(server.url("/music/First%20Song.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
    EXPECT_TRUE(waitFor([&] { return observer->phases(1).size() >= 3; }));
    EXPECT_THAT(observer->phases(1), ElementsAre("waiting", "downloading", "installing"));
    ASSERT_THAT(installer.installed(), SizeIs(1));
    const downloads::DownloadItem item = installer.installed().front();
    EXPECT_EQ(item.libraryItem, 5001);
    EXPECT_EQ(item.storeAccount, 77);
    EXPECT_EQ(item.fileName, "First Song.mp3");
    EXPECT_EQ(item.title, "");
    EXPECT_THAT(stagedFiles(), IsEmpty());
}

TEST_F(DownloadService, AFileOfThisMachineComesTheSameWay) {
    start();
    writeFile("A%B.flac", song);
    request("file://" + outside / "A%25B.flac");
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
    EXPECT_EQ(installer.installed().front().fileName, "A%B.flac");
}

TEST_F(DownloadService, WhatIsNoRegularFileIsRefusedWithoutWaiting) {
    start();
    const std::string pipe = outside / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_TRUE(waitForPhase(request("file://" + pipe, 1), "failed"));
    EXPECT_TRUE(waitForPhase(request("file:///dev/zero", 2), "failed"));
    EXPECT_TRUE(waitForPhase(request("file://" + outside.path(), 3), "failed"));
    EXPECT_TRUE(waitForPhase(request("file://" + outside / "missing.mp3", 4), "failed"));
    const std::int64_t empty = request(writeFile("empty.mp3", ""), 5);
    EXPECT_TRUE(waitForPhase(empty, "failed"));
    EXPECT_EQ(status(empty).error, "The file is empty.");
}

TEST_F(DownloadService, NoMoreThanTwoComeAtATime) {
    start();
    server.setHandler(stallingAfter1000());
    const std::int64_t first = request(server.url("/1.mp3"), 1);
    const std::int64_t second = request(server.url("/2.mp3"), 2);
    const std::int64_t third = request(server.url("/3.mp3"), 3);
    ASSERT_TRUE(waitForBytes(first, 1000));
    ASSERT_TRUE(waitForBytes(second, 1000));
    EXPECT_EQ(status(third).phase, "waiting");
    server.setHandler(
        [&](const test::HttpRequest& request) { return test::serveFile(request, song, "\"1\""); });
    EXPECT_EQ(service->cancel(first), std::nullopt);
    ASSERT_TRUE(waitFor([&] { return !installedContent(3).empty(); }));
    EXPECT_EQ(installedContent(3), song);
    EXPECT_EQ(status(second).phase, "downloading");
}

TEST_F(DownloadService, ThoseThatWaitAreToldThatTheQueueMoves) {
    settings.simultaneous = 1;
    start();
    server.setHandler(stallingAfter1000());
    const std::int64_t first = request(server.url("/1.mp3"), 1);
    ASSERT_TRUE(waitForBytes(first, 1000));
    const auto told = std::make_shared<test::PhaseObserver>();
    request(server.url("/2.mp3"), 2);
    manager->addObserver(told);
    server.release();
    ASSERT_TRUE(waitFor([&] { return told->phases(2) == std::vector<std::string>{"waiting"}; }));
}

TEST_F(DownloadService, ARequestForTheSameItemOrAddressIsTheSameDownload) {
    start();
    installer.hold();
    const std::int64_t number = request(server.url("/1.mp3"), 1);
    EXPECT_EQ(request(server.url("/other.mp3"), 1), number);
    EXPECT_EQ(request(server.url("/1.mp3"), 2), number);
    EXPECT_THAT(service->list(), SizeIs(1));
    installer.letGoOn();
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(refusalOf(requestFor(server.url("/1.mp3")))->code, EEXIST);
}

TEST_F(DownloadService, WhatCannotBeCarriedOutIsRefusedInPlainWords) {
    start();
    EXPECT_EQ(refusalOf(requestFor("ftp://127.0.0.1/a.mp3"))->text(),
              "Downloads come from https, http or file addresses only.");
    EXPECT_EQ(refusalOf(requestFor(server.url("/1.mp3"), 0))->code, EINVAL);
    downloads::DownloadRequest bad = requestFor(server.url("/1.mp3"));
    bad.storeAccount = 0;
    EXPECT_EQ(refusalOf(bad)->code, EINVAL);
    bad = requestFor(server.url("/1.mp3"));
    bad.kind = "ringtone";
    EXPECT_EQ(refusalOf(bad)->code, EINVAL);
    bad = requestFor(server.url("/1.mp3"));
    bad.title = std::string(2000, 'x');
    EXPECT_EQ(refusalOf(bad)->code, EINVAL);
    bad.title = "\xFF";
    EXPECT_EQ(refusalOf(bad)->code, EINVAL);
    EXPECT_FALSE(service->request(bad, nullptr));
    EXPECT_THAT(service->list(), IsEmpty());
}

TEST_F(DownloadService, WhatFailedKeepsItsReasonAndIsTriedAgainWhenAskedForAgain) {
    start();
    server.setHandler([](const test::HttpRequest&) { return test::HttpReply{"404 Not Found"}; });
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForPhase(number, "failed"));
    EXPECT_EQ(status(number).error, "The server answered with status 404.");
    EXPECT_THAT(server.requests(), SizeIs(1));

    server.setHandler(
        [&](const test::HttpRequest& request) { return test::serveFile(request, song, "\"1\""); });
    EXPECT_EQ(request(server.url("/moved.mp3")), number);
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
}

TEST_F(DownloadService, ACancelledDownloadLeavesNothing) {
    start();
    server.setHandler(stallingAfter1000());
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForBytes(number, 1000));
    EXPECT_THAT(stagedFiles(), SizeIs(1));
    EXPECT_EQ(service->cancel(number), std::nullopt);
    EXPECT_THAT(installer.abandoned(), ElementsAre(5001));
    EXPECT_EQ(service->cancel(number)->code, ENOENT);
    stop();
    start();
    EXPECT_THAT(stagedFiles(), IsEmpty());
    EXPECT_THAT(service->list(), IsEmpty());
}

TEST_F(DownloadService, WhatIsBeingInstalledIsNotCancelled) {
    start();
    installer.hold();
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForPhase(number, "installing"));
    EXPECT_EQ(service->cancel(number)->code, EBUSY);
    installer.letGoOn();
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
}

TEST_F(DownloadService, AnInstallThatFailsIsTriedAgainWithoutComingAgain) {
    start();
    installer.fail({{platform::POSIXErrorDomain, EBUSY, "The library is busy."}});
    request(server.url("/1.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
    EXPECT_THAT(server.requests(), SizeIs(1));
    EXPECT_TRUE(waitFor([&] { return observer->phases(1).size() >= 5; }));
    EXPECT_THAT(observer->phases(1),
                ElementsAre("waiting", "downloading", "installing", "waiting", "installing"));
}

TEST_F(DownloadService, AFileThatIsNowhereWhenItIsToBeInstalledComesAgain) {
    start();
    installer.fail({{platform::POSIXErrorDomain, ENOENT, "The file is gone."}});
    request(server.url("/1.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
    EXPECT_THAT(server.requests(), SizeIs(2));
}

TEST_F(DownloadService, AnInstallThatNeverSucceedsFailsInTheEnd) {
    settings.retry.attempts = 3;
    start();
    const platform::Error error{platform::POSIXErrorDomain, EIO, "The library is read-only."};
    installer.fail({error, error, error});
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForPhase(number, "failed"));
    EXPECT_EQ(status(number).error, "The library is read-only.");
}

TEST_F(DownloadService, WhatHasLeftTheLibraryFailsAtOnce) {
    start();
    installer.fail({{platform::POSIXErrorDomain, ESRCH, "The track is gone."}});
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForPhase(number, "failed"));
    EXPECT_EQ(status(number).error, "The track is gone.");
}

TEST_F(DownloadService, AFileLargerThanAllowedIsRefused) {
    settings.staging.maximumSize = 1000;
    start();
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForPhase(number, "failed"));
    EXPECT_THAT(status(number).error, HasSubstr("larger than a download may be"));
    // Nor when its size is not told.
    server.setHandler([&](const test::HttpRequest&) {
        test::HttpReply reply;
        reply.fields = {"Transfer-Encoding: chunked"};
        reply.tellsLength = false;
        reply.body = "7D0\r\n" + song.substr(0, 2000) + "\r\n0\r\n\r\n";
        return reply;
    });
    EXPECT_EQ(request(server.url("/1.mp3")), number);
    ASSERT_TRUE(waitForPhase(number, "failed"));
    EXPECT_THAT(status(number).error, HasSubstr("More than 1000 bytes"));
}

TEST_F(DownloadService, SpaceIsLeftForTheLibrary) {
    settings.staging.reservedSpace = std::uint64_t{1} << 62;
    start();
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForPhase(number, "failed"));
    EXPECT_THAT(status(number).error, HasSubstr("The device is full"));
}

TEST_F(DownloadService, AFileInChunksComesWhole) {
    start();
    server.setHandler([&](const test::HttpRequest&) {
        test::HttpReply reply;
        reply.fields = {"Transfer-Encoding: chunked",
                        "Content-Disposition: attachment; filename=\"../Second Song.m4a\""};
        reply.tellsLength = false;
        reply.body = "7D0\r\n" + song.substr(0, 2000) + "\r\n0\r\n\r\n";
        return reply;
    });
    request(server.url("/get?id=1"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song.substr(0, 2000));
    EXPECT_EQ(installer.installed().front().fileName, "Second Song.m4a");
}

TEST_F(DownloadService, AnAnswerWhoseEndCannotBeToldIsRefused) {
    start();
    server.setHandler([&](const test::HttpRequest&) {
        test::HttpReply reply;
        reply.tellsLength = false;
        reply.body = song;
        return reply;
    });
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForPhase(number, "failed"));
    EXPECT_THAT(status(number).error, HasSubstr("does not say where the file ends"));
}

TEST_F(DownloadService, EmptyAndCompressedAnswersAreRefused) {
    start();
    server.setHandler([&](const test::HttpRequest& request) {
        test::HttpReply reply;
        if (request.path == "/compressed.mp3") {
            reply.fields = {"Content-Encoding: gzip"};
            reply.body = song;
        }
        return reply;
    });
    const std::int64_t empty = request(server.url("/empty.mp3"), 1);
    const std::int64_t compressed = request(server.url("/compressed.mp3"), 2);
    ASSERT_TRUE(waitForPhase(empty, "failed"));
    EXPECT_EQ(status(empty).error, "The file is empty.");
    ASSERT_TRUE(waitForPhase(compressed, "failed"));
    EXPECT_THAT(status(compressed).error, HasSubstr("compressed"));
}

TEST_F(DownloadService, RedirectionsAreFollowedAFewTimesAndNeverToFiles) {
    start();
    server.setHandler([&](const test::HttpRequest& request) {
        test::HttpReply reply{"302 Found"};
        if (request.path == "/once.mp3")
            reply.fields = {"Location: /there.mp3"};
        else if (request.path == "/there.mp3")
            return test::serveFile(request, song, "\"1\"");
        else if (request.path == "/file.mp3")
            reply.fields = {"Location: " + writeFile("secret.mp3", "secret")};
        else
            reply.fields = {"Location: " + request.path + "x"};
        return reply;
    });
    const std::int64_t loop = request(server.url("/loop"), 1);
    const std::int64_t file = request(server.url("/file.mp3"), 2);
    request(server.url("/once.mp3"), 3);
    ASSERT_TRUE(waitForPhase(loop, "failed"));
    EXPECT_THAT(status(loop).error, HasSubstr("leads on more than 5 times"));
    ASSERT_TRUE(waitForPhase(file, "failed"));
    ASSERT_TRUE(waitFor([&] { return installedContent(3) == song; }));
}

TEST_F(DownloadService, AHeaderThatIsTooLargeIsRefused) {
    start();
    server.setHandler([&](const test::HttpRequest& request) {
        auto reply = test::serveFile(request, song, "\"1\"");
        for (int i = 0; i < 200; ++i)
            reply.fields.push_back("X-" + std::to_string(i) + ": " + std::string(1000, 'x'));
        return reply;
    });
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForPhase(number, "failed"));
    EXPECT_THAT(status(number).error, HasSubstr("header that is too large"));
}

TEST_F(DownloadService, ManagersSeeTheKindsThatTheyAskFor) {
    start();
    installer.hold();
    downloads::DownloadRequest film = requestFor(server.url("/1.mp4"));
    film.kind = VDDownloadKindMovie;
    film.title = "A Film";
    film.isTemporary = true;
    ASSERT_TRUE(service->request(film, nullptr));
    const auto options = service->makeManagerOptions();
    options->setDownloadKinds({std::string(VDDownloadKindMusic)});
    EXPECT_THAT(service->makeManager(options)->downloads(), IsEmpty());
    ASSERT_THAT(manager->downloads(), SizeIs(1));
    EXPECT_EQ(
        manager->downloads().front()->valueForProperty(VDDownloadPropertyLibraryItemIdentifier),
        "5001");
    installer.letGoOn();
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installer.installed().front().title, "A Film");
    EXPECT_TRUE(installer.installed().front().isTemporary);
}

TEST_F(DownloadService, ARestoreWhoseSourceIsGoneIsGivenUp) {
    installer.setWaiting({5001, 5002, 5003});
    installer.fail({platform::Error(platform::POSIXErrorDomain, EBADMSG, "no media file")});
    start();
    server.setHandler([](const test::HttpRequest&) { return test::HttpReply{"404 Not Here"}; });
    request(server.url("/1.mp3"), 1);
    request("file://" + outside / "missing.mp3", 2);
    request(writeFile("page.mp3", "<html>"), 3);
    ASSERT_TRUE(waitFor([&] { return service->list().empty(); }));
    EXPECT_THAT(stagedFiles(), IsEmpty());
}

TEST_F(DownloadService, ARestoreThatMayStillComeIsNotGivenUp) {
    installer.setWaiting({5001});
    settings.retry.attempts = 1;
    start();
    server.setHandler([](const test::HttpRequest&) { return test::HttpReply{"503 Not Here"}; });
    ASSERT_TRUE(waitForPhase(request(server.url("/1.mp3"), 1), "failed"));
    server.setHandler([](const test::HttpRequest&) { return test::HttpReply{"403 Not Here"}; });
    ASSERT_TRUE(waitForPhase(request(server.url("/1.mp3"), 1), "failed"));
    EXPECT_TRUE(installer.sourceIsGone(5001));
}

TEST_F(DownloadService, ADownloadOfANewItemThatIsGoneStaysToBeSeen) {
    start();
    server.setHandler([](const test::HttpRequest&) { return test::HttpReply{"404 Not Here"}; });
    ASSERT_TRUE(waitForPhase(request(server.url("/1.mp3"), 1), "failed"));
    EXPECT_THAT(service->list(), SizeIs(1));
}

TEST_F(DownloadService, OneWhoseEntryARestoreTookAwayBeginsAnew) {
    start();
    server.setHandler(stallingAfter1000());
    const std::int64_t lost = request(server.url("/1.mp3"), 1);
    const std::int64_t kept = request(server.url("/2.mp3"), 2);
    ASSERT_TRUE(waitForBytes(lost, 1000));
    stop();
    installer.setGone({5001});
    server.setHandler(
        [&](const test::HttpRequest& request) { return test::serveFile(request, song, "\"1\""); });
    open();
    service->renewItems();
    EXPECT_EQ(status(lost).number, 0);
    EXPECT_EQ(status(kept).number, kept);
    EXPECT_TRUE(installedContent(1).empty());
    service->start();
    ASSERT_TRUE(waitFor([&] { return !installedContent(1).empty(); }));
    EXPECT_EQ(installedContent(1), song);
}

}  // namespace
