// The embedded device's log: lines with a time stamp on standard error, or, where standard error is
// the system's journal, entries with fields of their own.
//
// Any thread. Logging blocks only while the line is written.
#pragma once

#include <atomic>
#include <memory>

#include "platform/log.h"

namespace device {

class LogService final : public platform::LogService {
public:
    // Records above `level` are not logged.
    explicit LogService(platform::LogLevel level = platform::LogLevel::Info);
    ~LogService() override;

    void setLevel(platform::LogLevel level) { _level = level; }

    bool shouldLog(platform::LogLevel level, std::string_view category) override;
    // Whatever shouldLog says; the caller has asked.
    void log(const platform::LogRecord& record) override;

private:
    class Output;
    class Journal;
    class StandardError;
    static std::unique_ptr<Output> makeOutput();

    std::atomic<platform::LogLevel> _level;
    const std::unique_ptr<Output> _output;  // safe to use from many threads
};

}  // namespace device
