// The daemon's own log lines, under the framework's category.
#pragma once

#include <string>
#include <string_view>

#include "platform/log.h"
#include "platform/sync_daemon.h"

namespace orlith {

inline void logLine(platform::LogService& service, platform::LogLevel level,
                    std::string_view operation, std::string message) {
    if (service.shouldLog(level, ORLogCategory))
        service.log({level, std::string(ORLogCategory), "device/orlith", std::string(operation), 0,
                     std::move(message)});
}

}  // namespace orlith
