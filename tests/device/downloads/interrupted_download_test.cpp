// Downloads that break off, in every way that a network, a server, the owner or a power cut has.
#include <filesystem>
#include <fstream>

#include "device/downloads/install_jobs.h"
#include "tests/device/downloads/download_fixture.h"

namespace {

using test::HttpReply;
using test::HttpRequest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class InterruptedDownload : public test::DownloadsTest {
protected:
    const std::string song = content(20'000, 1);
    const std::string other = content(20'000, 2);

    // The first request is answered by one handler, all others by another.
    static test::HttpServer::Handler firstThen(test::HttpServer::Handler first,
                                               test::HttpServer::Handler others) {
        const auto count = std::make_shared<std::atomic<int>>(0);
        return [=](const HttpRequest& request) {
            return (*count)++ == 0 ? first(request) : others(request);
        };
    }
    test::HttpServer::Handler serve(const std::string& bytes, const std::string& entityTag) {
        return
            [=](const HttpRequest& request) { return test::serveFile(request, bytes, entityTag); };
    }
    test::HttpServer::Handler cut(const std::string& bytes, const std::string& entityTag,
                                  std::size_t after, bool stalls = false) {
        return [=](const HttpRequest& request) {
            HttpReply reply = test::serveFile(request, bytes, entityTag);
            reply.sends = after;
            reply.stalls = stalls;
            return reply;
        };
    }
    std::string lastRange() { return server.requests().back().field("range"); }

    test::HttpServer server{[](const HttpRequest&) { return HttpReply{"404 Not Found"}; }};
};

TEST_F(InterruptedDownload, GoesOnWhereItBrokeOff) {
    server.setHandler(firstThen(cut(song, "\"1\"", 7000), serve(song, "\"1\"")));
    start();
    request(server.url("/1.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
    ASSERT_THAT(server.requests(), SizeIs(2));
    EXPECT_EQ(lastRange(), "bytes=7000-");
    EXPECT_EQ(server.requests().back().field("if-range"), "\"1\"");
}

TEST_F(InterruptedDownload, GoesOnByADateWhenThereIsNoEntityTag) {
    const auto dated = [this](std::size_t sends) {
        return [this, sends](const HttpRequest& request) {
            HttpReply reply;
            const std::size_t first = request.field("range").empty() ? 0 : 7000;
            reply.status = first == 0 ? "200 OK" : "206 Partial Content";
            reply.fields = {"Last-Modified: Sat, 01 Aug 2026 10:00:00 GMT",
                            "Date: Sat, 01 Aug 2026 10:00:05 GMT"};
            if (first > 0)
                reply.fields.push_back("Content-Range: bytes 7000-19999/20000");
            reply.body = song.substr(first);
            reply.sends = sends;
            return reply;
        };
    };
    server.setHandler(firstThen(dated(7000), dated(std::string::npos)));
    start();
    request(server.url("/1.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
    EXPECT_EQ(server.requests().back().field("if-range"), "Sat, 01 Aug 2026 10:00:00 GMT");
}

TEST_F(InterruptedDownload, ComesWholeWhereverTheConnectionIsCut) {
    const std::string small = song.substr(0, 600);
    start();
    for (std::int64_t item = 1; item <= 60; ++item) {
        server.setHandler(firstThen(cut(small, "\"1\"", static_cast<std::size_t>(item) * 10 - 7),
                                    serve(small, "\"1\"")));
        request(server.url("/" + std::to_string(item) + ".mp3"), item);
        ASSERT_TRUE(waitUntilAllIsInstalled()) << item;
        ASSERT_EQ(installedContent(item), small) << item;
    }
}

TEST_F(InterruptedDownload, BeginsOverWhenTheSourceHasChanged) {
    server.setHandler(firstThen(cut(song, "\"1\"", 7000), serve(other, "\"2\"")));
    start();
    request(server.url("/1.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), other);
}

TEST_F(InterruptedDownload, BeginsOverWhenTheServerKnowsNoRanges) {
    const auto whole = [this](const HttpRequest&) {
        return HttpReply{"200 OK", {"ETag: \"1\""}, song};
    };
    server.setHandler(firstThen(cut(song, "\"1\"", 7000), whole));
    start();
    request(server.url("/1.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
}

// Such a server would splice two versions.
TEST_F(InterruptedDownload, BeginsOverWhenTheRestIsOfAnotherVersion) {
    const auto rest = [this](std::vector<std::string> fields) {
        return [this, fields](const HttpRequest& request) {
            if (request.field("range").empty())
                return test::serveFile(request, other, "\"2\"");
            return HttpReply{"206 Partial Content", fields, other.substr(7000)};
        };
    };
    const std::string range = "Content-Range: bytes 7000-19999/20000";
    const std::vector<std::vector<std::string>> answers = {
        {"ETag: \"2\"", range},                                    // of another version
        {range},                                                   // of which is not told
        {"ETag: \"1\"", "Content-Range: bytes 6000-19999/20000"},  // another part
        {"ETag: \"1\"", "Content-Range: bytes 7000-19999/30000"},  // of another size
        {"ETag: \"1\""},                                           // where is not told
    };
    start();
    for (std::size_t i = 0; i < answers.size(); ++i) {
        const auto item = static_cast<std::int64_t>(i) + 1;
        server.setHandler(firstThen(cut(song, "\"1\"", 7000), rest(answers[i])));
        request(server.url("/" + std::to_string(item) + ".mp3"), item);
        ASSERT_TRUE(waitUntilAllIsInstalled()) << i;
        EXPECT_EQ(installedContent(item), other) << i;
    }
}

TEST_F(InterruptedDownload, BeginsOverWhenTheSourceBecameShorter) {
    const std::string shorter = song.substr(0, 5000);
    const auto answer = [=](const HttpRequest& request) {
        return request.field("range").empty()
                   ? test::serveFile(request, shorter, "\"1\"")
                   : HttpReply{"416 Range Not Satisfiable", {"ETag: \"1\""}, ""};
    };
    server.setHandler(firstThen(cut(song, "\"1\"", 7000), answer));
    start();
    request(server.url("/1.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), shorter);
}

TEST_F(InterruptedDownload, IsNotGoneOnWithByAWeakEntityTag) {
    server.setHandler(firstThen(cut(song, "W/\"1\"", 7000), serve(song, "W/\"1\"")));
    start();
    request(server.url("/1.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
    EXPECT_EQ(lastRange(), "");
}

TEST_F(InterruptedDownload, IsTriedAgainAfterAWhileThatGrows) {
    settings.retry.firstDelay = test::Second;
    server.setHandler([](const HttpRequest&) { return HttpReply{"503 Service Unavailable"}; });
    start();
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitFor([&] { return !status(number).error.empty(); }));
    EXPECT_EQ(status(number).phase, "waiting");
    EXPECT_THAT(server.requests(), SizeIs(1));
    for (std::size_t attempt = 2; attempt <= 4; ++attempt) {
        system.advance(test::Second << (attempt - 2));
        ASSERT_TRUE(waitFor(
            [&] { return server.requests().size() == attempt && !status(number).error.empty(); }));
    }
    server.setHandler(serve(song, "\"1\""));
    system.advance(8 * test::Second);
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
}

TEST_F(InterruptedDownload, IsGivenUpWhenNoAttemptBringsAnything) {
    settings.retry.attempts = 4;
    server.setHandler(cut(song, "\"1\"", 0));
    start();
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForPhase(number, "failed"));
    EXPECT_THAT(server.requests(), SizeIs(4));
    EXPECT_THAT(status(number).error, HasSubstr("broke off"));
}

TEST_F(InterruptedDownload, IsGivenUpWhenItAlwaysBreaksAtTheSamePlaceAndBeginsOver) {
    settings.retry.attempts = 4;
    server.setHandler([&](const HttpRequest&) {
        HttpReply reply{"200 OK", {}, song};
        reply.sends = 7000;
        return reply;
    });
    start();
    ASSERT_TRUE(waitForPhase(request(server.url("/1.mp3")), "failed"));
    EXPECT_THAT(server.requests(), SizeIs(4));
}

TEST_F(InterruptedDownload, IsNotGivenUpWhileEveryAttemptBringsSomething) {
    settings.retry.attempts = 2;
    server.setHandler(cut(song, "\"1\"", 1500));
    start();
    request(server.url("/1.mp3"));
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
    EXPECT_THAT(server.requests(), SizeIs(14));
}

TEST_F(InterruptedDownload, IsBrokenOffWhenNothingComesForAWhile) {
    server.setHandler(firstThen(cut(song, "\"1\"", 7000, true), serve(song, "\"1\"")));
    start();
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForBytes(number, 7000));
    system.advance(settings.stallLimit - 1);
    EXPECT_EQ(status(number).phase, "downloading");
    system.advance(1);
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
    EXPECT_EQ(lastRange(), "bytes=7000-");
}

TEST_F(InterruptedDownload, AnAnswerShorterThanAnnouncedIsNeverInstalled) {
    settings.retry.attempts = 3;
    server.setHandler([&](const HttpRequest&) {
        HttpReply reply{"200 OK", {}, song};
        reply.announced = song.size() + 1;
        return reply;
    });
    start();
    ASSERT_TRUE(waitForPhase(request(server.url("/1.mp3")), "failed"));
    EXPECT_THAT(installer.installed(), IsEmpty());
}

TEST_F(InterruptedDownload, AServerThatIsNotThereIsTriedAgain) {
    settings.retry.attempts = 3;
    std::string address;
    {
        test::HttpServer gone([](const HttpRequest&) { return HttpReply{}; });
        address = gone.url("/1.mp3");
    }
    start();
    const std::int64_t number = request(address);
    ASSERT_TRUE(waitForPhase(number, "failed"));
    EXPECT_THAT(observer->phases(1), testing::Contains("downloading"));
}

TEST_F(InterruptedDownload, GoesOnAfterARestart) {
    server.setHandler(firstThen(cut(song, "\"1\"", 7000, true), serve(song, "\"1\"")));
    start();
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForBytes(number, 7000));
    stop();
    start();
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), song);
    EXPECT_EQ(lastRange(), "bytes=7000-");
}

TEST_F(InterruptedDownload, WhatAPowerCutMayHaveTornIsNotCounted) {
    server.setHandler(firstThen(cut(song, "\"1\"", 7000, true), serve(song, "\"1\"")));
    settings.staging.syncInterval = 1 << 30;
    start();
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForBytes(number, 7000));
    // The disk as it may look after a cut: the length is there, the bytes are not.
    const test::TemporaryDirectory after;
    std::filesystem::copy(root.path(), after.path(), std::filesystem::copy_options::recursive);
    std::ofstream(after.path() + downloads::stagingPath(number), std::ios::binary | std::ios::trunc)
        << std::string(7000, '\0');

    device::SystemServices copy(after.path());
    test::PlainInstaller copyInstaller(copy.fileSystem());
    downloads::DownloadService other({copy.fileSystem(), log, copy, copyInstaller, settings});
    const auto otherManager = other.makeManager(nullptr);
    otherManager->addObserver(observer);
    other.start();
    ASSERT_TRUE(waitFor([&] { return other.list().empty(); }));
    const auto bytes =
        copy.fileSystem().readFile(test::PlainInstaller::pathOf(1), 1 << 20, nullptr);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(std::string(bytes->begin(), bytes->end()), song);
}

// A copy of the device at that moment is what a killed process leaves.
TEST_F(InterruptedDownload, GoesOnAfterBeingKilledInAnyPhase) {
    const auto goesOn = [&](const std::string& where) {
        const test::TemporaryDirectory after;
        std::filesystem::copy(root.path(), after.path(), std::filesystem::copy_options::recursive);
        device::SystemServices copy(after.path());
        test::PlainInstaller copyInstaller(copy.fileSystem());
        downloads::DownloadService next({copy.fileSystem(), log, copy, copyInstaller, settings});
        const auto nextManager = next.makeManager(nullptr);
        nextManager->addObserver(observer);
        next.start();
        EXPECT_TRUE(waitFor([&] { return next.list().empty(); })) << where;
        const auto bytes =
            copy.fileSystem().readFile(test::PlainInstaller::pathOf(1), 1 << 20, nullptr);
        ASSERT_TRUE(bytes) << where;
        EXPECT_EQ(std::string(bytes->begin(), bytes->end()), song) << where;
        EXPECT_THAT(*copy.fileSystem().contentsOfDirectory(downloads::StagingDirectory, nullptr),
                    IsEmpty());
    };
    server.setHandler(firstThen(cut(song, "\"1\"", 7000, true), serve(song, "\"1\"")));
    installer.hold();
    start();
    const std::int64_t number = request(server.url("/1.mp3"));
    ASSERT_TRUE(waitForBytes(number, 7000));
    goesOn("downloading");
    server.release();
    ASSERT_TRUE(waitForPhase(number, "installing"));
    goesOn("installing");
    // Between the rename and the commit.
    auto& files = system.fileSystem();
    files.createDirectory("/var/mobile/Media/Purchases");
    ASSERT_EQ(files.moveItem(downloads::stagingPath(number), test::PlainInstaller::pathOf(1)),
              std::nullopt);
    goesOn("renamed");
    installer.letGoOn();
    ASSERT_TRUE(waitUntilAllIsInstalled());
}

TEST_F(InterruptedDownload, BytesThatBelongToNoDownloadAreRemovedAtTheStart) {
    start();
    stop();
    std::ofstream(root.path() + downloads::StagingDirectory + "/12") << "old";
    start();
    EXPECT_THAT(stagedFiles(), IsEmpty());
}

TEST_F(InterruptedDownload, AFileThatChangesWhileItIsReadBeginsOver) {
    const test::TemporaryDirectory outside;
    const std::string path = outside / "song.mp3";
    std::ofstream(path, std::ios::binary) << song;
    installer.fail({{platform::POSIXErrorDomain, ENOENT, "The file is gone."}});
    installer.hold();
    start();
    const std::int64_t number = request("file://" + path);
    ASSERT_TRUE(waitForPhase(number, "installing"));
    std::ofstream(path, std::ios::binary | std::ios::trunc) << other.substr(0, 9000);
    installer.letGoOn();
    ASSERT_TRUE(waitUntilAllIsInstalled());
    EXPECT_EQ(installedContent(), other.substr(0, 9000));
}

}  // namespace
