#include "host/scan/glob.h"

#include <cstddef>

namespace host {

namespace {

std::size_t characterSize(std::string_view text, std::size_t at) {
    std::size_t end = at + 1;
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80)
        ++end;
    return end - at;
}

// Where matching goes on when a star has to take one character more.
struct Retry {
    std::size_t pattern = std::string_view::npos;
    std::size_t path = 0;
    bool set() const { return pattern != std::string_view::npos; }
};

}  // namespace

bool matchesGlob(std::string_view pattern, std::string_view path) {
    std::size_t p = 0;
    std::size_t s = 0;
    Retry star;        // the last "*"
    Retry doubleStar;  // the last "**"; an earlier one need never be taken up again
    while (s < path.size()) {
        if (p < pattern.size()) {
            if (pattern.substr(p).starts_with("**")) {
                p += 2;
                // "a/**/b" is "a/b" as well.
                if (p < pattern.size() && pattern[p] == '/' && (s == 0 || path[s - 1] == '/'))
                    ++p;
                doubleStar = {p, s};
                star = {};
                continue;
            }
            if (pattern[p] == '*') {
                star = {++p, s};
                continue;
            }
            if (pattern[p] == '?' && path[s] != '/') {
                ++p;
                s += characterSize(path, s);
                continue;
            }
            if (pattern[p] == path[s] && pattern[p] != '?') {
                ++p;
                ++s;
                continue;
            }
        }
        if (star.set() && path[star.path] != '/') {
            p = star.pattern;
            s = ++star.path;
        } else if (doubleStar.set()) {
            p = doubleStar.pattern;
            s = ++doubleStar.path;
            star = {};
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

}  // namespace host
