#include "link/anchors.h"

#include <fmt/format.h>

#include <charconv>

namespace orlith::link {
namespace {

constexpr char UpdateMark = '+';

}  // namespace

std::string anchorOfSync(const std::string& anchor) {
    return anchor.substr(0, anchor.find(UpdateMark));
}

std::string anchorOfUpdate(const std::string& anchor) {
    const std::size_t mark = anchor.find(UpdateMark);
    unsigned updates = 0;
    if (mark != std::string::npos)
        std::from_chars(anchor.data() + mark + 1, anchor.data() + anchor.size(), updates);
    return fmt::format("{}{}{}", anchorOfSync(anchor), UpdateMark, updates + 1);
}

}  // namespace orlith::link
