#include "device/downloads/response.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>

namespace downloads {
namespace {

constexpr std::size_t MaximumHeaderBytes = 128 << 10;  // of a download with all its redirections
constexpr std::size_t MaximumFieldSize = 4096;         // of a field that is kept
constexpr std::string_view EntityTagMark = "etag:";
constexpr std::string_view DateMark = "date:";
// A file that was changed again in the second of its date of change would keep the date.
constexpr std::int64_t SureDateDistance = 1;  // seconds

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& character : result)
        if (character >= 'A' && character <= 'Z')
            character = static_cast<char>(character + 32);
    return result;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view Blank = " \t\r\n";
    const std::size_t first = text.find_first_not_of(Blank);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(Blank) - first + 1);
}

std::optional<std::uint64_t> number(std::string_view text) {
    std::uint64_t value = 0;
    const auto [rest, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    return failure == std::errc() && rest == text.data() + text.size() ? std::optional(value)
                                                                       : std::nullopt;
}

// "bytes 100-199/200", also with "*" for the total.
std::optional<ContentRange> parseContentRange(std::string_view text) {
    constexpr std::string_view Unit = "bytes ";
    if (!lowered(text).starts_with(Unit))
        return std::nullopt;
    text.remove_prefix(Unit.size());
    const std::size_t dash = text.find('-');
    const std::size_t slash = text.find('/');
    if (dash == std::string_view::npos || slash == std::string_view::npos || slash < dash)
        return std::nullopt;
    const auto first = number(trimmed(text.substr(0, dash)));
    const auto last = number(text.substr(dash + 1, slash - dash - 1));
    const std::string_view total = trimmed(text.substr(slash + 1));
    if (!first || !last || *last < *first || (total != "*" && !number(total)))
        return std::nullopt;
    ContentRange range{*first, *last, number(total)};
    return range.total && *range.total <= range.last ? std::nullopt : std::optional(range);
}

}  // namespace

bool Response::takeLine(std::string_view line) {
    _bytes += line.size();
    if (_bytes > MaximumHeaderBytes)
        return false;
    if (line.starts_with("HTTP/")) {
        beginResponse(line);
    } else if (const std::size_t colon = line.find(':'); colon != std::string_view::npos) {
        const std::string_view value = trimmed(line.substr(colon + 1));
        if (value.size() <= MaximumFieldSize)
            takeField(lowered(trimmed(line.substr(0, colon))), value);
    }
    return true;
}

void Response::beginResponse(std::string_view line) {
    const std::size_t bytes = _bytes;
    *this = Response();
    _bytes = bytes;
    _isFramed = !line.starts_with("HTTP/1") && !line.starts_with("HTTP/0");
    const std::size_t blank = line.find(' ');
    if (blank != std::string_view::npos)
        _status = static_cast<int>(number(line.substr(blank + 1, 3)).value_or(0));
}

void Response::takeField(std::string_view name, std::string_view value) {
    if (name == "etag")
        _entityTag = value;
    else if (name == "last-modified")
        _lastModified = value;
    else if (name == "date")
        _date = value;
    else if (name == "content-type")
        _contentType = value;
    else if (name == "content-disposition")
        _contentDisposition = value;
    else if (name == "content-length")
        _contentLength = number(value);
    else if (name == "content-range")
        _contentRange = parseContentRange(value);
    else if (name == "retry-after")
        _retryAfter = number(value);
    else if (name == "content-encoding")
        _isEncoded = lowered(value) != "identity" && !value.empty();
    else if (name == "transfer-encoding")
        _isChunked = lowered(value).find("chunked") != std::string::npos;
}

std::string Response::validator() const {
    if (_entityTag.size() >= 2 && _entityTag.front() == '"' && _entityTag.back() == '"')
        return std::string(EntityTagMark) + _entityTag;
    const auto changed = static_cast<std::int64_t>(::curl_getdate(_lastModified.c_str(), nullptr));
    const auto answered = static_cast<std::int64_t>(::curl_getdate(_date.c_str(), nullptr));
    if (changed < 0 || answered < 0 || answered < changed + SureDateDistance)
        return {};
    return std::string(DateMark) + _lastModified;
}

std::string ifRangeOf(std::string_view validator) {
    for (const std::string_view mark : {EntityTagMark, DateMark})
        if (validator.starts_with(mark))
            return std::string(validator.substr(mark.size()));
    return {};
}

}  // namespace downloads
