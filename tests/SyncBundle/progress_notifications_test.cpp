#include <cmath>
#include <limits>
#include <thread>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

constexpr std::string_view assetTotal = "com.vantor.kvsync.assetTotal";
constexpr std::string_view currentNumber = "com.vantor.kvsync.currentAssetNumber";

class ProgressNotifications : public SyncClientTest {
protected:
    support::RecordingNamedNotifications& named() { return system().namedNotifications(); }
};

TEST_F(ProgressNotifications, TheTotalIsRegisteredOnceThenSetAndPostedEachTime) {
    inspector().postAssetTotal(7);
    inspector().postAssetTotal(8);
    EXPECT_EQ(calls(), (Calls{{"NamedNotifications.registerCheck", {assetTotal}},
                              {"NamedNotifications.setState", {assetTotal, 7}},
                              {"NamedNotifications.post", {assetTotal}},
                              {"NamedNotifications.setState", {assetTotal, 8}},
                              {"NamedNotifications.post", {assetTotal}}}));
}

TEST_F(ProgressNotifications, TenTotalsInARowArePostedTenTimes) {
    for (std::uint64_t total = 0; total < 10; ++total)
        inspector().postAssetTotal(total);
    EXPECT_EQ(named().postsOf(assetTotal), 10u);
}

TEST_F(ProgressNotifications, ATotalOfZeroIsPostedLikeAnyOther) {
    inspector().postAssetTotal(3);
    inspector().postAssetTotal(0);
    EXPECT_EQ(named().postsOf(assetTotal), 2u);
    EXPECT_EQ(named().stateOf(assetTotal), 0u);
}

TEST_F(ProgressNotifications, AStateHasAllItsBits) {
    inspector().postAssetTotal(std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(named().stateOf(assetTotal), std::numeric_limits<std::uint64_t>::max());
}

TEST_F(ProgressNotifications, TheFirstCurrentNumberIsPosted) {
    inspector().postCurrentAssetNumber(1);
    EXPECT_EQ(calls(), (Calls{{"NamedNotifications.registerCheck", {currentNumber}},
                              {"NamedNotifications.setState", {currentNumber, 1}},
                              {"NamedNotifications.post", {currentNumber}}}));
}

TEST_F(ProgressNotifications, WithinASecondOnlyTheStateFollows) {
    inspector().postCurrentAssetNumber(1);
    scheduler().advance(second / 4);
    inspector().postCurrentAssetNumber(2);
    scheduler().advance(second / 4);
    inspector().postCurrentAssetNumber(3);
    EXPECT_EQ(named().stateOf(currentNumber), 3u);
    EXPECT_EQ(named().postsOf(currentNumber), 1u);
    scheduler().advance(second / 2);
    inspector().postCurrentAssetNumber(4);
    EXPECT_EQ(named().stateOf(currentNumber), 4u);
    EXPECT_EQ(named().postsOf(currentNumber), 2u);
}

TEST_F(ProgressNotifications, ACallThatDoesNotPostDoesNotMoveTheDate) {
    inspector().postCurrentAssetNumber(1);
    const auto posted = inspector().lastAssetNumberPostDate;
    scheduler().advance(second / 2);
    inspector().postCurrentAssetNumber(2);
    EXPECT_EQ(inspector().lastAssetNumberPostDate, posted);
}

TEST_F(ProgressNotifications, ATimeThatCannotBeComparedDoesNotPost) {
    inspector().lastAssetNumberPostDate = platform::Date{std::nan("")};
    inspector().postCurrentAssetNumber(1);
    EXPECT_EQ(named().postsOf(currentNumber), 0u);
    EXPECT_EQ(named().stateOf(currentNumber), 1u);
}

TEST_F(ProgressNotifications, AClockThatWentBackDoesNotPost) {
    inspector().postCurrentAssetNumber(1);
    system().jumpAbsoluteTime(-3600);
    inspector().postCurrentAssetNumber(2);
    EXPECT_EQ(named().postsOf(currentNumber), 1u);
}

TEST_F(ProgressNotifications, AFailedRegistrationIsTriedAgainAtTheNextCall) {
    client();
    recorder().failCall("NamedNotifications.registerCheck");
    inspector().postAssetTotal(5);
    EXPECT_EQ(calls(), (Calls{{"NamedNotifications.registerCheck", {assetTotal}}}));
    inspector().postAssetTotal(6);
    EXPECT_EQ(named().stateOf(assetTotal), 6u);
    EXPECT_EQ(named().postsOf(assetTotal), 1u);

    recorder().failCall("NamedNotifications.registerCheck");
    inspector().postCurrentAssetNumber(1);
    EXPECT_EQ(named().postsOf(currentNumber), 0u);
    EXPECT_EQ(inspector().lastAssetNumberPostDate, std::nullopt);
    inspector().postCurrentAssetNumber(2);
    EXPECT_EQ(named().stateOf(currentNumber), 2u);
    EXPECT_EQ(named().postsOf(currentNumber), 1u);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(ProgressNotifications, TheRegistrationsAreSharedByAllClients) {
    inspector().postAssetTotal(1);
    const auto other = KVSyncClient::init();
    KVSyncClientInspector(*other).postAssetTotal(2);
    EXPECT_EQ(recorder().callsNamed({"NamedNotifications.registerCheck"}),
              (Calls{{"NamedNotifications.registerCheck", {assetTotal}}}));
}

TEST_F(ProgressNotifications, TheLimitIsEachClientsOwn) {
    inspector().postCurrentAssetNumber(1);
    const auto other = KVSyncClient::init();
    KVSyncClientInspector(*other).postCurrentAssetNumber(1);
    EXPECT_EQ(named().postsOf(currentNumber), 2u);
}

TEST_F(ProgressNotifications, TwoClientsMayRegisterAtTheSameTime) {
    client();
    const auto other = KVSyncClient::init();
    std::thread thread([&other] { KVSyncClientInspector(*other).postAssetTotal(1); });
    inspector().postAssetTotal(1);
    thread.join();
    EXPECT_EQ(recorder().callsNamed({"NamedNotifications.registerCheck"}).size(), 1u);
    EXPECT_EQ(named().postsOf(assetTotal), 2u);
}

}  // namespace
}  // namespace sync_bundle_tests
