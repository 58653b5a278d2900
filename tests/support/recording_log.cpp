#include "tests/support/recording_log.h"

namespace support {

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << static_cast<int>(line.level) << " " << line.category << " [" << line.operation
               << "] " << line.message;
}

bool RecordingLog::shouldLog(platform::LogLevel level, std::string_view) {
    const std::lock_guard lock(_mutex);
    return level <= _highestLevel;
}

void RecordingLog::log(const platform::LogRecord& record) {
    const std::lock_guard lock(_mutex);
    _records.push_back(record);
}

void RecordingLog::setHighestLevel(platform::LogLevel level) {
    const std::lock_guard lock(_mutex);
    _highestLevel = level;
}

std::vector<LogLine> RecordingLog::lines() const {
    const std::lock_guard lock(_mutex);
    std::vector<LogLine> lines;
    for (const platform::LogRecord& record : _records)
        lines.push_back({record.level, record.category, record.operation, record.message});
    return lines;
}

std::vector<platform::LogRecord> RecordingLog::records() const {
    const std::lock_guard lock(_mutex);
    return _records;
}

void RecordingLog::clear() {
    const std::lock_guard lock(_mutex);
    _records.clear();
}

}  // namespace support
