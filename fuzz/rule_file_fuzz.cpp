// Feeds arbitrary bytes to the reader of rule files, and asks what it read about a path.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/scan/rule_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    host::RuleFile rules;
    if (!host::RuleFile::parse({reinterpret_cast<const char*>(data), size}, rules))
        rules.verdictFor("Music/An Artist/\xff A Song.mp3");
    return 0;
}
