// Purpose: the library's log lines: one category, text made only when somebody wants it.
// Calling thread: any.
// Ownership: borrows the log service, which outlives the library.
#pragma once

#include <string>
#include <string_view>

#include "platform/log.h"

namespace korvane {

class LibraryLog {
public:
    explicit LibraryLog(platform::LogService& service) : _service(&service) {}

    // `operation` names what was under way, as its declaration does.
    void write(platform::LogLevel level, std::string_view operation, std::string_view text) const;
    void error(std::string_view operation, std::string_view text) const {
        write(platform::LogLevel::Error, operation, text);
    }
    void warning(std::string_view operation, std::string_view text) const {
        write(platform::LogLevel::Warning, operation, text);
    }
    void info(std::string_view operation, std::string_view text) const {
        write(platform::LogLevel::Info, operation, text);
    }

private:
    platform::LogService* _service;
};

}  // namespace korvane
