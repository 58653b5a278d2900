#include "device/system/log_service.h"

#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#if ORLITH_HAVE_SYSTEMD
// The location is that of the record, not of the call here.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>
#endif

#include "device/system/log_text.h"

namespace device {

class LogService::Output {
public:
    virtual ~Output() = default;
    virtual void write(const platform::LogRecord& record) = 0;
};

class LogService::StandardError final : public Output {
public:
    StandardError() : _logger("orlith", std::make_shared<spdlog::sinks::stderr_sink_mt>()) {
        _logger.set_pattern("%Y-%m-%dT%H:%M:%S.%e%z %v");
        _logger.set_level(spdlog::level::trace);
    }

    void write(const platform::LogRecord& record) override {
        _logger.log(spdlog::level::info, logLine(record));
    }

private:
    spdlog::logger _logger;
};

#if ORLITH_HAVE_SYSTEMD
class LogService::Journal final : public Output {
public:
    void write(const platform::LogRecord& record) override {
        std::vector<std::string> fields = journalFields(record);
        std::vector<iovec> pieces;
        for (std::string& field : fields)
            pieces.push_back({field.data(), field.size()});
        ::sd_journal_sendv(pieces.data(), static_cast<int>(pieces.size()));
    }
};
#endif

std::unique_ptr<LogService::Output> LogService::makeOutput() {
#if ORLITH_HAVE_SYSTEMD
    if (isJournalStream(STDERR_FILENO, std::getenv("JOURNAL_STREAM")))
        return std::make_unique<Journal>();
#endif
    return std::make_unique<StandardError>();
}

LogService::LogService(platform::LogLevel level) : _level(level), _output(makeOutput()) {}

LogService::~LogService() = default;

bool LogService::shouldLog(platform::LogLevel level, std::string_view) {
    return level <= _level;
}

void LogService::log(const platform::LogRecord& record) {
    _output->write(record);
}

}  // namespace device
