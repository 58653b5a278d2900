// Purpose: the rules that a folder's owner writes into "orlith-rules.toml" at its top: which files
// are ignored, which kind they are, and what their tags should say. docs/formats.md describes it.
// Thread: any, once made.
// Failure: a faulty file is refused whole; the text names the line and what to do.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/scan/media_file.h"
#include "platform/errors.h"

namespace host {

inline constexpr std::string_view RuleFileName = "orlith-rules.toml";

// One rule; what is absent is left as it is.
struct MediaRule {
    std::string pattern;  // "*" and "?" stop at '/', "**" does not; compared in NFC without case
    bool ignore = false;
    std::optional<std::uint32_t> mediaType;  // one of the KV3MediaType bits
    std::optional<bool> isRental;
    // The tags to set: each changes its one field.
    struct Override {
        std::string Tags::*text = nullptr;
        std::int32_t Tags::*number = nullptr;
        std::string value;
        std::int32_t numberValue = 0;
    };
    std::vector<Override> overrides;
};

class RuleFile {
public:
    // No rules.
    RuleFile() = default;
    // At most 1 MiB and 10,000 rules.
    static platform::OptionalError parse(std::string_view text, RuleFile& rules);

    bool empty() const { return _rules.empty(); }
    // The last rule that matches a path and says something decides each thing.
    bool ignores(std::string_view path) const;
    std::optional<std::uint32_t> mediaTypeOf(std::string_view path) const;
    std::optional<bool> isRental(std::string_view path) const;
    // Sets the overridden tags; true when a rule named one.
    bool overrideTags(std::string_view path, Tags& tags) const;

private:
    std::vector<MediaRule> _rules;
};

}  // namespace host
