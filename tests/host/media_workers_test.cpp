#include "host/scan/media_workers.h"

#include <gtest/gtest.h>

#include <map>

#include "host/scan/media_record.h"
#include "host/scan/scanner.h"

namespace host {
namespace {

std::string besideThisProgram(const std::string& name) {
    return std::string(ORLITH_BINARY_DIR) + "/" + name;
}

MediaWorkerOptions faultyOptions() {
    MediaWorkerOptions options;
    options.executable = besideThisProgram("faulty-scan-worker");
    options.fileTimeout = std::chrono::milliseconds(300);
    return options;
}

// Runs one request per name; the reasons, and the titles behind "=" where there is none.
std::map<std::string, std::string> outcomes(MediaWorkers& workers,
                                            const std::vector<std::string>& names) {
    std::vector<MediaRequest> requests;
    for (const std::string& name : names)
        requests.push_back({MediaRequest::Kind::ReadMedia, "/nowhere/" + name + ".mp3", -1});
    std::map<std::string, std::string> result;
    const auto error = workers.run(requests, [&](std::size_t place, MediaAnswer answer) {
        EXPECT_FALSE(result.contains(names[place])) << "answered twice";
        const auto file = decodeMediaFile(answer.bytes);
        result[names[place]] = file ? "=" + file->tags.title : answer.reason;
    });
    EXPECT_FALSE(error) << error->description();
    return result;
}

std::vector<std::string> goodNames(int count) {
    std::vector<std::string> names;
    for (int number = 0; number < count; ++number)
        names.push_back("song" + std::to_string(number));
    return names;
}

void expectAllGoodAreRead(const std::map<std::string, std::string>& results) {
    for (const auto& [name, outcome] : results)
        if (name.starts_with("song")) {
            EXPECT_EQ(outcome, "=" + name);
        }
}

TEST(MediaWorkers, EveryRequestIsAnsweredOnce) {
    MediaWorkers workers(faultyOptions());
    const auto results = outcomes(workers, goodNames(300));
    EXPECT_EQ(results.size(), 300u);
    expectAllGoodAreRead(results);
    EXPECT_EQ(outcomes(workers, goodNames(3)).size(), 3u) << "the workers serve again";
}

TEST(MediaWorkers, AFileThatCrashesItsWorkerCostsOnlyItself) {
    MediaWorkers workers(faultyOptions());
    auto names = goodNames(40);
    names.insert(names.begin() + 5, "crash1");
    names.insert(names.begin() + 20, {"crash2", "crash3"});
    names.push_back("crash4");
    const auto results = outcomes(workers, names);
    EXPECT_EQ(results.size(), names.size());
    expectAllGoodAreRead(results);
    for (const char* name : {"crash1", "crash2", "crash3", "crash4"})
        EXPECT_EQ(results.at(name), "the file crashed the reader");
}

TEST(MediaWorkers, AFileThatHangsIsGivenUpAfterTheTimeout) {
    MediaWorkers workers(faultyOptions());
    auto names = goodNames(10);
    names.insert(names.begin() + 3, "hang");
    const auto results = outcomes(workers, names);
    expectAllGoodAreRead(results);
    EXPECT_EQ(results.at("hang"), "reading it took longer than 0.3 seconds");
}

TEST(MediaWorkers, AWorkerThatBreaksTheProtocolIsReplaced) {
    MediaWorkers workers(faultyOptions());
    auto names = goodNames(10);
    names.insert(names.begin() + 2, "babble");
    const auto results = outcomes(workers, names);
    EXPECT_EQ(results.size(), names.size());
    expectAllGoodAreRead(results);
    EXPECT_EQ(results.at("babble"), "the file crashed the reader");
}

TEST(MediaWorkers, AStopEndsTheRunWithoutTheRest) {
    MediaWorkers workers(faultyOptions());
    std::stop_source stop;
    const std::vector<MediaRequest> requests(
        100, {MediaRequest::Kind::ReadMedia, "/nowhere/song.mp3", -1});
    std::size_t answered = 0;
    const auto error = workers.run(
        requests,
        [&](std::size_t, MediaAnswer) {
            if (++answered == 1)
                stop.request_stop();
        },
        stop.get_token());
    EXPECT_FALSE(error);
    EXPECT_LT(answered, requests.size());
    EXPECT_EQ(outcomes(workers, goodNames(5)).size(), 5u) << "no late answer disturbs the next run";
}

TEST(MediaWorkers, AProgramThatDoesNotExistIsAnError) {
    MediaWorkerOptions options;
    options.executable = "/nowhere/at-all";
    MediaWorkers workers(options);
    const std::vector<MediaRequest> requests(1);
    const auto error = workers.run(requests, [](std::size_t, MediaAnswer) { ADD_FAILURE(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ScanErrorNoWorker);
}

TEST(MediaWorkers, AProgramThatIsNoWorkerIsAnError) {
    MediaWorkerOptions options;
    options.executable = "/bin/true";
    MediaWorkers workers(options);
    const std::vector<MediaRequest> requests(1);
    const auto error = workers.run(requests, [](std::size_t, MediaAnswer) { ADD_FAILURE(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ScanErrorNoWorker);
}

TEST(MediaWorkers, NothingIsStartedForNothing) {
    MediaWorkerOptions options;
    options.executable = "/nowhere/at-all";
    MediaWorkers workers(options);
    EXPECT_FALSE(workers.run({}, [](std::size_t, MediaAnswer) { ADD_FAILURE(); }));
}

}  // namespace
}  // namespace host
