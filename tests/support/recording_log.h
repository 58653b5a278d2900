// A log that keeps its lines for comparison. Callable from any thread.
#pragma once

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "platform/log.h"

namespace support {

struct LogLine {
    platform::LogLevel level = platform::LogLevel::Debug;
    std::string category;
    std::string operation;
    std::string message;

    bool operator==(const LogLine&) const = default;
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

class RecordingLog : public platform::LogService {
public:
    bool shouldLog(platform::LogLevel level, std::string_view category) override;
    void log(const platform::LogRecord& record) override;

    // Lines above this level are off; all are on at first.
    void setHighestLevel(platform::LogLevel level);
    std::vector<LogLine> lines() const;
    std::vector<platform::LogRecord> records() const;
    void clear();

private:
    mutable std::mutex _mutex;  // guards both below
    platform::LogLevel _highestLevel = platform::LogLevel::Debug;
    std::vector<platform::LogRecord> _records;
};

}  // namespace support
