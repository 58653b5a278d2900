// Purpose: the log call: printf-style formats with "%@" for an object, a category and a syslog
//   level.
// Calling thread: any.
// Callback thread: none; a LogService is called on the thread that logs and must not block for
//   long.
// Ownership: the arguments are borrowed for the call; the record handed to a service owns its text.
// Failure: logging never fails and never throws into its caller.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/errors.h"
#include "platform/values.h"

namespace platform {

// Syslog order. Lower is more severe; values 0 to 7 all exist.
enum class LogLevel : int { Emergency = 0, Alert, Critical, Error, Warning, Notice, Info, Debug };

struct LogRecord {
    LogLevel level = LogLevel::Debug;
    std::string category;   // who logs: a bundle's or a framework's identifier
    std::string file;       // without extension, e.g. "SyncBundle/KVSyncClient"
    std::string operation;  // the operation's full name with its labels
    int line = 0;
    std::string message;
};

class LogService {
public:
    virtual ~LogService() = default;
    // Asked before any argument of a message is built.
    virtual bool shouldLog(LogLevel level, std::string_view category) = 0;
    virtual void log(const LogRecord& record) = 0;
};

// One argument of a message; made from numbers, strings, values, errors, and from (shared or plain)
// pointers to anything with a description(). A null pointer and an absent optional print "(null)".
class LogArgument {
public:
    LogArgument(bool v) : _value(v) {}
    template <typename T>
    requires(std::is_arithmetic_v<T> && !std::is_same_v<T, bool>) LogArgument(T v) : _value(v) {}
    LogArgument(const char* v) : _value(v ? Value(v) : Value()) {}
    LogArgument(const std::string& v) : _value(v) {}
    LogArgument(std::string_view v) : _value(v) {}
    LogArgument(const Value& v) : _value(v) {}
    LogArgument(std::nullptr_t) {}
    LogArgument(const Error& v) : _value(v.description()) {}
    template <typename T>
    LogArgument(const std::optional<T>& v)
        : LogArgument(v ? LogArgument(*v) : LogArgument(nullptr)) {}
    template <typename T>
    requires requires(const T& t) { t.description(); }
    LogArgument(const std::shared_ptr<T>& v) : _value(v ? Value(v->description()) : Value()) {}
    template <typename T>
    requires(requires(const T& t) { t.description(); } && !std::is_same_v<T, Value> &&
             !std::is_same_v<T, Error>) LogArgument(const T& v)
        : _value(v.description()) {}
    // A list of objects.
    template <typename T>
    requires std::is_constructible_v<LogArgument, const T&> LogArgument(const std::vector<T>& v) {
        Array array;
        array.reserve(v.size());
        for (const T& element : v)
            array.push_back(LogArgument(element)._value);
        _value = Value(std::move(array));
    }

    const Value& value() const { return _value; }

private:
    Value _value;
};

// Replaces %@, %s, %d, %i, %u, %lu, %lld, %llu, %f and %% by the arguments in order. A missing
// argument prints "(null)", one too many is dropped; an unknown conversion stands as it is.
std::string formatMessage(std::string_view format, std::span<const LogArgument> arguments);

}  // namespace platform
