// Purpose: the operating-system services: queues, semaphores, timers, the clock, the file system,
//   the in-process notification centre, named notifications and property lists.
// Calling thread: any, for every operation of this header.
// Callback thread: jobs and timer handlers run on the queue that they were given to; in-process
//   notifications run on the posting thread and must not block for long.
// Ownership: queues, semaphores and timers are shared references; a released queue still runs the
//   jobs that it has; a released timer no longer fires.
// Failure: file operations return an Error of POSIXErrorDomain; an unreadable property list gives
//   an Error; nothing else here fails.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/errors.h"
#include "platform/values.h"

namespace platform {

using Job = std::function<void()>;

// A point of the monotonic clock, or a span of it, in nanoseconds.
using Nanoseconds = std::uint64_t;
// A timer with this start time or interval is never due.
inline constexpr Nanoseconds Never = UINT64_MAX;

// Runs jobs. A serial queue runs one at a time in the order given; a global queue runs them side by
// side. A job that waits for another job of a global queue does not keep that one from starting.
class WorkQueue {
public:
    virtual ~WorkQueue() = default;
    virtual const std::string& label() const = 0;
    // Returns at once; the job is released after it ran. A job must not throw.
    virtual void async(Job job) = 0;
    // As async, but not before `delay` has passed.
    virtual void asyncAfter(Nanoseconds delay, Job job) = 0;
    // Whether the calling thread is inside a job of this queue.
    virtual bool isCurrent() const = 0;
};

enum class QueuePriority { High, Default, Low, Background };

class Semaphore {
public:
    virtual ~Semaphore() = default;
    virtual void signal() = 0;
    // Without time-out.
    virtual void wait() = 0;
};

// Created suspended; fires its handler on its queue. Setting a time replaces the earlier one.
class TimerSource {
public:
    virtual ~TimerSource() = default;
    virtual void setEventHandler(Job handler) = 0;
    // `start` is a point of OperatingSystem::monotonicTime, `interval` the repeat (Never: one
    // shot). It fires at `start` at the earliest and `start + leeway` at the latest, load
    // permitting.
    virtual void setTimer(Nanoseconds start, Nanoseconds interval, Nanoseconds leeway) = 0;
    virtual void resume() = 0;
};

struct FileAttributes {
    std::uint64_t size = 0;  // bytes
    bool isDirectory = false;
    bool isRegularFile = false;
};

// Bytes to be read: of a file, of memory, of another device. Closed when released; used by one
// thread at a time.
class InputStream {
public:
    virtual ~InputStream() = default;
    // Appends at most `count` bytes to `out`; 0 appended means the end. An error ends the stream.
    virtual OptionalError read(Data& out, std::size_t count) = 0;
    virtual std::string description() const = 0;
};

// Where bytes go: memory, a file, another device. Opened before the first write; used by one thread
// at a time.
class OutputStream {
public:
    virtual ~OutputStream() = default;
    virtual void open() = 0;
    virtual void close() = 0;
    // All of the bytes, waiting as long as the far end takes; an error ends the stream.
    virtual OptionalError write(std::span<const std::uint8_t> bytes) = 0;
    virtual std::string description() const = 0;
};

// Keeps what is written.
class MemoryOutputStream : public OutputStream {
public:
    // Everything written so far; the stream is empty afterwards.
    virtual Data takeData() = 0;
};

// All paths are absolute device paths ("/var/mobile/Media/..."). No path leads out of the device,
// and a leading "/private" is the same place as without it. An optional result is absent on
// failure, with the reason in `error` unless that is null.
class FileSystem {
public:
    virtual ~FileSystem() = default;
    // The names in a directory, without "." and "..", in no order.
    virtual std::optional<std::vector<std::string>> contentsOfDirectory(const std::string& path,
                                                                        OptionalError* error) = 0;
    // Every file and directory below, as paths relative to it, a directory before its contents. A
    // directory that cannot be read gives an empty list.
    virtual std::vector<std::string> subpathsOfDirectory(const std::string& path) = 0;
    virtual bool fileExists(const std::string& path) = 0;
    virtual std::optional<FileAttributes> attributes(const std::string& path,
                                                     OptionalError* error) = 0;
    // A hard link; fails when something is at `to`.
    virtual OptionalError linkItem(const std::string& from, const std::string& to) = 0;
    // A rename within the device; fails when something is at `to`.
    virtual OptionalError moveItem(const std::string& from, const std::string& to) = 0;
    // A file, or a directory with all it holds. Links are removed, never followed.
    virtual OptionalError removeItem(const std::string& path) = 0;
    // The system's unlink: 0, or the error number. Fails on a directory.
    virtual int unlink(const std::string& path) = 0;
    // With missing parents; one that exists is no error.
    virtual OptionalError createDirectory(const std::string& path) = 0;
    // The whole file, at most `limit` bytes; a larger one is an error (EFBIG).
    virtual std::optional<Data> readFile(const std::string& path, std::uint64_t limit,
                                         OptionalError* error) = 0;
    // Null when the file cannot be opened.
    virtual std::unique_ptr<InputStream> openInputStream(const std::string& path) = 0;
    // The system's text for an error number.
    virtual std::string errorText(int errorNumber) = 0;
    // Over bytes in memory, which the stream keeps.
    virtual std::unique_ptr<InputStream> makeInputStream(Data bytes) = 0;
    virtual std::unique_ptr<MemoryOutputStream> makeMemoryOutputStream() = 0;
};

// In-process notifications by name. Registrations belong to an observer, which is only compared.
class NotificationCenter {
public:
    using Observer = const void*;
    virtual ~NotificationCenter() = default;
    // Registering the same observer and name twice gives two calls per notification.
    virtual void addObserver(Observer observer, std::string_view name, Job handler) = 0;
    // After a removal returns, no new call of its handlers begins; one on another thread may still
    // be under way.
    virtual void removeObserver(Observer observer, std::string_view name) = 0;
    virtual void removeObserver(Observer observer) = 0;
    virtual void post(std::string_view name) = 0;
};

// Named notifications between all processes of the device, each name with a 64-bit state.
class NamedNotifications {
public:
    virtual ~NamedNotifications() = default;
    // Registers for a name and stores a token; returns 0, or a status other than 0 and no token.
    virtual std::uint32_t registerCheck(std::string_view name, int& token) = 0;
    virtual std::uint32_t setState(int token, std::uint64_t state) = 0;
    virtual std::uint32_t post(std::string_view name) = 0;
};

// The format codes of the platform.
enum class PropertyListFormat { XML = 100, Binary = 200 };

class PropertyLists {
public:
    virtual ~PropertyLists() = default;
    // XML or binary, told apart by content. Absent, with a reason, for anything malformed or nested
    // beyond the reader's limit: the bytes are untrusted.
    virtual std::optional<Value> parse(const Data& bytes, OptionalError* error) = 0;
    // Reads the stream to its end, then as parse.
    virtual std::optional<Value> parse(InputStream& stream, OptionalError* error) = 0;
    // Absent when a value has no form in the format (null inside).
    virtual std::optional<Data> serialize(const Value& value, PropertyListFormat format,
                                          OptionalError* error) = 0;
};

// The root of this header's services. One per process, installed in the Platform.
class OperatingSystem {
public:
    virtual ~OperatingSystem() = default;

    virtual std::shared_ptr<WorkQueue> makeSerialQueue(std::string_view label) = 0;
    virtual std::shared_ptr<WorkQueue> globalQueue(QueuePriority priority) = 0;
    virtual std::shared_ptr<Semaphore> makeSemaphore(std::int64_t value) = 0;
    virtual std::shared_ptr<TimerSource> makeTimer(std::shared_ptr<WorkQueue> queue) = 0;
    // Wall clock, in seconds since 1970 with fractions; may jump.
    virtual double absoluteTime() = 0;
    // Never goes back.
    virtual Nanoseconds monotonicTime() = 0;

    virtual FileSystem& fileSystem() = 0;
    virtual NotificationCenter& defaultNotificationCenter() = 0;
    virtual NamedNotifications& namedNotifications() = 0;
    virtual PropertyLists& propertyLists() = 0;
};

}  // namespace platform
