#include <expat.h>
#include <fmt/format.h>

#include <memory>
#include <type_traits>

#include "host/playlists/playlist_line.h"
#include "host/playlists/playlists.h"
#include "host/scan/file_names.h"

namespace host {

namespace {

constexpr int DepthLimit = 64;
constexpr std::size_t TextLimit = 64 * 1024;  // bytes of one element

// Namespace and local name are joined by this in what expat reports.
constexpr char NamespaceSeparator = '\n';

class XspfParser {
public:
    XspfParser(XML_Parser parser, ParsedPlaylist& playlist) : _parser(parser), _playlist(playlist) {
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, &XspfParser::start, &XspfParser::end);
        XML_SetCharacterDataHandler(parser, &XspfParser::text);
        XML_SetStartDoctypeDeclHandler(parser, &XspfParser::doctype);
    }

    // Why the text is refused; empty when it is not.
    const std::string& reason() const { return _reason; }
    bool sawPlaylist() const { return _sawPlaylist; }

private:
    static XspfParser& self(void* data) { return *static_cast<XspfParser*>(data); }

    static void start(void* data, const XML_Char* name, const XML_Char**) {
        self(data).startElement(localName(name));
    }
    static void end(void* data, const XML_Char*) { self(data).endElement(); }
    static void text(void* data, const XML_Char* bytes, int size) {
        XspfParser& parser = self(data);
        if (parser._text.size() + static_cast<std::size_t>(size) > TextLimit)
            return parser.refuse("an element holds too much text");
        parser._text.append(bytes, static_cast<std::size_t>(size));
    }
    static void doctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int) {
        self(data).refuse("it declares a document type, which no such playlist needs");
    }

    static std::string_view localName(std::string_view name) {
        return name.substr(name.rfind(NamespaceSeparator) + 1);
    }

    void startElement(std::string_view name) {
        if (_path.size() >= DepthLimit)
            return refuse("its elements are nested too deep");
        _path.emplace_back(name);
        _text.clear();
        if (_path.size() == 1)
            _sawPlaylist = name == "playlist";
        if (at({"playlist", "trackList", "track"}))
            _hasLocation = false;
    }

    void endElement() {
        if (at({"playlist", "title"}))
            _playlist.title = displayText(withoutSpaces(_text));
        else if (at({"playlist", "trackList", "track", "location"}) && !_hasLocation)
            addLocation();
        _path.pop_back();
        _text.clear();
    }

    // Further locations of a track name the same thing elsewhere.
    void addLocation() {
        if (_playlist.lines.size() == PlaylistEntryLimit)
            return refuse(fmt::format("it names more than {} files", PlaylistEntryLimit));
        _playlist.lines.push_back(lineOfEntry(withoutSpaces(_text), EntryStyle::Uri));
        _hasLocation = true;
    }

    bool at(std::initializer_list<std::string_view> path) const {
        return std::equal(path.begin(), path.end(), _path.begin(), _path.end());
    }

    static std::string_view withoutSpaces(std::string_view text) {
        const auto first = text.find_first_not_of(" \t\r\n");
        return first == std::string_view::npos
                   ? std::string_view()
                   : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
    }

    void refuse(std::string reason) {
        if (_reason.empty())
            _reason = std::move(reason);
        XML_StopParser(_parser, XML_FALSE);
    }

    XML_Parser _parser;  // borrowed
    ParsedPlaylist& _playlist;
    std::vector<std::string> _path;  // the open elements
    std::string _text;               // of the innermost one
    std::string _reason;
    bool _sawPlaylist = false;
    bool _hasLocation = false;
};

}  // namespace

std::optional<std::string> parseXSPF(std::string_view text, ParsedPlaylist& playlist) {
    if (text.size() > PlaylistSizeLimit)
        return fmt::format("it is larger than {} bytes", PlaylistSizeLimit);
    struct Free {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };
    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, Free> expat(
        XML_ParserCreateNS(nullptr, NamespaceSeparator));
    XspfParser parser(expat.get(), playlist);
    const auto status =
        XML_Parse(expat.get(), text.data(), static_cast<int>(text.size()), XML_TRUE);
    if (!parser.reason().empty())
        return parser.reason();
    if (status != XML_STATUS_OK)
        return fmt::format("line {} is damaged: {}", XML_GetCurrentLineNumber(expat.get()),
                           XML_ErrorString(XML_GetErrorCode(expat.get())));
    if (!parser.sawPlaylist())
        return "it is no XSPF playlist";
    return std::nullopt;
}

}  // namespace host
