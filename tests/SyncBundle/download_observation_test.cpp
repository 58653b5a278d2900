#include "SyncBundle/asset_sync/sync_asset_request.h"
#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation = "downloadManager:downloadStatesDidChange:";
const platform::Nanoseconds never = platform::Never;

class DownloadObservation : public SyncClientTest {
protected:
    using Download = std::shared_ptr<support::ScriptedDownload>;

    static Download makeDownload(std::int64_t number, Value identifier,
                                 std::string_view phase = VDDownloadPhaseDownloading) {
        auto download = std::make_shared<support::ScriptedDownload>(number, std::move(identifier));
        download->phase = phase;
        return download;
    }
    // A pending request of that age in seconds, whose end is noted.
    std::shared_ptr<KVSyncAssetRequest> addRequest(const std::string& identifier, double age) {
        auto request = std::make_shared<KVSyncAssetRequest>();
        request->asset = makePulled(identifier, 1);
        request->timestamp = system().absoluteTime() - age;
        request->completion = [this, queue = inspector().queue](KVSyncAssetRequest& finished,
                                                                const OptionalError& error) {
            EXPECT_TRUE(queue->isCurrent());
            _finished.emplace_back(finished.asset->identifier(), error);
        };
        inspector().requestsByIdentifier[identifier] = request;
        return request;
    }
    void tell(const std::vector<std::shared_ptr<VDDownload>>& downloads) {
        client();
        forget();
        client().downloadManagerDownloadStatesDidChange(*platform().storeDownloads().lastManager(),
                                                        downloads);
    }
    void tellAndRun(const std::vector<std::shared_ptr<VDDownload>>& downloads) {
        tell(downloads);
        scheduler().runDueJobs();
    }
    bool isPending(const std::string& identifier) {
        return inspector().requestsByIdentifier.contains(identifier);
    }
    static LogLine changed(int number) {
        return line(LogLevel::Info, operation,
                    "state did change for <VDDownload " + std::to_string(number) + ">");
    }
    static LogLine progress(const std::string& identifier, std::string_view phase) {
        return line(LogLevel::Info, operation,
                    "progress made on <KVSyncAssetRequest for <ORAsset " + identifier + ">> " +
                        std::string(phase));
    }
    static LogLine calling(const std::string& identifier) {
        return line(LogLevel::Info, operation,
                    "calling completion block on <KVSyncAssetRequest for <ORAsset " + identifier +
                        ">> in 5 seconds");
    }
    static LogLine age(const std::string& seconds) {
        return line(LogLevel::Warning, "_adjustRequestQueue",
                    "request is over due by " + seconds + " seconds");
    }
    static LogLine nextTimeout(const std::string& seconds) {
        return line(LogLevel::Warning, "_adjustRequestQueue",
                    "next timeout time in " + seconds + " seconds");
    }

    std::vector<std::pair<std::string, OptionalError>> _finished;
};

TEST_F(DownloadObservation, TheCallReturnsAtOnceAndKeepsTheClientAndTheDownloads) {
    auto download = makeDownload(1, "11");
    const std::weak_ptr<VDDownload> weakDownload = download;
    const auto weak = weakClient();
    tell({std::move(download)});
    EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}}}));
    EXPECT_THAT(lines(), IsEmpty());
    releaseClient();
    EXPECT_FALSE(weak.expired());
    EXPECT_FALSE(weakDownload.expired());
    scheduler().runDueJobs();
    EXPECT_THAT(lines(), ElementsAre(changed(1)));
    EXPECT_TRUE(weak.expired());
    EXPECT_TRUE(weakDownload.expired());
}

TEST_F(DownloadObservation, AnyChangeRestartsTheRequestsTime) {
    for (const std::string_view phase : {VDDownloadPhaseWaiting, VDDownloadPhaseDownloading,
                                         VDDownloadPhasePaused, VDDownloadPhaseFailed}) {
        const auto request = addRequest("11", 20);
        tellAndRun({makeDownload(1, "11", phase)});
        EXPECT_EQ(request->timestamp, system().absoluteTime());
        EXPECT_TRUE(isPending("11"));
        EXPECT_EQ(
            calls(),
            (Calls{{"WorkQueue.async", {"KVSyncClient"}},
                   {"TimerSource.setTimer", {scheduler().now() + 30 * second, never, 1'000'000}}}));
        EXPECT_THAT(lines(), ElementsAre(changed(1), progress("11", phase), age("0.000000"),
                                         nextTimeout("30.000000")));
    }
    EXPECT_THAT(_finished, IsEmpty());
}

TEST_F(DownloadObservation, ARequestThatKeepsMakingProgressNeverTimesOut) {
    addRequest("11", 0);
    for (int i = 0; i < 10; ++i) {
        scheduler().advance(20 * second);
        tellAndRun({makeDownload(1, "11")});
    }
    EXPECT_THAT(_finished, IsEmpty());
    scheduler().advance(30 * second + 1'000'000);
    ASSERT_EQ(_finished.size(), 1u);
    EXPECT_EQ(_finished[0].second, Error("ORError", 3));
}

TEST_F(DownloadObservation, TheInstallingPhaseFinishesTheRequestFiveSecondsLater) {
    addRequest("11", 20);
    tellAndRun({makeDownload(1, "11", VDDownloadPhaseInstalling)});
    EXPECT_FALSE(isPending("11"));
    EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}},
                              {"WorkQueue.asyncAfter", {"KVSyncClient", 5'000'000'000}},
                              {"TimerSource.setTimer", {never, never, 1'000'000}}}));
    EXPECT_THAT(lines(),
                ElementsAre(changed(1), progress("11", VDDownloadPhaseInstalling), calling("11")));
    scheduler().advance(5 * second - 1);
    EXPECT_THAT(_finished, IsEmpty());
    scheduler().advance(1);
    EXPECT_THAT(_finished, ElementsAre(std::pair(std::string("11"), OptionalError())));
    EXPECT_FALSE(scheduler().hasWork());
}

TEST_F(DownloadObservation, ADownloadWithoutRequestChangesNothingButTheLog) {
    const auto other = addRequest("12", 20);
    const double timestamp = other->timestamp;
    tellAndRun({makeDownload(1, "11", VDDownloadPhaseInstalling), makeDownload(2, 12),
                makeDownload(3, Value())});
    EXPECT_TRUE(isPending("12"));
    EXPECT_EQ(other->timestamp, timestamp);
    EXPECT_THAT(lines(), ElementsAre(changed(1), changed(2), changed(3), age("20.000000"),
                                     nextTimeout("10.000000")));
    EXPECT_EQ(recorder().callsNamed({"WorkQueue.asyncAfter"}), Calls{});
}

TEST_F(DownloadObservation, TwoChangesInOneBatchFinishTheRequestOnce) {
    const auto request = addRequest("11", 20);
    tellAndRun({makeDownload(1, "11"), makeDownload(1, "11", VDDownloadPhaseInstalling),
                makeDownload(1, "11", VDDownloadPhaseInstalling)});
    EXPECT_EQ(request->timestamp, system().absoluteTime());
    EXPECT_THAT(lines(),
                ElementsAre(changed(1), progress("11", VDDownloadPhaseDownloading), changed(1),
                            progress("11", VDDownloadPhaseInstalling), calling("11"), changed(1)));
    scheduler().advance(60 * second);
    EXPECT_EQ(_finished.size(), 1u);
}

TEST_F(DownloadObservation, DownloadsAreTakenInTheirOrder) {
    addRequest("11", 1);
    addRequest("12", 2);
    tellAndRun({makeDownload(2, "12"), makeDownload(1, "11")});
    EXPECT_THAT(lines(), ElementsAre(changed(2), progress("12", VDDownloadPhaseDownloading),
                                     changed(1), progress("11", VDDownloadPhaseDownloading),
                                     age("0.000000"), age("0.000000"), nextTimeout("30.000000")));
}

TEST_F(DownloadObservation, ATimeOutPassWithinTheFiveSecondsDoesNotFinishItAgain) {
    const auto request = addRequest("11", 20);
    tellAndRun({makeDownload(1, "11", VDDownloadPhaseInstalling)});
    request->timestamp = system().absoluteTime() - 100;
    inspector().adjustRequestQueue();
    EXPECT_THAT(_finished, IsEmpty());
    scheduler().advance(60 * second);
    EXPECT_THAT(_finished, ElementsAre(std::pair(std::string("11"), OptionalError())));
}

TEST_F(DownloadObservation, AnEmptyBatchStillExpiresWhatIsOverdue) {
    addRequest("11", 31);
    tellAndRun({});
    ASSERT_EQ(_finished.size(), 1u);
    EXPECT_EQ(_finished[0].second, Error("ORError", 3));
    EXPECT_FALSE(isPending("11"));
}

TEST_F(DownloadObservation, ARequestWithoutCompletionIsDroppedSilently) {
    addRequest("11", 20)->completion = nullptr;
    tellAndRun({makeDownload(1, "11", VDDownloadPhaseInstalling)});
    EXPECT_FALSE(isPending("11"));
    EXPECT_EQ(recorder().callsNamed({"WorkQueue.asyncAfter"}), Calls{});
    EXPECT_THAT(lines(), ElementsAre(changed(1), progress("11", VDDownloadPhaseInstalling)));
}

TEST_F(DownloadObservation, TheCompletionIsReadWhenItsTimeComes) {
    const auto request = addRequest("11", 20);
    tellAndRun({makeDownload(1, "11", VDDownloadPhaseInstalling)});
    int calls = 0;
    request->completion = [&](KVSyncAssetRequest&, const OptionalError&) { ++calls; };
    scheduler().advance(5 * second);
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(_finished, IsEmpty());
}

TEST_F(DownloadObservation, ACompletionTakenAwayMeanwhileIsNotCalled) {
    const auto request = addRequest("11", 20);
    tellAndRun({makeDownload(1, "11", VDDownloadPhaseInstalling)});
    request->completion = nullptr;
    EXPECT_NO_THROW(scheduler().advance(5 * second));
}

TEST_F(DownloadObservation, TheEndOfTheClientDoesNotCancelTheCompletion) {
    std::weak_ptr<KVSyncAssetRequest> request = addRequest("11", 20);
    const auto weak = weakClient();
    tellAndRun({makeDownload(1, "11", VDDownloadPhaseInstalling)});
    releaseClient();
    EXPECT_TRUE(weak.expired());
    EXPECT_FALSE(request.expired());
    scheduler().advance(5 * second);
    EXPECT_THAT(_finished, ElementsAre(std::pair(std::string("11"), OptionalError())));
    EXPECT_TRUE(request.expired());
}

}  // namespace
}  // namespace sync_bundle_tests
