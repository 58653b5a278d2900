// The client between real threads, for the thread sanitizer above all: what the daemon does not
// serialise must not race, and no wait may get stuck.
#include <atomic>
#include <condition_variable>
#include <deque>
#include <semaphore>
#include <thread>

#include "tests/SyncBundle/sync_client_test.h"
#include "tests/support/recording_streams.h"

namespace sync_bundle_tests {
namespace {

// Runs its jobs on threads of its own: one for a serial queue.
class ThreadedQueue : public platform::WorkQueue {
public:
    ThreadedQueue(std::string label, std::size_t threadCount) : _label(std::move(label)) {
        for (std::size_t i = 0; i < threadCount; ++i)
            _threads.emplace_back([this] { run(); });
    }
    // Runs what is queued and ends the threads. To be called while the platform still stands: the
    // last job may be the end of a client.
    void stop() {
        {
            const std::lock_guard lock(_mutex);
            _isStopping = true;
        }
        _changed.notify_all();
        for (std::thread& thread : _threads)
            thread.join();
    }

    const std::string& label() const override { return _label; }
    void async(platform::Job job) override {
        {
            const std::lock_guard lock(_mutex);
            _jobs.push_back(std::move(job));
        }
        _changed.notify_one();
    }
    void asyncAfter(platform::Nanoseconds, platform::Job job) override { async(std::move(job)); }
    bool isCurrent() const override { return false; }

private:
    void run() {
        while (true) {
            platform::Job job;
            {
                std::unique_lock lock(_mutex);
                _changed.wait(lock, [this] { return _isStopping || !_jobs.empty(); });
                if (_jobs.empty())
                    return;
                job = std::move(_jobs.front());
                _jobs.pop_front();
            }
            job();
        }
    }

    const std::string _label;
    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<platform::Job> _jobs;  // guarded by _mutex
    bool _isStopping = false;         // guarded by _mutex
    std::vector<std::thread> _threads;
};

class RealSemaphore : public platform::Semaphore {
public:
    void signal() override { _semaphore.release(); }
    void wait() override { _semaphore.acquire(); }

private:
    std::counting_semaphore<> _semaphore{0};
};

class ThreadedSystem : public support::VirtualOperatingSystem {
public:
    explicit ThreadedSystem(support::Recorder& recorder)
        : VirtualOperatingSystem(recorder),
          _serialQueue(std::make_shared<ThreadedQueue>("serial", 1)),
          _globalQueue(std::make_shared<ThreadedQueue>("global", 4)) {}
    void stop() {
        _globalQueue->stop();
        _serialQueue->stop();
    }

    // One client, one serial queue; it outlives the client, whose end may come in one of its jobs.
    std::shared_ptr<platform::WorkQueue> makeSerialQueue(std::string_view) override {
        return _serialQueue;
    }
    std::shared_ptr<platform::WorkQueue> globalQueue(platform::QueuePriority) override {
        return _globalQueue;
    }
    std::shared_ptr<platform::Semaphore> makeSemaphore(std::int64_t) override {
        return std::make_shared<RealSemaphore>();
    }

private:
    const std::shared_ptr<ThreadedQueue> _serialQueue;
    const std::shared_ptr<ThreadedQueue> _globalQueue;
};

// The services' own thread answers while this lives.
class ThreadedPlatform : public support::RecordingPlatform {
public:
    ThreadedPlatform() : _system(recorder()) {
        KVSyncClientInspector::forgetNotificationRegistrations();
        KVSyncClientInspector::forgetArtworkSizeVariants();
        _services = std::thread([this] {
            while (!_isStopping) {
                scheduler().runDueJobs();
                std::this_thread::yield();
            }
        });
    }
    ~ThreadedPlatform() override {
        _system.stop();
        _isStopping = true;
        _services.join();
    }
    ThreadedSystem& operatingSystem() override { return _system; }

private:
    ThreadedSystem _system;
    std::atomic<bool> _isStopping = false;
    std::thread _services;
};

constexpr int rounds = 20;

TEST(SyncClientThreads, ASyncMayBeCancelledFromAnotherThreadAtAnyTime) {
    ThreadedPlatform platform;
    const auto client = KVSyncClient::init();
    std::thread session([&client] {
        for (int i = 0; i < rounds; ++i)
            EXPECT_TRUE(client->reconcileSync(2, "anchor", {}, nullptr));
    });
    for (int i = 0; i < rounds; ++i)
        client->cancelSyncOperations();
    session.join();
}

// Each round begins when the one before has been reported complete, though its stream is then still
// to be let go.
TEST(SyncClientThreads, ExportsImportsAndResetsMayMeet) {
    ThreadedPlatform platform;
    platform.library().changes[KV3RevisionTrackingCodeContainer] = {{31, 1, 0}};
    platform.library().changes[KV3RevisionTrackingCodeTrack] = {{1, 3, 0}};
    const auto client = KVSyncClient::init();
    const auto reportNothing = [](std::uint64_t, std::uint64_t) {};
    std::thread exporter([&] {
        RealSemaphore completed;
        for (int i = 0; i < rounds; ++i) {
            const auto stream =
                std::make_shared<support::RecordingOutputStream>(platform.recorder(), "daemon");
            stream->open();
            client->getChangesForSyncType(
                1, 1, 0, 10, {}, stream, [](const Dictionary&) {}, reportNothing,
                [&](const OptionalError&) { completed.signal(); });
            completed.wait();
            EXPECT_EQ(stream->bytes().size(), std::string_view("[P31;][T1;]").size());
        }
    });
    std::thread importer([&] {
        RealSemaphore completed;
        for (int i = 0; i < rounds; ++i) {
            client->applyChangesForSyncType(
                1, 1, platform.operatingSystem().fileSystem().makeInputStream(Data{1, 2, 3}),
                {{"PlaylistDataLen", 1}}, reportNothing,
                [&](const OptionalError&, std::int64_t) { completed.signal(); });
            completed.wait();
        }
    });
    for (int i = 0; i < rounds; ++i) {
        client->resetSyncDataWithCompletion([](const OptionalError&) {});
        client->currentRevision();
    }
    exporter.join();
    importer.join();
}

TEST(SyncClientThreads, ObservationDelegateAndNotificationsMayMeet) {
    ThreadedPlatform platform;
    const auto delegate = std::make_shared<support::RecordingDelegate>();
    auto client = KVSyncClient::init();
    std::thread poster([&platform] {
        for (int i = 0; i < rounds; ++i) {
            platform.operatingSystem().defaultNotificationCenter().post(
                KV3KorvaneContentsDidChangeNotification);
        }
    });
    std::thread observer([client] {
        for (int i = 0; i < rounds; ++i) {
            client->_pauseObservingChangeNotifications();
            client->_resumeObservingChangeNotifications();
        }
    });
    for (int i = 0; i < rounds; ++i) {
        client->setDelegate(i % 2 == 0 ? delegate : nullptr);
        client->_handleSyncPrefsChangedNotification();
    }
    client.reset();
    poster.join();
    observer.join();
}

TEST(SyncClientThreads, AssetsMayBeAskedForWhileDownloadsChange) {
    constexpr int askers = 3;
    ThreadedPlatform platform;
    const auto client = KVSyncClient::init();
    const auto manager = platform.storeDownloads().lastManager();
    std::vector<std::shared_ptr<ORAsset>> assets;
    for (int id = 1; id <= askers * rounds; ++id) {
        platform.library().tracks[id] = {};
        auto download = std::make_shared<support::ScriptedDownload>(id, std::to_string(id));
        download->phase = VDDownloadPhaseInstalling;
        manager->scriptedDownloads.push_back(download);
        auto asset = std::make_shared<support::RecordingAsset>(platform.recorder(),
                                                               std::to_string(id), false);
        // Pictures and tracks in turn.
        asset->setVariantOptions(
            Dictionary{{"AssetParts", id % 2 + 1}, {"Dimensions", Array{600, 600}}});
        assets.push_back(asset);
    }

    std::atomic<int> answers = 0;
    const auto ask = [&](int asker) {
        for (int i = asker * rounds; i < (asker + 1) * rounds; ++i) {
            client->getDataForAsset(assets[static_cast<std::size_t>(i)],
                                    [&](const auto&, auto, const auto&) {
                                        ++answers;
                                        answers.notify_all();
                                    });
        }
    };
    std::vector<std::thread> threads;
    for (int asker = 0; asker < askers; ++asker)
        threads.emplace_back(ask, asker);
    std::thread observer([&] {
        for (int i = 0; i < rounds; ++i)
            client->downloadManagerDownloadStatesDidChange(*manager, manager->scriptedDownloads);
    });
    for (int i = 0; i < rounds; ++i)
        client->assetsToSyncWithCompletion([](const auto&, const auto&) {});
    for (std::thread& thread : threads)
        thread.join();
    observer.join();
    // Whoever asked after the last change has its turn now.
    client->downloadManagerDownloadStatesDidChange(*manager, manager->scriptedDownloads);
    for (int known = answers; known < askers * rounds; known = answers)
        answers.wait(known);
    EXPECT_EQ(answers, askers * rounds);
}

}  // namespace
}  // namespace sync_bundle_tests
