#include "device/downloads/download_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "device/downloads/download_manager.h"
#include "device/system/rooted_file_system.h"
#include "device/system/work_queues.h"
#include "tests/support/recording_log.h"
#include "tests/support/temporary_directory.h"

namespace {

using downloads::DownloadList;
using downloads::DownloadRecord;
using testing::ElementsAre;
using testing::IsEmpty;
using Operation = VDDownloadManagerObserverOperation;

// Writes down what it is told as "<operation> <library item>:<phase> ...".
class RecordingObserver final : public VDDownloadManagerObserver {
public:
    RecordingObserver(std::vector<Operation> operations, const platform::WorkQueue& queue)
        : _operations(std::move(operations)), _queue(queue) {}

    bool respondsTo(Operation operation) const override {
        return std::find(_operations.begin(), _operations.end(), operation) != _operations.end();
    }
    void downloadManagerDownloadStatesDidChange(
        VDDownloadManager&, const std::vector<std::shared_ptr<VDDownload>>& downloads) override {
        std::string line = "states";
        for (const auto& download : downloads)
            line += " " +
                    *download->valueForProperty(VDDownloadPropertyLibraryItemIdentifier).string() +
                    ":" + *download->valueForProperty(VDDownloadPropertyDownloadPhase).string();
        note(line);
    }
    void downloadManagerActiveDownloadsDidChange(VDDownloadManager&) override { note("active"); }
    void downloadManagerDownloadsDidChange(VDDownloadManager&) override { note("list"); }

    std::vector<std::string> seen() {
        const std::lock_guard lock(_mutex);
        return _seen;
    }

private:
    void note(const std::string& line) {
        EXPECT_TRUE(_queue.isCurrent());
        const std::lock_guard lock(_mutex);
        _seen.push_back(line);
    }

    const std::vector<Operation> _operations;
    const platform::WorkQueue& _queue;
    std::mutex _mutex;
    std::vector<std::string> _seen;
};

class DownloadListTest : public testing::Test {
protected:
    void start() { list = std::make_shared<DownloadList>(files, log, queue); }

    static DownloadRecord song(std::int64_t item, std::string_view kind = VDDownloadKindMusic) {
        DownloadRecord record;
        record.kind = kind;
        record.phase = VDDownloadPhaseWaiting;
        record.libraryItemIdentifier = std::to_string(item);
        record.properties = {
            {std::string(downloads::PropertyStoreItemIdentifier), 1000 + item},
            {std::string(VDDownloadPropertyBundleIdentifier), "com.example.player"}};
        return record;
    }
    std::shared_ptr<VDDownloadManager> managerFor(std::vector<std::string> kinds) {
        return list->makeManager(std::move(kinds));
    }
    static std::vector<std::string> items(VDDownloadManager& manager) {
        std::vector<std::string> result;
        for (const auto& download : manager.downloads())
            result.push_back(
                *download->valueForProperty(VDDownloadPropertyLibraryItemIdentifier).string());
        return result;
    }
    // Everything that the queue was given is over.
    void settle() {
        const auto done = device::makeSemaphore(0);
        queue->async([&] { done->signal(); });
        done->wait();
    }
    // What happens meanwhile is told in one batch.
    void inOneBatch(const std::function<void()>& changes) {
        const auto hold = device::makeSemaphore(0);
        queue->async([&] { hold->wait(); });
        changes();
        hold->signal();
        settle();
    }
    std::shared_ptr<RecordingObserver> observe(VDDownloadManager& manager,
                                               std::vector<Operation> operations) {
        auto observer = std::make_shared<RecordingObserver>(std::move(operations), *queue);
        manager.addObserver(observer);
        return observer;
    }

    test::TemporaryDirectory root;
    device::RootedFileSystem files{root.path()};
    support::RecordingLog log;
    device::WorkQueues queues;
    std::shared_ptr<platform::WorkQueue> queue = queues.makeSerialQueue("VDDownloadManager");
    std::shared_ptr<DownloadList> list;
};

const std::vector<Operation> Everything = {
    Operation::downloadStatesDidChange, Operation::activeDownloadsDidChange,
    Operation::downloadsDidChange, Operation::networkUsageDidChange};

TEST_F(DownloadListTest, ADownloadShowsItsPropertiesAndWaitsAtFirst) {
    start();
    const std::int64_t persistentIdentifier = list->add(song(5));
    const auto all = list->makeManager(std::nullopt)->downloads();
    ASSERT_EQ(all.size(), 1u);
    const VDDownload& download = *all.front();
    EXPECT_EQ(download.persistentIdentifier(), persistentIdentifier);
    EXPECT_EQ(download.valueForProperty(VDDownloadPropertyLibraryItemIdentifier), "5");
    EXPECT_EQ(download.valueForProperty(VDDownloadPropertyDownloadPhase), "waiting");
    EXPECT_EQ(download.valueForProperty(VDDownloadPropertyBundleIdentifier), "com.example.player");
    EXPECT_EQ(download.valueForProperty(downloads::PropertyStoreItemIdentifier), 1005);
    EXPECT_EQ(download.downloadPhaseIdentifier(), VDDownloadPhaseWaiting);
    EXPECT_EQ(download.description(), "<download " + std::to_string(persistentIdentifier) +
                                          ": music, library item 5, waiting>");
    EXPECT_EQ(download.valueForProperty(downloads::PropertyKind), "music");
    EXPECT_TRUE(download.valueForProperty("unknown").isNull());
}

TEST_F(DownloadListTest, AManagerSeesItsKindsOldestFirst) {
    start();
    list->add(song(3));
    list->add(song(1, VDDownloadKindMovie));
    list->add(song(2, VDDownloadKindPodcast));
    list->add(song(9));
    EXPECT_THAT(items(*managerFor({"music", "podcast"})), ElementsAre("3", "2", "9"));
    EXPECT_THAT(items(*managerFor({})), IsEmpty());
    EXPECT_THAT(items(*list->makeManager(std::nullopt)), ElementsAre("3", "1", "2", "9"));
}

TEST_F(DownloadListTest, DownloadsAndTheirNumbersOutliveARestart) {
    start();
    const std::int64_t first = list->add(song(1));
    const std::int64_t second = list->add(song(2));
    EXPECT_TRUE(list->update(second, "paused", {{"bytes", 4096}}));
    list.reset();
    start();
    const auto all = list->makeManager(std::nullopt)->downloads();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0]->persistentIdentifier(), first);
    EXPECT_EQ(all[1]->persistentIdentifier(), second);
    EXPECT_EQ(all[1]->valueForProperty(VDDownloadPropertyDownloadPhase), "paused");
    EXPECT_EQ(all[1]->valueForProperty("bytes"), 4096);
}

TEST_F(DownloadListTest, ANumberIsNeverUsedAgain) {
    start();
    const std::int64_t first = list->add(song(1));
    EXPECT_TRUE(list->remove(first));
    list.reset();
    start();
    const std::int64_t second = list->add(song(1));
    EXPECT_GT(second, first);

    // Not even by a database that takes the place of a lost one.
    list.reset();
    ASSERT_EQ(files.removeItem("/var/mobile/Media/Downloads"), std::nullopt);
    start();
    EXPECT_GT(list->add(song(1)), second);
}

TEST_F(DownloadListTest, ADamagedDatabaseIsSetAsideAndLogged) {
    start();
    list->add(song(1));
    list.reset();
    {
        std::ofstream out(root.path() + downloads::DatabasePath, std::ios::trunc);
        out << std::string(20'000, 'x');
    }
    start();
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(items(*list->makeManager(std::nullopt)), IsEmpty());
    list->add(song(2));
    const auto names = *files.contentsOfDirectory("/var/mobile/Media/Downloads", nullptr);
    EXPECT_TRUE(std::any_of(names.begin(), names.end(), [](const std::string& name) {
        return name.starts_with("downloads.sqlitedb.damaged-");
    }));
}

TEST_F(DownloadListTest, WhatIsNotThereIsNotChanged) {
    start();
    const std::int64_t known = list->add(song(1));
    EXPECT_FALSE(list->update(known + 1, "paused"));
    EXPECT_FALSE(list->keep(known + 1, {}));
    EXPECT_FALSE(list->remove(known + 1));
    EXPECT_EQ(list->cancel(known + 1), DownloadList::Cancellation::Unknown);
}

TEST_F(DownloadListTest, WhatIsBeingInstalledIsNotCancelled) {
    start();
    const std::int64_t number = list->add(song(1));
    list->update(number, "installing");
    EXPECT_EQ(list->cancel(number), DownloadList::Cancellation::TooLate);
    list->update(number, "failed");
    EXPECT_EQ(list->cancel(number), DownloadList::Cancellation::Done);
    EXPECT_FALSE(list->find(number));
}

TEST_F(DownloadListTest, WhatIsKeptQuietlyIsToldToNobody) {
    start();
    const std::int64_t number = list->add(song(1));
    const auto manager = managerFor({"music"});
    const auto observer = observe(*manager, Everything);
    inOneBatch([&] { list->keep(number, {{"bytes", 4096}}); });
    EXPECT_THAT(observer->seen(), IsEmpty());
    EXPECT_EQ(list->find(number)->number("bytes"), 4096);
    inOneBatch([&] { list->tell(number); });
    EXPECT_THAT(observer->seen(), ElementsAre("states 1:waiting"));
}

TEST_F(DownloadListTest, ObserversAreToldInBatchesInTheOrderOfTheChanges) {
    start();
    const auto manager = managerFor({"music"});
    const auto observer = observe(*manager, Everything);
    inOneBatch([&] {
        const std::int64_t first = list->add(song(1));
        list->add(song(2));
        list->add(song(3, VDDownloadKindMovie));
        list->update(first, "downloading");
        list->update(first, "installing");
        list->remove(first);
    });
    EXPECT_THAT(
        observer->seen(),
        ElementsAre("list", "active", "states 1:waiting 2:waiting 1:downloading 1:installing"));
}

TEST_F(DownloadListTest, MovementInTheQueueIsAChangeOfState) {
    start();
    const std::int64_t waiting = list->add(song(8));
    const auto manager = managerFor({"music"});
    const auto observer = observe(*manager, Everything);
    inOneBatch([&] { list->update(waiting, "waiting"); });
    EXPECT_THAT(observer->seen(), ElementsAre("states 8:waiting"));
}

TEST_F(DownloadListTest, AnObserverHearsOnlyWhatItRespondsTo) {
    start();
    const auto manager = managerFor({"music"});
    const auto states = observe(*manager, {Operation::downloadStatesDidChange});
    const auto nothing = observe(*manager, {});
    inOneBatch([&] { list->update(list->add(song(1)), "downloading"); });
    EXPECT_THAT(states->seen(), ElementsAre("states 1:waiting 1:downloading"));
    EXPECT_THAT(nothing->seen(), IsEmpty());
}

TEST_F(DownloadListTest, ObserversAndManagersAreHeldWeakly) {
    start();
    auto manager = managerFor({"music"});
    auto observer = observe(*manager, Everything);
    const std::weak_ptr<RecordingObserver> weakObserver = observer;
    inOneBatch([&] {
        list->add(song(1));
        observer.reset();
        EXPECT_TRUE(weakObserver.expired());
    });
    const std::weak_ptr<VDDownloadManager> weakManager = manager;
    inOneBatch([&] {
        list->add(song(2));
        manager.reset();
        EXPECT_TRUE(weakManager.expired());
    });
}

TEST_F(DownloadListTest, AManagerKeepsTheList) {
    start();
    const auto manager = managerFor({"music"});
    list->add(song(1));
    list.reset();
    EXPECT_THAT(items(*manager), ElementsAre("1"));
}

TEST_F(DownloadListTest, ThreadsMayChangeAndReadAtOnce) {
    start();
    const auto manager = managerFor({"music"});
    const auto observer = observe(*manager, {Operation::downloadStatesDidChange});
    std::vector<std::thread> threads;
    for (int thread = 1; thread <= 3; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 10; ++i) {
                const std::int64_t download = list->add(song(100 * thread + i));
                EXPECT_TRUE(list->update(download, "downloading"));
                manager->downloads();
                if (i % 2 == 1) {
                    EXPECT_TRUE(list->remove(download));
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    settle();
    EXPECT_EQ(manager->downloads().size(), 15u);
    std::size_t changes = 0;
    for (const std::string& line : observer->seen())
        changes += static_cast<std::size_t>(std::count(line.begin(), line.end(), ':'));
    EXPECT_EQ(changes, 60u);
}

}  // namespace
