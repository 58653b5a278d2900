#include "SyncBundle/log.h"

#include "platform/platform.h"

namespace {

// The whole plug-in logs as one source file, however its code is split.
constexpr std::string_view sourceFile = "SyncBundle/KVSyncClient";

}  // namespace

bool KVShouldLog(platform::LogLevel level, std::string_view category) {
    return platform::Platform::current().logService().shouldLog(level, category);
}

void KVWriteLogRecord(platform::LogLevel level, std::string_view category,
                      std::string_view operation, int line, std::string_view format,
                      std::initializer_list<platform::LogArgument> arguments) {
    platform::LogRecord record;
    record.level = level;
    record.category = category;
    record.file = sourceFile;
    record.operation = operation;
    record.line = line;
    record.message = platform::formatMessage(format, {arguments.begin(), arguments.size()});
    platform::Platform::current().logService().log(record);
}
