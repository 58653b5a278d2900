#include "platform/errors.h"

#include <system_error>

namespace platform {

Error Error::posix(int errorNumber) {
    return Error(POSIXErrorDomain, errorNumber, std::generic_category().message(errorNumber));
}

std::string Error::text() const {
    const auto found = userInfo.find(ErrorDescriptionKey);
    return found == userInfo.end() ? std::string() : found->second.description();
}

std::string Error::description() const {
    std::string result = "Error Domain=" + domain + " Code=" + std::to_string(code);
    if (const std::string words = text(); !words.empty())
        result += " \"" + words + "\"";
    return result;
}

}  // namespace platform
