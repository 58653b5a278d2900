#include "host/playlists/text_encoding.h"

#include <iconv.h>
#include <utf8proc.h>

#include <array>
#include <memory>

namespace host {

namespace {

class Converter {
public:
    explicit Converter(const char* from) : _iconv(::iconv_open("UTF-8", from)) {}
    ~Converter() {
        if (usable())
            ::iconv_close(_iconv);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool usable() const { return _iconv != reinterpret_cast<iconv_t>(-1); }

    // Moves what can be converted from `text` to `result`; false at a character that cannot.
    bool convert(std::string_view& text, std::string& result) {
        std::array<char, 4096> piece;
        char* in = const_cast<char*>(text.data());  // iconv reads it only
        std::size_t inLeft = text.size();
        while (inLeft > 0) {
            char* out = piece.data();
            std::size_t outLeft = piece.size();
            const std::size_t before = inLeft;
            ::iconv(_iconv, &in, &inLeft, &out, &outLeft);
            result.append(piece.data(), piece.size() - outLeft);
            if (inLeft == before)
                break;
        }
        text.remove_prefix(text.size() - inLeft);
        return inLeft == 0;
    }

private:
    iconv_t _iconv;
};

}  // namespace

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        utf8proc_int32_t point = 0;
        const auto size = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                           static_cast<utf8proc_ssize_t>(text.size()), &point);
        if (size <= 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(size));
    }
    return true;
}

std::string utf8FromWindowsLatin(std::string_view text) {
    std::string result;
    Converter converter("CP1252");
    while (!text.empty()) {
        if (converter.usable() && converter.convert(text, result))
            break;
        result += "\xEF\xBF\xBD";
        text.remove_prefix(1);
    }
    return result;
}

std::optional<std::string> utf8FromMarkedUtf16(std::string_view text) {
    const bool little = text.starts_with("\xff\xfe");
    if (!little && !text.starts_with("\xfe\xff"))
        return std::nullopt;
    text.remove_prefix(2);
    Converter converter(little ? "UTF-16LE" : "UTF-16BE");
    std::string result;
    if (!converter.usable() || !converter.convert(text, result))
        return std::nullopt;
    return result;
}

}  // namespace host
