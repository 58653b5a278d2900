// Runs the command line within the test and takes what it writes.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "host/commands/commands.h"
#include "tests/support/hand_off.h"

namespace host::test {

struct CommandResult {
    int code = 0;
    std::string output;
    std::string errors;

    // The lines of the output as JSON.
    std::vector<nlohmann::json> json() const {
        std::vector<nlohmann::json> lines;
        std::istringstream stream(output);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(nlohmann::json::parse(line));
        return lines;
    }
};

inline CommandResult runCommand(const std::vector<std::string>& words) {
    std::vector<const char*> arguments{"orlith"};
    for (const std::string& word : words)
        arguments.push_back(word.c_str());
    ::test::handOver();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    CommandResult result;
    result.code = runCommandLine(static_cast<int>(arguments.size()), arguments.data());
    result.output = testing::internal::GetCapturedStdout();
    result.errors = testing::internal::GetCapturedStderr();
    ::test::takeOver();
    return result;
}

}  // namespace host::test
