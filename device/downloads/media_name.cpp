#include "device/downloads/media_name.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/utf8.h"

namespace downloads {
namespace {

constexpr std::size_t MaximumNameSize = 200;  // bytes; leaves room for an extension
constexpr std::string_view FallbackExtension = "mp3";
constexpr std::string_view FallbackStem = "Untitled";

constexpr std::array MediaExtensions = std::to_array<std::string_view>(
    {"aac", "aif", "aiff", "alac", "flac", "m4a", "m4b",  "m4p", "m4r",  "m4v", "mka",
     "mkv", "mov", "mp3",  "mp4",  "oga",  "ogg", "opus", "wav", "webm", "wma"});

constexpr std::array ContentTypes = std::to_array<std::pair<std::string_view, std::string_view>>(
    {{"audio/aac", "aac"},     {"audio/aiff", "aiff"}, {"audio/flac", "flac"},
     {"audio/m4a", "m4a"},     {"audio/mp3", "mp3"},   {"audio/mp4", "m4a"},
     {"audio/mpeg", "mp3"},    {"audio/ogg", "ogg"},   {"audio/opus", "opus"},
     {"audio/wav", "wav"},     {"audio/webm", "webm"}, {"audio/x-aiff", "aiff"},
     {"audio/x-flac", "flac"}, {"audio/x-m4a", "m4a"}, {"audio/x-m4b", "m4b"},
     {"audio/x-wav", "wav"},   {"video/mp4", "mp4"},   {"video/quicktime", "mov"},
     {"video/webm", "webm"},   {"video/x-m4v", "m4v"}, {"video/x-matroska", "mkv"}});

char lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
}

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), lower);
    return result;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

int hexDigit(char character) {
    character = lower(character);
    if (character >= '0' && character <= '9')
        return character - '0';
    return character >= 'a' && character <= 'f' ? character - 'a' + 10 : -1;
}

std::string percentDecoded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 &&
                              hexDigit(text[i + 2]) >= 0;
        result += isEscape ? static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]))
                           : text[i];
        i += isEscape ? 2 : 0;
    }
    return result;
}

// Takes one parameter ("; name=value") off the front, with quotes and their escapes undone.
std::pair<std::string, std::string> takeParameter(std::string_view& field) {
    const std::size_t equals = field.find('=');
    if (equals == std::string_view::npos) {
        field = {};
        return {};
    }
    const std::string name = lowered(trimmed(field.substr(0, equals)));
    field = trimmed(field.substr(equals + 1));
    std::string value;
    std::size_t at = 0;
    if (field.starts_with('"')) {
        for (at = 1; at < field.size() && field[at] != '"'; ++at) {
            at += field[at] == '\\' && at + 1 < field.size() ? 1 : 0;
            value += field[at];
        }
        at = std::min(field.find(';', at), field.size());
    } else {
        at = std::min(field.find(';'), field.size());
        value = trimmed(field.substr(0, at));
    }
    field.remove_prefix(std::min(at + 1, field.size()));
    return {name, value};
}

bool isMediaExtension(const std::string& extension) {
    return std::find(MediaExtensions.begin(), MediaExtensions.end(), extension) !=
           MediaExtensions.end();
}

std::string_view extensionOfType(std::string_view contentType) {
    const std::string type = lowered(trimmed(contentType.substr(0, contentType.find(';'))));
    for (const auto& [known, extension] : ContentTypes)
        if (known == type)
            return extension;
    return {};
}

}  // namespace

std::string harmlessName(std::string_view name) {
    if (const auto slash = name.find_last_of("/\\"); slash != std::string_view::npos)
        name.remove_prefix(slash + 1);
    std::string result;
    while (!name.empty()) {
        const auto character = common::takeCharacter(name);
        if (!character)
            name.remove_prefix(1);
        else if (*character >= 0x20 && (*character < 0x7F || *character > 0x9F) &&
                 !(result.empty() && (*character == '.' || *character == ' '))) {
            std::string bytes;
            common::appendUtf8(bytes, *character);
            if (result.size() + bytes.size() > MaximumNameSize)
                break;
            result += bytes;
        }
    }
    while (!result.empty() && result.back() == ' ')
        result.pop_back();
    return result;
}

std::string dispositionFileName(std::string_view field) {
    const std::size_t semicolon = field.find(';');
    if (semicolon == std::string_view::npos)
        return {};
    field.remove_prefix(semicolon + 1);
    std::string plain;
    while (!field.empty()) {
        const auto [name, value] = takeParameter(field);
        if (name == "filename*" && lowered(value).starts_with("utf-8'"))
            return percentDecoded(std::string_view(value).substr(value.find('\'', 6) + 1));
        if (name == "filename")
            plain = value;
    }
    return plain;
}

std::string mediaFileName(std::string_view disposition, std::string_view path,
                          std::string_view contentType) {
    const std::string given = harmlessName(dispositionFileName(disposition));
    const std::string fromPath = harmlessName(path);
    std::string extension;
    for (const std::string& name : {given, fromPath})
        if (extension.empty() && isMediaExtension(nameExtension(name)))
            extension = nameExtension(name);
    if (extension.empty())
        extension = extensionOfType(contentType);
    if (extension.empty())
        extension = FallbackExtension;
    const std::string& named = given.empty() ? fromPath : given;
    const std::string stem = isMediaExtension(nameExtension(named)) ? nameStem(named) : named;
    return (stem.empty() ? std::string(FallbackStem) : stem) + "." + extension;
}

std::string nameStem(std::string_view fileName) {
    const std::size_t dot = fileName.rfind('.');
    return std::string(fileName.substr(0, dot == 0 ? std::string_view::npos : dot));
}

std::string nameExtension(std::string_view fileName) {
    const std::size_t dot = fileName.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? std::string()
                                                     : lowered(fileName.substr(dot + 1));
}

}  // namespace downloads
