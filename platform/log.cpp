#include "platform/log.h"

#include <cstdio>

namespace platform {
namespace {

// Where the conversion that starts after a '%' ends, and its letter.
struct Conversion {
    std::size_t length = 0;
    char letter = 0;
};

Conversion conversionAt(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && text[i] == 'l')
        ++i;
    if (i == text.size() || std::string_view("@sdiuf%").find(text[i]) == std::string_view::npos)
        return {};
    return {i + 1, text[i]};
}

std::string converted(char letter, const Value& value) {
    switch (letter) {
        case 'd':
        case 'i':
            return std::to_string(value.int64Value());
        case 'u':
            return std::to_string(value.unsignedValue());
        case 'f': {
            char buffer[352];  // the largest double takes 309 digits before the point
            std::snprintf(buffer, sizeof buffer, "%f", value.doubleValue());
            return buffer;
        }
        default:
            return value.description();
    }
}

}  // namespace

std::string formatMessage(std::string_view format, std::span<const LogArgument> arguments) {
    std::string result;
    std::size_t next = 0;
    while (!format.empty()) {
        const std::size_t percent = format.find('%');
        result += format.substr(0, percent);
        if (percent == std::string_view::npos)
            break;
        format.remove_prefix(percent + 1);
        const Conversion conversion = conversionAt(format);
        if (conversion.length == 0 || conversion.letter == '%') {
            result += '%';
        } else {
            static const Value absent;
            result += converted(conversion.letter,
                                next < arguments.size() ? arguments[next].value() : absent);
            ++next;
        }
        format.remove_prefix(conversion.length);
    }
    return result;
}

}  // namespace platform
