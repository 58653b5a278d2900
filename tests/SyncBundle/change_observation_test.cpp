#include <thread>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

constexpr auto contents = KV3KorvaneContentsDidChangeNotification;
constexpr auto displayValues = KV3KorvaneDisplayValuesDidChangeNotification;

class ChangeObservation : public SyncClientTest {
protected:
    support::RecordingNotificationCenter& center() { return system().defaultNotificationCenter(); }
    const std::shared_ptr<support::RecordingDelegate> _delegate =
        std::make_shared<support::RecordingDelegate>();
};

TEST_F(ChangeObservation, BeginsOnTheQueueWithContentsThenDisplayValues) {
    const auto client = KVSyncClient::init();
    EXPECT_EQ(center().observerCount(contents), 0u);
    forget();
    scheduler().runDueJobs();
    EXPECT_EQ(calls(), (Calls{{"NotificationCenter.addObserver", {contents}},
                              {"NotificationCenter.addObserver", {displayValues}}}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Debug, "_resumeObservingChangeNotifications",
                                          "_resumeObservingChangeNotifications")));
}

TEST_F(ChangeObservation, WithoutADelegateChangesAreForwardedToNobody) {
    client();
    center().post(contents);
    center().post(displayValues);
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(ChangeObservation, AContentsChangeIsOneCallWithPriorityOne) {
    client().setDelegate(_delegate);
    center().post(contents);
    EXPECT_THAT(_delegate->priorities(), ElementsAre(1));
    EXPECT_EQ(_delegate->lastClient(), &client());
}

TEST_F(ChangeObservation, ADisplayValueChangeIsOneCallWithPriorityTwo) {
    client().setDelegate(_delegate);
    center().post(displayValues);
    EXPECT_THAT(_delegate->priorities(), ElementsAre(2));
}

TEST_F(ChangeObservation, ANullDelegateClearsTheEarlierOne) {
    client().setDelegate(_delegate);
    client().setDelegate(nullptr);
    center().post(contents);
    center().post(displayValues);
    client()._handleSyncPrefsChangedNotification();
    EXPECT_THAT(_delegate->priorities(), IsEmpty());
    EXPECT_EQ(_delegate.use_count(), 1);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(ChangeObservation, ALaterDelegateReplacesTheEarlierOne) {
    const auto later = std::make_shared<support::RecordingDelegate>();
    client().setDelegate(_delegate);
    client().setDelegate(later);
    center().post(contents);
    EXPECT_THAT(_delegate->priorities(), IsEmpty());
    EXPECT_THAT(later->priorities(), ElementsAre(1));
}

TEST_F(ChangeObservation, PauseRemovesBothInTheSameOrder) {
    client()._pauseObservingChangeNotifications();
    EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}}}));
    forget();
    scheduler().runDueJobs();
    EXPECT_EQ(calls(), (Calls{{"NotificationCenter.removeObserver", {contents}},
                              {"NotificationCenter.removeObserver", {displayValues}}}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Debug, "_pauseObservingChangeNotifications",
                                          "_pauseObservingChangeNotifications")));
}

TEST_F(ChangeObservation, PauseThenResumeLeavesOneRegistrationForEach) {
    client()._pauseObservingChangeNotifications();
    client()._resumeObservingChangeNotifications();
    scheduler().runDueJobs();
    EXPECT_EQ(center().observerCount(contents), 1u);
    EXPECT_EQ(center().observerCount(displayValues), 1u);
    client().setDelegate(_delegate);
    center().post(contents);
    EXPECT_THAT(_delegate->priorities(), ElementsAre(1));
}

TEST_F(ChangeObservation, AChangeOfTheSyncPrefsIsLoggedAndHasPriorityZero) {
    client().setDelegate(_delegate);
    client()._handleSyncPrefsChangedNotification();
    EXPECT_THAT(_delegate->priorities(), ElementsAre(0));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Debug, "_handleSyncPrefsChangedNotification:",
                                          "sync prefs have changed. new values=(null)")));
}

TEST_F(ChangeObservation, PlaylistSyncSettingsAreNullAndIgnored) {
    EXPECT_TRUE(client()._getPlaylistSyncSettingsParams().isNull());
    client()._applyPlaylistSyncSettingsParams(Dictionary{{"key", 1}});
    client()._applyPlaylistSyncSettingsParams(Value());
    EXPECT_TRUE(client()._getPlaylistSyncSettingsParams().isNull());
    EXPECT_EQ(calls(), Calls{});
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(ChangeObservation, ReplacingTheDelegateWhileChangesComeIsSafe) {
    client();
    std::thread poster([this] {
        for (int i = 0; i < 1000; ++i)
            center().post(contents);
    });
    for (int i = 0; i < 1000; ++i)
        client().setDelegate(i % 2 == 0 ? _delegate : nullptr);
    poster.join();
    for (const std::int64_t priority : _delegate->priorities())
        EXPECT_EQ(priority, 1);
}

TEST_F(ChangeObservation, ReleasingTheClientWhileChangesComeIsSafe) {
    client().setDelegate(_delegate);
    std::thread poster([this] {
        for (int i = 0; i < 1000; ++i)
            center().post(displayValues);
    });
    releaseClient();
    poster.join();
    EXPECT_EQ(center().observerCount(displayValues), 0u);
}

}  // namespace
}  // namespace sync_bundle_tests
