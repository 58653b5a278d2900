// What the plug-in does with the assets that other devices wait for, with 1,000 of them beside a
// hundred times as much with ten: it may grow in proportion, not faster.
#include <fmt/format.h>

#include <cstdlib>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/asset_sync/sync_asset_request.h"
#include "bench/figures.h"
#include "tests/support/recording_platform.h"

// Opens the client's table of requests to the measurements.
class KVSyncClientInspector {
public:
    static void add(KVSyncClient& client, const std::string& identifier,
                    std::shared_ptr<KVSyncAssetRequest> request) {
        client._requestsByIdentifier[identifier] = std::move(request);
    }
    static void adjustRequestQueue(KVSyncClient& client) { client._adjustRequestQueue(); }
};

namespace bench {
namespace {

constexpr int Few = 10;
constexpr int Many = 1000;
constexpr int Passes = 100;  // of a measurement with many requests
constexpr int Rounds = 5;

// A client with so many requests pending, which nothing answers.
class PendingRequests {
public:
    explicit PendingRequests(int count) {
        _platform.logService().setHighestLevel(platform::LogLevel::Error);
        _client = KVSyncClient::init();
        _platform.scheduler().runDueJobs();
        for (int i = 0; i < count; ++i) {
            const std::string identifier = std::to_string(i);
            auto request = std::make_shared<KVSyncAssetRequest>();
            request->asset = ORAsset::initWithIdentifier(identifier, "Media", identifier);
            request->timestamp = _platform.operatingSystem().absoluteTime();
            KVSyncClientInspector::add(*_client, identifier, std::move(request));
        }
    }
    void passOfTheTimer() {
        KVSyncClientInspector::adjustRequestQueue(*_client);
        _platform.recorder().clear();
    }
    void changeOfADownload() {
        _client->downloadManagerDownloadStatesDidChange(*_platform.storeDownloads().lastManager(),
                                                        {_download});
        _platform.scheduler().runDueJobs();
        _platform.recorder().clear();
    }

private:
    support::RecordingPlatform _platform;
    std::shared_ptr<KVSyncClient> _client;
    const std::shared_ptr<support::ScriptedDownload> _download =
        std::make_shared<support::ScriptedDownload>(1, platform::Value("5"));
};

Cost costOfPasses(int pending, void (PendingRequests::*pass)()) {
    PendingRequests requests(pending);
    const int passes = Passes * Many / pending;
    return costOf([&] {
        for (int i = 0; i < passes; ++i)
            (requests.*pass)();
    });
}

void measure(benchmark::State& state, const char* what, void (PendingRequests::*pass)()) {
    Figure figure{what, "a hundred times with 10", Many, Passes, 1.0};
    for (auto _ : state) {
        addRound(
            figure, [&] { return costOfPasses(Many, pass); },
            [&] { return costOfPasses(Few, pass); });
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    report(state, std::move(figure));
}

void registerPasses(const char* what, void (PendingRequests::*pass)()) {
    benchmark::RegisterBenchmark(what, [=](benchmark::State& state) { measure(state, what, pass); })
        ->Iterations(Rounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    bench::registerPasses("download change, 1000 pending",
                          &bench::PendingRequests::changeOfADownload);
    bench::registerPasses("timer pass, 1000 pending", &bench::PendingRequests::passOfTheTimer);
    benchmark::RunSpecifiedBenchmarks();
    bench::printTable();
    benchmark::Shutdown();
    return 0;
}
