#include "host/commands/output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>

#include "host/commands/exit_code.h"

namespace host {

bool writeTo(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

void complain(std::string_view text) {
    writeTo(STDERR_FILENO, fmt::format("orlith: {}\n", text));
}

std::string jsonLine(const nlohmann::ordered_json& object) {
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

void Output::object(const nlohmann::ordered_json& object) const {
    writeTo(STDOUT_FILENO, jsonLine(object));
}

void Output::line(std::string_view text) const {
    writeTo(STDOUT_FILENO, fmt::format("{}\n", text));
}

void Output::error(const platform::Error& error) const {
    const std::string text = error.text().empty() ? error.description() : error.text();
    complain(text);
    if (_json)
        object(
            {{"type", "error"}, {"code", static_cast<int>(exitCodeOf(error))}, {"message", text}});
}

}  // namespace host
