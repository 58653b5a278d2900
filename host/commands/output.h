// Purpose: where commands write: data to the standard output, as text or as JSON lines, everything
// else to the error output.
// Thread: any; a line is written whole.
// Failure: an output that was closed ends nothing; what is written to it is lost.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "platform/errors.h"

namespace host {

class Output {
public:
    explicit Output(bool json) : _json(json) {}

    bool isJson() const { return _json; }
    // One object on a line of the standard output; what is no UTF-8 in it becomes U+FFFD.
    void object(const nlohmann::ordered_json& object) const;
    // A line of text on the standard output.
    void line(std::string_view text) const;
    // {"type":"error"} in JSON, and always in words on the error output.
    void error(const platform::Error& error) const;

private:
    const bool _json;
};

// Appended to a descriptor as it is; false, with errno, when not all of it could be.
bool writeTo(int descriptor, std::string_view text);
// "orlith: <text>" on the error output.
void complain(std::string_view text);
std::string jsonLine(const nlohmann::ordered_json& object);

}  // namespace host
