#include "device/system/log_text.h"

#include <sys/stat.h>

#include <iterator>

#include <fmt/format.h>

#include "common/utf8.h"

namespace device {
namespace {

constexpr std::string_view levelNames[] = {"emergency", "alert",  "critical", "error",
                                           "warning",   "notice", "info",     "debug"};

// Control characters, line and paragraph separators, and what changes the direction of writing.
bool isHarmful(char32_t c) {
    return c < 0x20 || (c >= 0x7f && c < 0xa0) || c == 0x2028 || c == 0x2029 ||
           (c >= 0x202a && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069);
}

void appendEscape(std::string& out, char32_t c) {
    const auto number = static_cast<unsigned>(c);
    if (c == '\n')
        out += "\\n";
    else if (c == '\t')
        out += "\\t";
    else if (c == '\r')
        out += "\\r";
    else if (c < 0x100)
        fmt::format_to(std::back_inserter(out), "\\x{:02x}", number);
    else
        fmt::format_to(std::back_inserter(out), "\\u{:04x}", number);
}

}  // namespace

std::string escapedLogText(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::string_view before = text;
        const auto character = common::takeCharacter(text);
        if (!character) {
            appendEscape(out, static_cast<unsigned char>(text.front()));
            text.remove_prefix(1);
        } else if (isHarmful(*character)) {
            appendEscape(out, *character);
        } else {
            out += before.substr(0, before.size() - text.size());
        }
    }
    return out;
}

std::string logLine(const platform::LogRecord& record) {
    return fmt::format("{} [{}] {}: {}", levelNames[static_cast<std::size_t>(record.level) & 7],
                       escapedLogText(record.category), escapedLogText(record.operation),
                       escapedLogText(record.message));
}

std::vector<std::string> journalFields(const platform::LogRecord& record) {
    return {fmt::format("MESSAGE={}", escapedLogText(record.message)),
            fmt::format("PRIORITY={}", static_cast<int>(record.level)),
            fmt::format("CODE_FILE={}", escapedLogText(record.file)),
            fmt::format("CODE_LINE={}", record.line),
            fmt::format("CODE_FUNC={}", escapedLogText(record.operation)),
            fmt::format("ORLITH_CATEGORY={}", escapedLogText(record.category))};
}

bool isJournalStream(int fd, const char* journalStream) {
    struct stat status {};
    return journalStream && ::fstat(fd, &status) == 0 &&
           fmt::format("{}:{}", status.st_dev, status.st_ino) == journalStream;
}

}  // namespace device
