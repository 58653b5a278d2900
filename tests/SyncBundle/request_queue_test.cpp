#include "SyncBundle/asset_sync/sync_asset_request.h"
#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation = "_adjustRequestQueue";

class RequestQueue : public SyncClientTest {
protected:
    // A request of that age in seconds; its error goes to _errors.
    void addRequest(const std::string& identifier, double age) {
        auto request = std::make_shared<KVSyncAssetRequest>();
        request->asset = makeAsset(identifier, true);
        request->timestamp = system().absoluteTime() - age;
        request->completion = [this](KVSyncAssetRequest& finished, const OptionalError& error) {
            _errors.emplace_back(finished.asset->identifier(), error);
        };
        inspector().requestsByIdentifier[identifier] = request;
    }
    Calls timersSet() { return recorder().callsNamed({"TimerSource.setTimer"}); }

    std::vector<std::pair<std::string, OptionalError>> _errors;
};

TEST_F(RequestQueue, ARequestExpiresOnlyWhenOlderThanThirtySeconds) {
    addRequest("1", 30.0);
    inspector().adjustRequestQueue();
    EXPECT_THAT(_errors, IsEmpty());
    system().jumpAbsoluteTime(0.001);
    inspector().adjustRequestQueue();
    ASSERT_EQ(_errors.size(), 1u);
    EXPECT_EQ(_errors.front().first, "1");
    EXPECT_EQ(_errors.front().second, Error("ORError", 3));
    EXPECT_TRUE(inspector().requestsByIdentifier.empty());
}

TEST_F(RequestQueue, TheTimerAimsAtTheOldestRequestsDeadline) {
    addRequest("a", 10.0);
    addRequest("b", 25.0);
    inspector().adjustRequestQueue();
    const platform::Nanoseconds never = platform::Never;
    EXPECT_EQ(
        timersSet(),
        (Calls{{"TimerSource.setTimer", {scheduler().now() + 5 * second, never, 1'000'000}}}));
    EXPECT_THAT(
        lines(),
        ElementsAre(line(LogLevel::Warning, operation, "request is over due by 10.000000 seconds"),
                    line(LogLevel::Warning, operation, "request is over due by 25.000000 seconds"),
                    line(LogLevel::Warning, operation, "next timeout time in 5.000000 seconds")));
}

TEST_F(RequestQueue, AfterTheOlderExpiredTheTimerAimsAtTheSurvivor) {
    addRequest("a", 10.0);
    addRequest("b", 31.0);
    inspector().adjustRequestQueue();
    const platform::Nanoseconds never = platform::Never;
    EXPECT_EQ(
        timersSet(),
        (Calls{{"TimerSource.setTimer", {scheduler().now() + 20 * second, never, 1'000'000}}}));
    EXPECT_THAT(lines(), testing::Contains(line(LogLevel::Warning, operation,
                                                "timeout requesting asset <ORAsset b>")));
    EXPECT_EQ(inspector().requestsByIdentifier.size(), 1u);
}

TEST_F(RequestQueue, AfterTheLastRequestTheTimerIsDisarmed) {
    addRequest("a", 31.0);
    inspector().adjustRequestQueue();
    const platform::Nanoseconds never = platform::Never;
    EXPECT_EQ(timersSet(), (Calls{{"TimerSource.setTimer", {never, never, 1'000'000}}}));
    EXPECT_FALSE(scheduler().hasWork());
}

TEST_F(RequestQueue, TheDelayIsCutToWholeNanoseconds) {
    addRequest("a", 1.0 / 3.0);
    inspector().adjustRequestQueue();
    const platform::Nanoseconds never = platform::Never;
    EXPECT_EQ(
        timersSet(),
        (Calls{{"TimerSource.setTimer", {scheduler().now() + 29'666'666'666, never, 1'000'000}}}));
}

TEST_F(RequestQueue, EveryExpiredRequestIsFinishedInOnePass) {
    addRequest("a", 31.0);
    addRequest("b", 5.0);
    addRequest("c", 40.0);
    inspector().adjustRequestQueue();
    ASSERT_EQ(_errors.size(), 2u);
    EXPECT_EQ(_errors[0].first, "a");
    EXPECT_EQ(_errors[1].first, "c");
    EXPECT_THAT(
        lines(),
        ElementsAre(line(LogLevel::Warning, operation, "request is over due by 31.000000 seconds"),
                    line(LogLevel::Warning, operation, "timeout requesting asset <ORAsset a>"),
                    line(LogLevel::Warning, operation, "request is over due by 5.000000 seconds"),
                    line(LogLevel::Warning, operation, "request is over due by 40.000000 seconds"),
                    line(LogLevel::Warning, operation, "timeout requesting asset <ORAsset c>"),
                    line(LogLevel::Warning, operation, "next timeout time in 25.000000 seconds")));
}

TEST_F(RequestQueue, TheTimerDoesNotKeepTheClient) {
    addRequest("a", 10.0);
    inspector().adjustRequestQueue();
    const auto weak = weakClient();
    releaseClient();
    EXPECT_TRUE(weak.expired());
    scheduler().advance(60 * second);
    EXPECT_THAT(_errors, IsEmpty());
}

TEST_F(RequestQueue, ARequestWithoutCompletionExpiresSilently) {
    addRequest("a", 31.0);
    inspector().requestsByIdentifier["a"]->completion = nullptr;
    inspector().adjustRequestQueue();
    EXPECT_TRUE(inspector().requestsByIdentifier.empty());
}

TEST_F(RequestQueue, ThePendingTimerExpiresTheRequestOnTheQueue) {
    addRequest("a", 10.0);
    inspector().adjustRequestQueue();
    scheduler().advance(20 * second);
    EXPECT_THAT(_errors, IsEmpty());
    scheduler().advance(second / 1000);
    ASSERT_EQ(_errors.size(), 1u);
    EXPECT_EQ(_errors.front().second, Error("ORError", 3));
}

}  // namespace
}  // namespace sync_bundle_tests
