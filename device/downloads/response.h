// What an HTTP server says about the bytes that it sends: status and header fields, bounded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace downloads {

struct ContentRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::optional<std::uint64_t> total;  // absent: the server does not know it
};

class Response {
public:
    // Takes one line as it came, with its line end. A status line begins a new response. False when
    // the fields of all responses together are too large; nothing more is to be read then.
    bool takeLine(std::string_view line);

    int status() const { return _status; }
    const std::string& contentType() const { return _contentType; }
    const std::string& contentDisposition() const { return _contentDisposition; }
    const std::optional<std::uint64_t>& contentLength() const { return _contentLength; }
    const std::optional<ContentRange>& contentRange() const { return _contentRange; }
    // Seconds; absent when there is none, or it is a date.
    const std::optional<std::uint64_t>& retryAfter() const { return _retryAfter; }
    bool isEncoded() const { return _isEncoded; }  // compressed: the bytes are not the file's
    // Whether the end of the body can be told from a connection that broke.
    bool tellsItsEnd() const { return _contentLength || _isChunked || _isFramed; }

    // Which version of the file this is, if the server says so surely enough to resume by it: a
    // strong entity tag, or a date of change that lies before the answer's own. "" otherwise.
    std::string validator() const;

private:
    void beginResponse(std::string_view line);
    void takeField(std::string_view name, std::string_view value);

    std::size_t _bytes = 0;  // of all responses
    int _status = 0;
    std::string _entityTag;
    std::string _lastModified;
    std::string _date;
    std::string _contentType;
    std::string _contentDisposition;
    std::optional<std::uint64_t> _contentLength;
    std::optional<ContentRange> _contentRange;
    std::optional<std::uint64_t> _retryAfter;
    bool _isEncoded = false;
    bool _isChunked = false;
    bool _isFramed = false;  // by the protocol itself, from HTTP/2 on
};

// What goes into the field If-Range for a validator of a Response; "" for one that is none.
std::string ifRangeOf(std::string_view validator);

}  // namespace downloads
