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

// A tag that a rule sets; one of the two fields is named.
struct TagOverride {
    std::string Tags::*text = nullptr;
    std::int32_t Tags::*number = nullptr;
    std::string textValue;
    std::int32_t numberValue = 0;
};

// One rule; what is absent is left as it is.
struct MediaRule {
    // "*" and "?" stop at '/', "**" does not; without a '/' it is compared with the file's name
    // alone. Folded: compared in NFC without case.
    std::string pattern;
    std::optional<bool> ignore;
    std::optional<std::uint32_t> mediaType;  // one of the KV3MediaType bits
    std::optional<bool> isRental;
    std::vector<TagOverride> overrides;
};

// What the rules say of one file. The last rule that matches and speaks of a thing decides it.
struct RuleVerdict {
    bool ignore = false;
    std::optional<std::uint32_t> mediaType;
    std::optional<bool> isRental;
    std::vector<const TagOverride*> overrides;  // in order; borrowed from the RuleFile
};

class RuleFile {
public:
    // At most 1 MiB and 10,000 rules. On an error the rules are left as they were.
    static platform::OptionalError parse(std::string_view text, RuleFile& rules);

    bool empty() const { return _rules.empty(); }
    // `path` is relative to the folder, any bytes.
    RuleVerdict verdictFor(std::string_view path) const;

private:
    std::vector<MediaRule> _rules;
};

}  // namespace host
