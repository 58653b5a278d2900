// How a log record is put into words and fields.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/log.h"

namespace device {

// With everything that could begin a line or steer a terminal written as an escape ("\n", "\x1b",
// "\u202e"): a name that came from outside cannot forge a line. A backslash stays as it is.
std::string escapedLogText(std::string_view text);

// "warning [category] operation: message", escaped.
std::string logLine(const platform::LogRecord& record);

// The fields of a journal entry, "NAME=value", escaped.
std::vector<std::string> journalFields(const platform::LogRecord& record);

// Whether a descriptor is the stream that `journalStream` names, the value of the environment's
// "JOURNAL_STREAM" ("device:inode"); null for none.
bool isJournalStream(int fd, const char* journalStream);

}  // namespace device
