// The plug-in's log calls: one line per message, under the plug-in's own source name and category.
// Callable from any thread; logging never fails.
#pragma once

#include <initializer_list>
#include <string_view>

#include "platform/log.h"

// The plug-in bundle's identifier: the category of every line unless the call names another.
inline constexpr std::string_view KVBundleIdentifier = "com.vantor.KVSyncClient";

bool KVShouldLog(platform::LogLevel level, std::string_view category);

void KVWriteLogRecord(platform::LogLevel level, std::string_view category,
                      std::string_view operation, int line, std::string_view format,
                      std::initializer_list<platform::LogArgument> arguments);

template <typename... Arguments>
void KVWriteLog(platform::LogLevel level, std::string_view category, std::string_view operation,
                int line, std::string_view format, const Arguments&... arguments) {
    KVWriteLogRecord(level, category, operation, line, format,
                     {platform::LogArgument(arguments)...});
}

// KVLogTo(category, level, operation, format, arguments...): `level` is a name of
// platform::LogLevel, `operation` the full name with its labels. A macro, because the format's
// arguments must not even be evaluated while the level is off.
#define KVLogTo(category, level, operation, ...)                                               \
    do {                                                                                       \
        if (KVShouldLog(platform::LogLevel::level, category))                                  \
            KVWriteLog(platform::LogLevel::level, category, operation, __LINE__, __VA_ARGS__); \
    } while (false)

// KVLog(level, operation, format, arguments...): under the plug-in's own category.
#define KVLog(level, operation, ...) KVLogTo(KVBundleIdentifier, level, operation, __VA_ARGS__)
