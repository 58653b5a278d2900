#include "device/orlith/backup/restore_finish.h"

#include <gmock/gmock.h>

#include "device/korvane/database_properties.h"
#include "device/orlith/backup/restore_area.h"
#include "tests/device/backup/restoring_client.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using testing::HasSubstr;

constexpr char Song[] = "/var/mobile/Media/Purchases/5.mp3";

class RestoreFinish : public test::LibraryTest {
protected:
    void SetUp() override {
        open();
        client.reconcile = [this](platform::OptionalError*) {
            execute("UPDATE item SET needs_restore = 1 WHERE item_pid <> 7");
            execute("DELETE FROM item WHERE item_pid = 7");
            return library->deleteDatabaseProperty(korvane::SyncAnchorProperty);
        };
        for (const std::int64_t pid : {5, 6, 7})
            add({.pid = pid});
    }
    void makePending(std::vector<std::string> paths) {
        orlith::RestoreArea area(files);
        ASSERT_EQ(area.begin(), std::nullopt);
        ASSERT_EQ(area.commit({"", "1700000000-1", std::move(paths)}), std::nullopt);
        ASSERT_EQ(area.placed(), std::nullopt);
    }
    std::optional<orlith::FinishedRestore> finish() {
        return orlith::finishRestore({client, files, *library, activities, manifest});
    }
    bool isPending() { return orlith::RestoreArea(files).pending().has_value(); }
    void expectUnfinished(const std::string& words) {
        const auto finished = finish();
        ASSERT_TRUE(finished && finished->error);
        EXPECT_THAT(finished->error->text(), HasSubstr(words));
        EXPECT_TRUE(isPending());
    }

    test::RestoringClient client;
    korvane::ActivityLock activities;
    const std::shared_ptr<test::FixedManifest> manifest = std::make_shared<test::FixedManifest>();
};

TEST_F(RestoreFinish, WithNothingPendingNobodyIsAsked) {
    EXPECT_EQ(finish(), std::nullopt);
    EXPECT_EQ(client.reconciled, 0);
}

TEST_F(RestoreFinish, ThePlugInReconcilesOnce) {
    execute(
        "INSERT INTO purchase (item_pid, source, kind) VALUES (5, 'https://a.example', 'music')");
    makePending({});
    const auto finished = finish();
    ASSERT_TRUE(finished);
    EXPECT_EQ(finished->error, std::nullopt);
    EXPECT_EQ(finished->tracks, 2u);
    EXPECT_EQ(finished->waiting, 2u);
    EXPECT_EQ(finished->fetched, 1u);
    EXPECT_EQ(finished->removed, 1u);
    EXPECT_EQ(finished->libraryUID, library->uid());
    EXPECT_EQ(finished->kept, "/var/mobile/Media/Replaced/1700000000-1/");
    EXPECT_FALSE(isPending());
    EXPECT_EQ(finish(), std::nullopt);
    EXPECT_EQ(client.reconciled, 1);
}

TEST_F(RestoreFinish, FilesThatNobodyKnowsAreSetAside) {
    writeFile(Song, "unknown");
    manifest->unowned = {Song};
    makePending({"/var/mobile/Media/Purchases/6.mp3"});
    ASSERT_EQ(finish()->error, std::nullopt);
    EXPECT_FALSE(files.fileExists(Song));
    EXPECT_TRUE(files.fileExists("/var/mobile/Media/Replaced/1700000000-1/5.mp3"));
}

TEST_F(RestoreFinish, WhereNothingWasReplacedFilesStay) {
    writeFile(Song, "unknown");
    manifest->unowned = {Song};
    makePending({});
    ASSERT_EQ(finish()->error, std::nullopt);
    EXPECT_TRUE(files.fileExists(Song));
}

TEST_F(RestoreFinish, AReconcileThatWasNotCommittedIsDoneAgain) {
    const auto works = client.reconcile;
    client.reconcile = [](platform::OptionalError*) { return true; };
    makePending({});
    expectUnfinished("could not be reconciled");
    client.reconcile = works;
    EXPECT_EQ(finish()->error, std::nullopt);
    EXPECT_FALSE(isPending());
}

TEST_F(RestoreFinish, AReconcileThatFailsIsDoneAgain) {
    makePending({});
    client.reconcile = [](platform::OptionalError*) { return false; };
    expectUnfinished("could not reconcile");
    client.reconcile = [](platform::OptionalError*) -> bool { throw std::out_of_range("far"); };
    expectUnfinished("far");
}

TEST_F(RestoreFinish, APlugInThatCannotReconcileLeavesTheRestoreUnfinished) {
    makePending({});
    client.lacks = {ORClientOperation::reconcileRestore};
    expectUnfinished("cannot reconcile");
    EXPECT_EQ(client.reconciled, 0);
}

}  // namespace
