#include "device/korvane/library_log.h"

#include "platform/media_library_properties.h"

namespace korvane {

void LibraryLog::write(platform::LogLevel level, std::string_view operation,
                       std::string_view text) const {
    if (!_service->shouldLog(level, KV3LogCategory))
        return;
    platform::LogRecord record;
    record.level = level;
    record.category = KV3LogCategory;
    record.file = "device/korvane";
    record.operation = operation;
    record.message = text;
    _service->log(record);
}

}  // namespace korvane
