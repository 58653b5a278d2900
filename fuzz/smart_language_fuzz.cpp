// Any text as the rules of a smart playlist, its first line as the limit; what is understood is
// said again in words that mean the same.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "device/korvane/smart_language.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::size_t line = std::min(text.find('\n'), size);
    platform::OptionalError error;
    const auto rules = korvane::smartRulesOfText(text.substr(std::min(line + 1, size)),
                                                 text.substr(0, line), error);
    if (rules.has_value() == error.has_value())
        std::abort();
    if (!rules)
        return 0;
    if (!korvane::encodeSmartRules(*rules))
        std::abort();
    const std::string said = korvane::textOfSmartRules(*rules);
    if (said.size() > korvane::LongestRules)
        return 0;
    const auto again = korvane::smartRulesOfText(said, korvane::textOfSmartLimit(*rules), error);
    if (!again || *again != *rules)
        std::abort();
    return 0;
}
