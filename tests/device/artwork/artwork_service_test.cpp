#include "device/artwork/artwork_service.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <filesystem>
#include <limits>
#include <mutex>

#include "device/artwork/image_resize.h"
#include "device/system/rooted_file_system.h"
#include "device/system/work_queues.h"
#include "tests/device/artwork/media_samples.h"
#include "tests/support/temporary_directory.h"

namespace {

using artwork::ErrorCode;
using platform::OptionalError;
using samples::Bytes;

// Answers in the order in which they come.
class Answers {
public:
    std::function<void(const OptionalError&)> handler(std::function<void()> whenAnswered = {}) {
        return [this, whenAnswered](const OptionalError& error) {
            if (whenAnswered)
                whenAnswered();
            const std::lock_guard lock(_mutex);
            _errors.push_back(error);
            _changed.notify_all();
        };
    }
    // Waits until there are that many; fewer when they do not come.
    std::vector<OptionalError> wait(std::size_t count) {
        std::unique_lock lock(_mutex);
        _changed.wait_for(lock, std::chrono::seconds(60), [&] { return _errors.size() >= count; });
        return _errors;
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    std::vector<OptionalError> _errors;
};

class ArtworkServiceTest : public testing::Test {
protected:
    ArtworkServiceTest() {
        files.createDirectory("/art");
        files.createDirectory("/tmp");
        samples::writeFile(real("/art/cover"), samples::picture("testsrc=s=320x240", "jpg"));
    }
    std::string real(const std::string& path) const { return root.path() + path; }
    static PXVArtworkServiceResizeRequest request(const std::string& source, double width,
                                                  double height, const std::string& path) {
        PXVArtworkServiceResizeRequest result(source);
        result.addDestinationWithSize(width, height, path);
        return result;
    }
    // The one answer to a request.
    OptionalError send(const PXVArtworkServiceResizeRequest& sent) {
        Answers answers;
        service->sendRequest(sent, answers.handler());
        const auto errors = answers.wait(1);
        return errors.size() == 1 ? errors.front()
                                  : platform::Error("Test", 0, "There was no single answer.");
    }
    std::string sizeOf(const std::string& path) const {
        const samples::Pixels pixels = samples::decode(samples::readFile(real(path)));
        return std::to_string(pixels.width) + "x" + std::to_string(pixels.height);
    }
    std::size_t filesIn(const std::string& path) {
        return files.contentsOfDirectory(path, nullptr)->size();
    }

    test::TemporaryDirectory root;
    device::RootedFileSystem files{root.path()};
    device::WorkQueues queues;
    std::unique_ptr<artwork::ArtworkService> service = std::make_unique<artwork::ArtworkService>(
        files, queues.globalQueue(platform::QueuePriority::Default));
};

TEST_F(ArtworkServiceTest, APictureIsWrittenInTheExactSizeWithFractionsCutOff) {
    EXPECT_EQ(send(request("/art/cover", 60.7, 60.2, "/tmp/12345")), std::nullopt);
    EXPECT_EQ(sizeOf("/tmp/12345"), "60x60");
    EXPECT_EQ(filesIn("/tmp"), 1u);
}

TEST_F(ArtworkServiceTest, SeveralDestinationsAreWrittenByOneRequest) {
    PXVArtworkServiceResizeRequest several("/art/cover");
    several.addDestinationWithSize(160, 160, "/tmp/large");
    several.addDestinationWithSize(40, 20, "/tmp/small");
    several.addDestinationWithSize(400, 300, "/tmp/larger");
    EXPECT_EQ(send(several), std::nullopt);
    EXPECT_EQ(sizeOf("/tmp/large"), "160x160");
    EXPECT_EQ(sizeOf("/tmp/small"), "40x20");
    EXPECT_EQ(sizeOf("/tmp/larger"), "400x300");
}

TEST_F(ArtworkServiceTest, WhatIsAtTheDestinationIsReplacedWhole) {
    samples::writeFile(real("/tmp/old"), Bytes(1'000'000, 7));
    EXPECT_EQ(send(request("/art/cover", 50, 50, "/tmp/old")), std::nullopt);
    EXPECT_EQ(sizeOf("/tmp/old"), "50x50");
}

TEST_F(ArtworkServiceTest, AHostileOrMissingSourceIsAnErrorAndNothingIsLeft) {
    samples::writeFile(real("/art/bomb"), samples::pngClaiming(20'000, 20'000));
    samples::writeFile(real("/art/text"), Bytes{'h', 'e', 'l', 'l', 'o'});
    ASSERT_EQ(::mkfifo(real("/art/pipe").c_str(), 0600), 0);

    EXPECT_EQ(send(request("/art/bomb", 60, 60, "/tmp/a"))->code,
              static_cast<std::int64_t>(ErrorCode::TooLarge));
    EXPECT_EQ(send(request("/art/text", 60, 60, "/tmp/a"))->text(),
              "The file is not a JPEG, PNG or WebP picture.");
    EXPECT_EQ(send(request("/art/none", 60, 60, "/tmp/a")), platform::Error::posix(ENOENT));
    EXPECT_TRUE(send(request("/art/pipe", 60, 60, "/tmp/a")));
    EXPECT_TRUE(send(request("/art", 60, 60, "/tmp/a")));
    EXPECT_EQ(filesIn("/tmp"), 0u);
}

TEST_F(ArtworkServiceTest, WhatHasNoPossibleSizeIsRefused) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double side : {0.0, 0.9, -5.0, nan, 1e300, 100'000.0}) {
        const OptionalError error = send(request("/art/cover", 60, side, "/tmp/a"));
        ASSERT_TRUE(error) << side;
        EXPECT_EQ(error->code, static_cast<std::int64_t>(ErrorCode::BadSize)) << side;
    }
}

TEST_F(ArtworkServiceTest, WhenOneDestinationCannotBeWrittenNoneIs) {
    PXVArtworkServiceResizeRequest several("/art/cover");
    several.addDestinationWithSize(60, 60, "/tmp/first");
    several.addDestinationWithSize(60, 60, "/nowhere/second");
    EXPECT_EQ(send(several), platform::Error::posix(ENOENT));
    files.createDirectory("/tmp/directory/with");
    PXVArtworkServiceResizeRequest overDirectory("/art/cover");
    overDirectory.addDestinationWithSize(60, 60, "/tmp/first");
    overDirectory.addDestinationWithSize(60, 60, "/tmp/directory");
    EXPECT_TRUE(send(overDirectory));
    EXPECT_EQ(filesIn("/tmp"), 1u);
}

TEST_F(ArtworkServiceTest, PathsStayInsideTheDevice) {
    EXPECT_EQ(send(request("/art/../../../art/cover", 60, 60, "/../../tmp/inside")), std::nullopt);
    EXPECT_EQ(sizeOf("/tmp/inside"), "60x60");
}

TEST_F(ArtworkServiceTest, EqualRequestsAreAnsweredEachWithAFileOfItsOwn) {
    constexpr std::size_t Count = 12;
    Answers answers;
    std::atomic<int> found = 0;
    for (std::size_t i = 0; i < Count; ++i)
        service->sendRequest(request("/art/cover", 60, 60, "/tmp/same"), answers.handler([&] {
            // As a reader does that serves the file and then removes it.
            found += files.unlink("/tmp/same") == 0;
        }));
    EXPECT_EQ(answers.wait(Count), std::vector<OptionalError>(Count));
    EXPECT_EQ(found, static_cast<int>(Count));
}

TEST_F(ArtworkServiceTest, RequestsForOnePathWaitForEachOther) {
    constexpr int Count = 8;
    Answers answers;
    std::mutex mutex;
    std::vector<std::string> seen;
    for (int i = 1; i <= Count; ++i)
        service->sendRequest(request("/art/cover", 10.0 * i, 10, "/tmp/same"), answers.handler([&] {
            const std::string size = sizeOf("/tmp/same");
            const std::lock_guard lock(mutex);
            seen.push_back(size);
        }));
    answers.wait(Count);
    std::vector<std::string> expected;
    for (int i = 1; i <= Count; ++i)
        expected.push_back(std::to_string(10 * i) + "x10");
    EXPECT_EQ(seen, expected);
}

TEST_F(ArtworkServiceTest, ABlockedHandlerHoldsNobodyElseUp) {
    const auto release = device::makeSemaphore(0);
    Answers slow;
    Answers quick;
    for (int i = 0; i < 6; ++i)
        service->sendRequest(request("/art/cover", 20, 20, "/tmp/slow" + std::to_string(i)),
                             slow.handler([&] { release->wait(); }));
    service->sendRequest(request("/art/cover", 20, 20, "/tmp/quick"), quick.handler());
    EXPECT_EQ(quick.wait(1).size(), 1u);
    for (int i = 0; i < 6; ++i)
        release->signal();
    EXPECT_EQ(slow.wait(6).size(), 6u);
}

TEST_F(ArtworkServiceTest, EveryRequestIsAnsweredWhenTheServiceEnds) {
    constexpr std::size_t Count = 20;
    Answers answers;
    for (std::size_t i = 0; i < Count; ++i)
        service->sendRequest(request("/art/cover", 200, 200, "/tmp/" + std::to_string(i % 7)),
                             answers.handler());
    service.reset();
    for (const OptionalError& error : answers.wait(Count))
        EXPECT_TRUE(!error || error->code == static_cast<std::int64_t>(ErrorCode::Stopped));
    EXPECT_EQ(answers.wait(Count).size(), Count);
}

}  // namespace
