#include "device/downloads/download_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "device/system/rooted_file_system.h"
#include "device/system/work_queues.h"
#include "tests/support/recording_log.h"
#include "tests/support/temporary_directory.h"

namespace {

using downloads::DownloadService;
using downloads::NewDownload;
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

class DownloadServiceTest : public testing::Test {
protected:
    void start() { service = std::make_unique<DownloadService>(configuration()); }
    DownloadService::Configuration configuration() { return {files, log, queue}; }

    static NewDownload song(std::int64_t item, std::string_view kind = VDDownloadKindMusic) {
        return {std::string(kind),
                item,
                1000 + item,
                77,
                "https://store.example/" + std::to_string(item),
                {{std::string(VDDownloadPropertyBundleIdentifier), "com.example.player"}}};
    }
    std::int64_t enqueue(const NewDownload& download) {
        platform::OptionalError error;
        const auto persistentIdentifier = service->enqueue(download, &error);
        EXPECT_TRUE(persistentIdentifier) << error->text();
        return persistentIdentifier.value_or(0);
    }
    std::shared_ptr<VDDownloadManager> managerFor(const std::vector<std::string>& kinds) {
        const auto options = service->makeManagerOptions();
        options->setDownloadKinds(kinds);
        options->setPrefetchedDownloadProperties(
            {std::string(VDDownloadPropertyLibraryItemIdentifier)});
        return service->makeManager(options);
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
    std::unique_ptr<DownloadService> service;
};

const std::vector<Operation> Everything = {
    Operation::downloadStatesDidChange, Operation::activeDownloadsDidChange,
    Operation::downloadsDidChange, Operation::networkUsageDidChange};

TEST_F(DownloadServiceTest, ADownloadShowsItsPropertiesAndWaitsAtFirst) {
    start();
    const std::int64_t persistentIdentifier = enqueue(song(5));
    const auto all = service->makeManager(nullptr)->downloads();
    ASSERT_EQ(all.size(), 1u);
    const VDDownload& download = *all.front();
    EXPECT_EQ(download.persistentIdentifier(), persistentIdentifier);
    EXPECT_EQ(download.valueForProperty(VDDownloadPropertyLibraryItemIdentifier), "5");
    EXPECT_EQ(download.valueForProperty(VDDownloadPropertyDownloadPhase), "waiting");
    EXPECT_EQ(download.valueForProperty(VDDownloadPropertyBundleIdentifier), "com.example.player");
    EXPECT_EQ(download.valueForProperty(downloads::PropertyStoreItemIdentifier), 1005);
    EXPECT_EQ(download.valueForProperty(downloads::PropertyStoreAccountIdentifier), 77);
    EXPECT_EQ(download.valueForProperty(downloads::PropertySource), "https://store.example/5");
    EXPECT_EQ(download.valueForProperty(downloads::PropertyKind), "music");
    EXPECT_TRUE(download.valueForProperty("unknown").isNull());
}

TEST_F(DownloadServiceTest, AManagerSeesItsKindsOldestFirst) {
    start();
    enqueue(song(3));
    enqueue(song(1, VDDownloadKindMovie));
    enqueue(song(2, VDDownloadKindPodcast));
    enqueue(song(9));
    EXPECT_THAT(items(*managerFor({"music", "podcast"})), ElementsAre("3", "2", "9"));
    EXPECT_THAT(items(*managerFor({})), IsEmpty());
    EXPECT_THAT(items(*service->makeManager(service->makeManagerOptions())),
                ElementsAre("3", "1", "2", "9"));
}

TEST_F(DownloadServiceTest, DownloadsAndTheirNumbersOutliveARestart) {
    start();
    const std::int64_t first = enqueue(song(1));
    const std::int64_t second = enqueue(song(2));
    EXPECT_EQ(service->update(second, "paused", {{"bytes", 4096}}), std::nullopt);
    service.reset();
    start();
    const auto all = service->makeManager(nullptr)->downloads();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0]->persistentIdentifier(), first);
    EXPECT_EQ(all[1]->persistentIdentifier(), second);
    EXPECT_EQ(all[1]->valueForProperty(VDDownloadPropertyDownloadPhase), "paused");
    EXPECT_EQ(all[1]->valueForProperty("bytes"), 4096);
}

TEST_F(DownloadServiceTest, ANumberIsNeverUsedAgain) {
    start();
    const std::int64_t first = enqueue(song(1));
    EXPECT_EQ(service->remove(first), std::nullopt);
    service.reset();
    start();
    const std::int64_t second = enqueue(song(1));
    EXPECT_GT(second, first);

    // Not even by a database that takes the place of a lost one.
    service.reset();
    ASSERT_EQ(files.removeItem("/var/mobile/Media/Downloads"), std::nullopt);
    start();
    EXPECT_GT(enqueue(song(1)), second);
}

TEST_F(DownloadServiceTest, ADamagedDatabaseIsSetAsideAndLogged) {
    start();
    enqueue(song(1));
    service.reset();
    {
        std::ofstream out(root.path() + downloads::DatabasePath, std::ios::trunc);
        out << std::string(20'000, 'x');
    }
    start();
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(items(*service->makeManager(nullptr)), IsEmpty());
    enqueue(song(2));
    const auto names = *files.contentsOfDirectory("/var/mobile/Media/Downloads", nullptr);
    EXPECT_TRUE(std::any_of(names.begin(), names.end(), [](const std::string& name) {
        return name.starts_with("downloads.sqlitedb.damaged-");
    }));
}

TEST_F(DownloadServiceTest, WhatIsIncompleteOrUnknownIsRefused) {
    start();
    const auto refused = [&](NewDownload download) {
        platform::OptionalError error;
        return !service->enqueue(download, &error) && error == platform::Error::posix(EINVAL);
    };
    NewDownload download = song(1);
    download.kind = "ringtone";
    EXPECT_TRUE(refused(download));
    download = song(0);
    EXPECT_TRUE(refused(download));
    download = song(1);
    download.storeItem = 0;
    EXPECT_TRUE(refused(download));
    download = song(1);
    download.storeAccount = 0;
    EXPECT_TRUE(refused(download));
    download = song(1);
    download.source.clear();
    EXPECT_TRUE(refused(download));
    download = song(1);
    download.properties["list"] = platform::Array{};
    EXPECT_TRUE(refused(download));
    EXPECT_FALSE(service->enqueue(download, nullptr));

    const std::int64_t known = enqueue(song(1));
    EXPECT_EQ(service->update(known, "sleeping"), platform::Error::posix(EINVAL));
    EXPECT_EQ(service->update(known + 1, "paused"), platform::Error::posix(ENOENT));
    EXPECT_EQ(service->remove(known + 1), platform::Error::posix(ENOENT));
}

TEST_F(DownloadServiceTest, ObserversAreToldInBatchesInTheOrderOfTheChanges) {
    start();
    const auto manager = managerFor({"music"});
    const auto observer = observe(*manager, Everything);
    inOneBatch([&] {
        const std::int64_t first = enqueue(song(1));
        enqueue(song(2));
        enqueue(song(3, VDDownloadKindMovie));
        service->update(first, "downloading");
        service->update(first, "installing");
        service->remove(first);
    });
    EXPECT_THAT(
        observer->seen(),
        ElementsAre("list", "active", "states 1:waiting 2:waiting 1:downloading 1:installing"));
}

TEST_F(DownloadServiceTest, MovementInTheQueueIsAChangeOfState) {
    start();
    const std::int64_t waiting = enqueue(song(8));
    const auto manager = managerFor({"music"});
    const auto observer = observe(*manager, Everything);
    inOneBatch([&] { service->update(waiting, "waiting"); });
    EXPECT_THAT(observer->seen(), ElementsAre("states 8:waiting"));
}

TEST_F(DownloadServiceTest, AnObserverHearsOnlyWhatItRespondsTo) {
    start();
    const auto manager = managerFor({"music"});
    const auto states = observe(*manager, {Operation::downloadStatesDidChange});
    const auto nothing = observe(*manager, {});
    inOneBatch([&] { service->update(enqueue(song(1)), "downloading"); });
    EXPECT_THAT(states->seen(), ElementsAre("states 1:waiting 1:downloading"));
    EXPECT_THAT(nothing->seen(), IsEmpty());
}

TEST_F(DownloadServiceTest, ObserversAndManagersAreHeldWeakly) {
    start();
    auto manager = managerFor({"music"});
    auto observer = observe(*manager, Everything);
    const std::weak_ptr<RecordingObserver> weakObserver = observer;
    inOneBatch([&] {
        enqueue(song(1));
        observer.reset();
        EXPECT_TRUE(weakObserver.expired());
    });
    const std::weak_ptr<VDDownloadManager> weakManager = manager;
    inOneBatch([&] {
        enqueue(song(2));
        manager.reset();
        EXPECT_TRUE(weakManager.expired());
    });
}

TEST_F(DownloadServiceTest, AManagerOutlivesTheService) {
    start();
    const auto manager = managerFor({"music"});
    enqueue(song(1));
    service.reset();
    EXPECT_THAT(items(*manager), ElementsAre("1"));
}

TEST_F(DownloadServiceTest, ThreadsMayChangeAndReadAtOnce) {
    start();
    const auto manager = managerFor({"music"});
    const auto observer = observe(*manager, {Operation::downloadStatesDidChange});
    std::vector<std::thread> threads;
    for (int thread = 1; thread <= 3; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 10; ++i) {
                const std::int64_t download = enqueue(song(100 * thread + i));
                EXPECT_EQ(service->update(download, "downloading"), std::nullopt);
                manager->downloads();
                if (i % 2 == 1) {
                    EXPECT_EQ(service->remove(download), std::nullopt);
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
