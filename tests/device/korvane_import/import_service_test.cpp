// The import service: order, answers, cancelling, and what cannot be imported.
#include <gmock/gmock.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "device/korvane/import/host_data_import.h"
#include "device/korvane/import/import_cancellation.h"
#include "tests/device/korvane_import/import_fixture.h"

namespace {

using namespace test;

class ImportServiceTest : public ImportTest {
protected:
    void perform(std::int64_t source, std::vector<std::string>& answers, const std::string& name,
                 const std::string& path = korvane::DefaultDatabasePath,
                 std::optional<platform::Data> trackData = std::nullopt) {
        service->performImportFromSource(
            source, path, std::move(trackData), std::nullopt, options(false, name),
            [&answers, name](bool success, const platform::OptionalError& error) {
                answers.push_back(name + (success ? " ok" : " failed") +
                                  (error ? " " + std::to_string(error->code) : ""));
            });
    }
    void registerData(int tracks) {
        HostData data;
        for (int i = 1; i <= tracks; ++i) {
            data.add(i, "Title");
        }
        writeFile(HostDataPath, data.bytes());
        service->registerHostDataFile(HostDataPath);
    }

    std::vector<std::string> answers;
};

TEST_F(ImportServiceTest, ImportsRunOneAfterAnotherAndEachAnswersOnce) {
    registerData(3);
    perform(6, answers, "a");
    perform(6, answers, "b");
    EXPECT_TRUE(answers.empty());
    system.queue->runAll();
    EXPECT_THAT(answers, testing::ElementsAre("a ok", "b ok"));
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientSyncAnchor"), "b");
}

TEST_F(ImportServiceTest, TheFileIsReadOnlyWhileItIsRegistered) {
    registerData(3);
    service->unregisterHostDataFile();
    perform(6, answers, "a");
    system.queue->runAll();
    EXPECT_THAT(answers, testing::ElementsAre("a failed 1"));
    service->registerHostDataFile("/var/mobile/Media/nothing here");
    perform(6, answers, "b");
    system.queue->runAll();
    EXPECT_EQ(answers.back(), "b failed 1");
}

TEST_F(ImportServiceTest, WhatIsNotSupportedIsRefusedByACodeOfItsOwn) {
    perform(3, answers, "changes", korvane::DefaultDatabasePath, platform::Data{1});
    perform(6, answers, "elsewhere", "/some/other/database");
    system.queue->runAll();
    EXPECT_THAT(answers, testing::ElementsAre("changes failed 6", "elsewhere failed 4"));
}

TEST_F(ImportServiceTest, ACancelIsRememberedUntilItIsReset) {
    registerData(3);
    const std::string before = dump();
    int cancelled = 0;
    service->cancelImportOperation(6, [&] { ++cancelled; });
    perform(6, answers, "a");
    perform(6, answers, "b");
    system.queue->runAll();
    EXPECT_EQ(cancelled, 1);
    EXPECT_THAT(answers, testing::ElementsAre("a failed 3", "b failed 3"));
    EXPECT_EQ(dump(), before);
    service->resetCancel();
    perform(6, answers, "c");
    system.queue->runAll();
    EXPECT_EQ(answers.back(), "c ok");
}

TEST_F(ImportServiceTest, CancellingAnotherKindLeavesImportsOfHostDataAlone) {
    registerData(3);
    int cancelled = 0;
    service->cancelImportOperation(2, [&] { ++cancelled; });
    perform(6, answers, "a");
    system.queue->runAll();
    EXPECT_EQ(cancelled, 1);
    EXPECT_THAT(answers, testing::ElementsAre("a ok"));
}

TEST_F(ImportServiceTest, ACancelIsAnsweredBehindTheImportsThatWait) {
    registerData(3);
    perform(6, answers, "a");
    service->cancelImportOperation(6, [&] { answers.push_back("cancelled"); });
    system.queue->runAll();
    EXPECT_THAT(answers, testing::ElementsAre("a failed 3", "cancelled"));
}

TEST_F(ImportServiceTest, ACompletionThatThrowsEndsNothingElse) {
    registerData(3);
    service->performImportFromSource(
        6, korvane::DefaultDatabasePath, std::nullopt, std::nullopt, {},
        [](bool, const platform::OptionalError&) { throw std::runtime_error("no"); });
    perform(6, answers, "a");
    system.queue->runAll();
    EXPECT_THAT(answers, testing::ElementsAre("a ok"));
}

TEST_F(ImportServiceTest, AnImportOutlivesTheService) {
    registerData(3);
    perform(6, answers, "a");
    service.reset();
    system.queue->runAll();
    EXPECT_THAT(answers, testing::ElementsAre("a ok"));
}

// A stream that stops at a place until it is let go on, so that a cancel meets a running import.
class GatedStream final : public platform::InputStream {
public:
    struct Gate {
        std::mutex mutex;
        std::condition_variable changed;
        bool reached = false;
        bool open = false;

        void pass() {
            std::unique_lock lock(mutex);
            reached = true;
            changed.notify_all();
            changed.wait(lock, [&] { return open; });
        }
        void waitUntilReached() {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return reached; });
        }
        void letGo() {
            std::lock_guard lock(mutex);
            open = true;
            changed.notify_all();
        }
    };

    GatedStream(std::unique_ptr<platform::InputStream> inner, Gate* gate)
        : _inner(std::move(inner)), _gate(gate) {}
    platform::OptionalError read(platform::Data& out, std::size_t count) override {
        if (_gate && ++_reads == 4) {
            _gate->pass();
        }
        return _inner->read(out, count);
    }
    std::string description() const override { return "gated"; }

private:
    std::unique_ptr<platform::InputStream> _inner;
    Gate* _gate;
    int _reads = 0;
};

TEST_F(ImportServiceTest, ARunningImportStopsAndLeavesNoTrace) {
    registerData(25'000);
    const std::string before = dump();
    // The first opening verifies, the second applies: stopped in either.
    for (const int gatedOpening : {1, 2}) {
        korvane::ImportCancellation cancellation;
        GatedStream::Gate gate;
        platform::OptionalError error;
        std::thread importer([&] {
            int openings = 0;
            error = korvane::importHostData(library->connections(), korvane::recordsOf([&] {
                                                return std::make_unique<GatedStream>(
                                                    files.openInputStream(HostDataPath),
                                                    ++openings == gatedOpening ? &gate : nullptr);
                                            }),
                                            {}, cancellation);
        });
        gate.waitUntilReached();
        cancellation.ask();
        gate.letGo();
        importer.join();
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, KVMediaLibraryServiceErrorCancelled);
        EXPECT_EQ(dump(), before);
    }
    imports(HostData());
}

TEST_F(ImportServiceTest, ACancelAtAnyMomentLeavesAllOrNothing) {
    registerData(2'000);
    const std::string before = dump();
    for (int round = 0; round < 20; ++round) {
        korvane::ImportCancellation cancellation;
        platform::OptionalError error;
        std::atomic<bool> begun = false;
        std::thread importer([&] {
            error = korvane::importHostData(library->connections(), korvane::recordsOf([&] {
                                                begun = true;
                                                return files.openInputStream(HostDataPath);
                                            }),
                                            {}, cancellation);
        });
        while (!begun) {
            std::this_thread::yield();
        }
        for (int spin = 0; spin < round * 20'000; ++spin) {
            std::atomic_signal_fence(std::memory_order_seq_cst);
        }
        cancellation.ask();
        importer.join();
        if (error) {
            ASSERT_EQ(error->code, KVMediaLibraryServiceErrorCancelled) << error->description();
            ASSERT_EQ(number("SELECT count(*) FROM item"), 0);
        } else {
            ASSERT_EQ(number("SELECT count(*) FROM item"), 2'000);
            break;
        }
    }
}

}  // namespace
