// A library in a fresh device directory, with a clock, queues and notifications that the test
// moves, and pictures and films that are what the test says.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "device/korvane/configuration.h"
#include "device/korvane/library.h"
#include "device/system/rooted_file_system.h"
#include "tests/support/temporary_directory.h"

namespace test {

// Runs its jobs when the test says so.
class ManualQueue final : public platform::WorkQueue {
public:
    const std::string& label() const override { return _label; }
    void async(platform::Job job) override { _jobs.push_back(std::move(job)); }
    void asyncAfter(platform::Nanoseconds, platform::Job job) override { async(std::move(job)); }
    bool isCurrent() const override { return _isRunning; }
    std::size_t waiting() const { return _jobs.size(); }
    void runAll() {
        while (!_jobs.empty()) {
            platform::Job job = std::move(_jobs.front());
            _jobs.erase(_jobs.begin());
            _isRunning = true;
            job();
            _isRunning = false;
        }
    }

private:
    std::string _label = "manual";
    std::vector<platform::Job> _jobs;
    bool _isRunning = false;
};

class RecordingCenter final : public platform::NotificationCenter {
public:
    void addObserver(Observer, std::string_view, platform::Job) override {}
    void removeObserver(Observer, std::string_view) override {}
    void removeObserver(Observer) override {}
    void post(std::string_view name) override { posted.emplace_back(name); }

    std::vector<std::string> posted;
};

class LibraryTestSystem final : public platform::OperatingSystem {
public:
    explicit LibraryTestSystem(platform::FileSystem& files) : _files(files) {}
    std::shared_ptr<platform::WorkQueue> makeSerialQueue(std::string_view) override {
        return queue;
    }
    std::shared_ptr<platform::WorkQueue> globalQueue(platform::QueuePriority) override {
        return queue;
    }
    std::shared_ptr<platform::Semaphore> makeSemaphore(std::int64_t) override { return nullptr; }
    std::shared_ptr<platform::TimerSource> makeTimer(
        std::shared_ptr<platform::WorkQueue>) override {
        return nullptr;
    }
    double absoluteTime() override { return now; }
    platform::Nanoseconds monotonicTime() override { return 0; }
    platform::FileSystem& fileSystem() override { return _files; }
    platform::NotificationCenter& defaultNotificationCenter() override { return center; }
    platform::NamedNotifications& namedNotifications() override { std::abort(); }
    platform::PropertyLists& propertyLists() override { std::abort(); }

    double now = 1'700'000'000;
    std::shared_ptr<ManualQueue> queue = std::make_shared<ManualQueue>();
    RecordingCenter center;

private:
    platform::FileSystem& _files;
};

class RecordingLog final : public platform::LogService {
public:
    bool shouldLog(platform::LogLevel, std::string_view) override { return true; }
    void log(const platform::LogRecord& record) override {
        std::lock_guard lock(_mutex);
        _messages.push_back(record.message);
    }
    std::vector<std::string> messages() {
        std::lock_guard lock(_mutex);
        return _messages;
    }

private:
    std::mutex _mutex;
    std::vector<std::string> _messages;
};

class FakeGrabber final : public korvane::FrameGrabber {
public:
    std::optional<platform::Data> grabFrame(const std::string& path, double seconds,
                                            platform::OptionalError* error) override {
        grabbed.emplace_back(path, seconds);
        if (fails && error)
            *error = platform::Error::posix(EIO);
        return fails ? std::nullopt : std::optional(platform::Data{1, 2, 3});
    }
    std::vector<std::pair<std::string, double>> grabbed;
    bool fails = false;
};

class FakeInspector final : public korvane::ArtworkInspector {
public:
    bool isShowablePicture(const std::string&) override { return showable; }
    bool showable = true;
};

struct NewTrack {
    std::int64_t pid = 0;
    std::int64_t syncID = 0;
    std::string title = {};
    std::string artist = {};
    std::string album = {};
    std::string albumArtist = {};
    int disc = 0;
    int number = 0;
    std::uint32_t mediaType = KV3MediaTypeMusic;
    std::int64_t globalID = 0;
    std::int64_t sources = 1;
};

// Adds a track with all its rows, inside the caller's write transaction.
void addTrack(common::Database& database, const NewTrack& track);

// Every table's rows as text.
std::string dumpOf(korvane::Library& library);

class LibraryTest : public testing::Test {
protected:
    void SetUp() override { open(); }
    void open() {
        platform::OptionalError error;
        library = korvane::Library::open(configuration(), &error);
        ASSERT_TRUE(library) << (error ? error->description() : "");
    }
    korvane::Configuration configuration() { return {files, system, log, grabber, inspector}; }
    void add(const NewTrack& track) {
        ASSERT_TRUE(library->connections().write([&](common::Database& database) {
            addTrack(database, track);
            return true;
        }));
    }
    std::int64_t number(std::string_view sql) {
        return library->connections().reading<std::int64_t>(
            [&](common::Database& database) { return database.int64(sql); });
    }
    void execute(std::string_view sql) {
        ASSERT_TRUE(library->connections().write([&](common::Database& database) {
            database.execute(sql);
            return true;
        }));
    }
    // On the device.
    void writeFile(const std::string& devicePath, const std::string& contents) {
        files.createDirectory(devicePath.substr(0, devicePath.rfind('/')));
        std::ofstream(files.realPath(devicePath)) << contents;
    }

    TemporaryDirectory directory;
    device::RootedFileSystem files{directory.path()};
    LibraryTestSystem system{files};
    RecordingLog log;
    FakeGrabber grabber;
    FakeInspector inspector;
    std::shared_ptr<korvane::Library> library;
};

}  // namespace test
