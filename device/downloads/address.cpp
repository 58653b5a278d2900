#include "device/downloads/address.h"

#include <curl/curl.h>

#include <cerrno>
#include <memory>

namespace downloads {
namespace {

struct UrlCleanup {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using Url = std::unique_ptr<CURLU, UrlCleanup>;

struct TextFree {
    void operator()(char* text) const { curl_free(text); }
};

std::string part(const Url& url, CURLUPart which, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url.get(), which, &text, flags) != CURLUE_OK)
        return {};
    const std::unique_ptr<char, TextFree> owner(text);
    return text;
}

Url parse(std::string_view text) {
    Url url(curl_url());
    if (!url || curl_url_set(url.get(), CURLUPART_URL, std::string(text).c_str(), 0) != CURLUE_OK)
        return nullptr;
    return url;
}

std::optional<Scheme> schemeOf(std::string_view name) {
    if (name == "http")
        return Scheme::Http;
    if (name == "https")
        return Scheme::Https;
    if (name == "file")
        return Scheme::File;
    return std::nullopt;
}

platform::Error refused(std::string_view text) {
    return {platform::POSIXErrorDomain, EINVAL, text};
}

// A byte that cannot stand in an address as it is; a NUL would cut it short.
bool hasControlCharacter(std::string_view text) {
    for (const char character : text)
        if (static_cast<unsigned char>(character) <= 0x20 || character == 0x7F)
            return true;
    return false;
}

}  // namespace

std::optional<Address> parseAddress(std::string_view text, platform::OptionalError& error) {
    const Url url =
        text.size() <= MaximumAddressSize && !hasControlCharacter(text) ? parse(text) : nullptr;
    const auto scheme = url ? schemeOf(part(url, CURLUPART_SCHEME)) : std::nullopt;
    if (!url)
        error = refused(
            "This is no address that can be read: it has to begin with https:, http: "
            "or file:, with no blanks in it.");
    else if (!scheme)
        error = refused("Downloads come from https, http or file addresses only.");
    else if (!part(url, CURLUPART_USER).empty() || !part(url, CURLUPART_PASSWORD).empty())
        error = refused("An address with a name or password in it is not kept.");
    if (error)
        return std::nullopt;
    Address address{*scheme, std::string(text), part(url, CURLUPART_PATH, CURLU_URLDECODE)};
    if (address.scheme == Scheme::File && !address.path.starts_with('/'))
        error = refused("A file address names an absolute path.");
    return error ? std::nullopt : std::optional(std::move(address));
}

std::string pathOfUrl(std::string_view text) {
    const Url url = text.size() <= MaximumAddressSize ? parse(text) : nullptr;
    return url ? part(url, CURLUPART_PATH, CURLU_URLDECODE) : std::string();
}

}  // namespace downloads
