#include "device/cloud/cloud_service.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <optional>

#include "device/system/rooted_file_system.h"
#include "device/system/work_queues.h"
#include "tests/support/recording_log.h"
#include "tests/support/temporary_directory.h"

namespace {

class CloudServiceTest : public testing::Test {
protected:
    cloud::CloudService makeService() {
        return {files, log, [this](bool hasData) {
                    recorded = hasData;
                    return libraryWorks;
                }};
    }
    // The answer that a client gets, on the queue that it named.
    bool isAuthenticated(const std::shared_ptr<KLCloudClient>& client) {
        const auto queue = queues.makeSerialQueue("answers");
        const auto answered = device::makeSemaphore(0);
        bool answer = false;
        bool onQueue = false;
        client->isAuthenticatedWithQueue(queue, [&](bool isSignedIn) {
            answer = isSignedIn;
            onQueue = queue->isCurrent();
            answered->signal();
        });
        answered->wait();
        EXPECT_TRUE(onQueue);
        return answer;
    }
    void writeState(const std::string& text) {
        files.createDirectory(cloud::StateDirectory);
        std::ofstream(root.path() + cloud::StatePath, std::ios::trunc) << text;
    }

    test::TemporaryDirectory root;
    device::RootedFileSystem files{root.path()};
    device::WorkQueues queues;
    support::RecordingLog log;
    std::optional<bool> recorded;
    bool libraryWorks = true;
};

TEST_F(CloudServiceTest, NobodyIsSignedInAtFirst) {
    cloud::CloudService service = makeService();
    EXPECT_FALSE(isAuthenticated(service.makeClient()));
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(recorded, std::nullopt);
}

TEST_F(CloudServiceTest, AClientSeesEveryChangeAndARestartKeepsIt) {
    cloud::CloudService service = makeService();
    const auto client = service.makeClient();
    EXPECT_EQ(service.signIn(false), std::nullopt);
    EXPECT_TRUE(isAuthenticated(client));
    EXPECT_TRUE(isAuthenticated(makeService().makeClient()));
    EXPECT_EQ(service.signOut(), std::nullopt);
    EXPECT_FALSE(isAuthenticated(client));
    EXPECT_FALSE(isAuthenticated(makeService().makeClient()));
}

TEST_F(CloudServiceTest, TheLibraryIsToldWhetherItsKenningDataComesFromTheCloud) {
    cloud::CloudService service = makeService();
    EXPECT_EQ(service.signIn(true), std::nullopt);
    EXPECT_EQ(recorded, true);
    EXPECT_EQ(service.state(), (cloud::CloudState{true, true}));
    EXPECT_EQ(service.signIn(false), std::nullopt);
    EXPECT_EQ(recorded, false);
    service.signIn(true);
    EXPECT_EQ(service.signOut(), std::nullopt);
    EXPECT_EQ(recorded, false);
    EXPECT_EQ(service.state(), cloud::CloudState{});
}

TEST_F(CloudServiceTest, ALibraryThatCannotRecordItIsAnError) {
    libraryWorks = false;
    cloud::CloudService service = makeService();
    EXPECT_TRUE(service.signIn(true));
    libraryWorks = true;
    EXPECT_EQ(service.signIn(true), std::nullopt);
}

TEST_F(CloudServiceTest, ADamagedStateIsSignedOutAndLogged) {
    cloud::CloudService service = makeService();
    service.signIn(true);
    std::ifstream in(root.path() + cloud::StatePath);
    const std::string good{std::istreambuf_iterator<char>(in), {}};
    const std::string damaged[] = {
        "",
        "garbage",
        good.substr(0, good.size() / 2),
        "<plist version=\"1.0\"><array/></plist>",
        "<plist version=\"1.0\"><dict><key>SignedIn</key><string>yes</string></dict></plist>",
        std::string(1 << 20, ' '),
    };
    std::size_t lines = 0;
    for (const std::string& text : damaged) {
        writeState(text);
        EXPECT_FALSE(isAuthenticated(service.makeClient())) << text.substr(0, 80);
        ASSERT_EQ(log.records().size(), ++lines) << text.substr(0, 80);
        EXPECT_EQ(log.records().back().level, platform::LogLevel::Error);
    }
    writeState(good);
    EXPECT_TRUE(isAuthenticated(service.makeClient()));
    EXPECT_EQ(log.records().size(), lines);
}

TEST_F(CloudServiceTest, AStateThatCannotBeWrittenIsAnErrorAndTellsTheLibraryNothing) {
    files.createDirectory("/var/mobile/Library");
    std::ofstream(root.path() + cloud::StateDirectory) << "no directory";
    cloud::CloudService service = makeService();
    EXPECT_TRUE(service.signIn(true));
    EXPECT_EQ(recorded, std::nullopt);
}

TEST_F(CloudServiceTest, AClientOutlivesTheServiceAndItsQuestionOutlivesTheClient) {
    auto service = std::make_unique<cloud::CloudService>(files, log, [](bool) { return true; });
    service->signIn(false);
    auto client = service->makeClient();
    service.reset();
    EXPECT_TRUE(isAuthenticated(client));

    const auto queue = queues.makeSerialQueue("held");
    const auto hold = device::makeSemaphore(0);
    const auto answered = device::makeSemaphore(0);
    std::atomic<int> answers = 0;
    queue->async([&] { hold->wait(); });
    client->isAuthenticatedWithQueue(queue, [&](bool) {
        ++answers;
        answered->signal();
    });
    client.reset();
    EXPECT_EQ(answers, 0);
    hold->signal();
    answered->wait();
    EXPECT_TRUE(queues.shutdown(std::chrono::seconds(10)));
    EXPECT_EQ(answers, 1);
}

}  // namespace
