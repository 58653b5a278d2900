#include "host/commands/list_rows.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/progress/progress.h"
#include "host/scan/file_names.h"
#include "host/state/failed_items.h"
#include "link/owner.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using Json = nlohmann::ordered_json;

// 64-bit ids are strings, because many readers of JSON keep 53 bits of a number.
std::string idText(std::int64_t id) {
    return std::to_string(id);
}

Json optionalText(bool has, const std::string& text) {
    return has ? Json(text) : Json(nullptr);
}

// The kind of a track as assets name it; the first that fits decides, in the order of assets.
std::string assetTypeOf(const link::TrackRow& row) {
    struct Kind {
        std::uint32_t mask;
        const char* name;
    };
    static constexpr Kind kinds[] = {
        {0x20, "TesselU"}, {0x1000, "TesselUVideo"}, {0x2, "Audiobook"},
        {0x800, "Movie"},  {0x2000, "HomeVideo"},    {0x400, "MusicVideo"},
        {0x24, "Podcast"}, {0x200, "TVEpisode"},     {0x1100, "VideoPodcast"},
    };
    if (!row.asset_type().empty())
        return row.asset_type();
    for (const Kind& kind : kinds)
        if ((row.media_type() & kind.mask) != 0)
            return kind.name;
    return "Music";
}

struct Character {
    std::size_t bytes = 0;
    std::size_t columns = 0;
};

Character characterAt(const std::string& text, std::size_t place) {
    utf8proc_int32_t codepoint = 0;
    const auto used =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + place,
                         static_cast<utf8proc_ssize_t>(text.size() - place), &codepoint);
    if (used <= 0)
        return {1, 1};
    return {static_cast<std::size_t>(used),
            static_cast<std::size_t>(std::max(0, utf8proc_charwidth(codepoint)))};
}

std::size_t columnsOf(const std::string& text) {
    std::size_t columns = 0;
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        columns += character.columns;
        i += character.bytes;
    }
    return columns;
}

std::string stars(std::uint32_t rating) {
    std::string text;
    for (std::uint32_t i = 0; i < (rating + 10) / 20; ++i)
        text += "*";
    return text;
}

constexpr std::size_t TitleColumns = 30;
constexpr std::size_t ArtistColumns = 20;
constexpr std::size_t AlbumColumns = 22;
constexpr std::size_t PlaylistColumns = 40;

std::string trackLine(const std::string& title, const std::string& artist, const std::string& album,
                      const std::string& kind, const std::string& size, const std::string& plays,
                      const std::string& rating, const std::string& id) {
    return fmt::format("{} {} {} {} {:>10} {:>5} {:<5} {}", fitted(title, TitleColumns),
                       fitted(artist, ArtistColumns), fitted(album, AlbumColumns), fitted(kind, 12),
                       size, plays, rating, id);
}

// Where a path of the device lies.
std::string hostPath(const std::string& device, const std::string& devicePath) {
    return std::filesystem::path(device) / std::filesystem::path(devicePath).relative_path();
}

}  // namespace

Json jsonOf(const link::TrackRow& row) {
    return {{"type", "track"},
            {"persistent_id", idText(row.persistent_id())},
            {"sync_id", idText(row.sync_id())},
            {"title", optionalText(row.has_title(), row.title())},
            {"artist", optionalText(row.has_artist(), row.artist())},
            {"album", optionalText(row.has_album(), row.album())},
            {"disc_number", row.disc_number()},
            {"track_number", row.track_number()},
            {"media_type", row.media_type()},
            {"asset_type", assetTypeOf(row)},
            {"path", optionalText(row.has_path(), row.path())},
            {"size", row.size()},
            {"artwork", row.artwork()},
            {"kenning", row.kenning()},
            {"chapters", row.chapters()},
            {"rating", row.rating()},
            {"play_count", row.play_count()}};
}

Json jsonOf(const link::PlaylistRow& row) {
    Json tracks = Json::array();
    for (const std::int64_t track : row.tracks())
        tracks.push_back(idText(track));
    return {{"type", "playlist"},
            {"persistent_id", idText(row.persistent_id())},
            {"name", row.name()},
            {"smart", row.smart()},
            {"rules", optionalText(!row.rules().empty(), row.rules())},
            {"limit", optionalText(!row.limit().empty(), row.limit())},
            {"tracks", tracks}};
}

Json jsonOf(const link::StatusReply& status, const link::CloudReply& cloud) {
    Json kept = Json::array();
    for (const link::KeptPlace& place : status.kept())
        kept.push_back({{"path", place.path()}, {"bytes", place.bytes()}});
    return {{"type", "status"},
            {"library_uid", status.library_uid()},
            {"revision", status.revision()},
            {"anchor", status.anchor()},
            {"tracks", status.tracks()},
            {"playlists", status.playlists()},
            {"missing_files", status.missing_files()},
            {"background_suppressed", status.background_suppressed()},
            {"busy_with", optionalText(!status.session_owner().empty(), status.session_owner())},
            {"cloud_signed_in", cloud.signed_in()},
            {"cloud_kenning", cloud.has_kenning_data()},
            {"kept", std::move(kept)}};
}

std::string fitted(const std::string& text, std::size_t columns) {
    const std::size_t width = columnsOf(text);
    if (width <= columns)
        return text + std::string(columns - width, ' ');
    std::string cut;
    std::size_t used = 0;
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        if (used + character.columns > columns - 1)
            break;
        cut += text.substr(i, character.bytes);
        used += character.columns;
        i += character.bytes;
    }
    return cut + "…" + std::string(columns - 1 - used, ' ');
}

std::vector<std::string> trackTable(const std::vector<link::TrackRow>& rows, bool isNumbered) {
    if (rows.empty())
        return {"no tracks"};
    const auto number = [&](const std::string& text) {
        return isNumbered ? fmt::format("{:>4}  ", text) : std::string();
    };
    std::vector<std::string> lines{number("#") + trackLine("TITLE", "ARTIST", "ALBUM", "KIND",
                                                           "SIZE", "PLAYS", "STARS", "ID")};
    std::uint64_t bytes = 0;
    std::size_t missing = 0;
    for (const link::TrackRow& row : rows) {
        missing += !row.has_path();
        bytes += row.has_path() ? row.size() : 0;
        lines.push_back(number(std::to_string(lines.size())) +
                        trackLine(displayText(row.title()), displayText(row.artist()),
                                  displayText(row.album()), assetTypeOf(row),
                                  row.has_path() ? formatBytes(row.size()) : "no file",
                                  std::to_string(row.play_count()), stars(row.rating()),
                                  idText(row.persistent_id())));
    }
    std::string total = fmt::format("{}, {}", plural(rows.size(), "track"), formatBytes(bytes));
    if (missing > 0)
        total += fmt::format(", {} without their file", missing);
    lines.push_back(std::move(total));
    return lines;
}

std::vector<std::string> playlistTable(const std::vector<link::PlaylistRow>& rows) {
    if (rows.empty())
        return {"no playlists"};
    const auto line = [](const std::string& name, const std::string& tracks,
                         const std::string& kind, const std::string& id) {
        return fmt::format("{} {:>7}  {:<5}  {}", fitted(name, PlaylistColumns), tracks, kind, id);
    };
    std::vector<std::string> lines{line("NAME", "TRACKS", "KIND", "ID")};
    for (const link::PlaylistRow& row : rows) {
        lines.push_back(line(displayText(row.name()), std::to_string(row.tracks_size()),
                             row.smart() ? "smart" : "plain", idText(row.persistent_id())));
        if (!row.rules().empty())
            lines.push_back("    " + displayText(row.rules()) +
                            (row.limit().empty() ? "" : "; the first " + row.limit()));
    }
    lines.push_back(plural(rows.size(), "playlist"));
    return lines;
}

std::vector<std::string> statusLines(const std::string& device, const link::StatusReply& status,
                                     const link::CloudReply& cloud) {
    std::vector<std::string> lines;
    lines.push_back(fmt::format("{} and {}; {} free", plural(status.tracks(), "track"),
                                plural(status.playlists(), "playlist"),
                                formatBytes(status.free_bytes())));
    if (status.missing_files() > 0)
        lines.push_back(fmt::format("incomplete: {} still to come; sync or mirror again",
                                    plural(status.missing_files(), "file")));
    else if (status.tracks() > 0)
        lines.emplace_back("complete: every track of a host or another device has its file");
    if (status.anchor() == "0")
        lines.emplace_back("no host has synced this device since it was made, restored or cleared");
    if (cloud.signed_in())
        lines.push_back(
            fmt::format("signed in to the cloud library{}",
                        cloud.has_kenning_data() ? ", which has recommendation data" : ""));
    if (!status.session_owner().empty())
        lines.push_back("busy with " + displayText(status.session_owner()));
    else if (status.background_suppressed())
        lines.emplace_back("background tasks are on hold");
    if (!status.last_result().empty())
        lines.push_back("last sync: " + displayText(status.last_result()));
    for (const std::string& notice : status.notices())
        lines.push_back("note: " + displayText(notice));
    for (const link::KeptPlace& place : status.kept())
        lines.push_back(fmt::format("kept from before: {} in {}; delete it if nothing is missing",
                                    formatBytes(place.bytes()),
                                    displayText(hostPath(device, place.path()))));
    lines.push_back(fmt::format("library {}, revision {}, anchor {}", status.library_uid(),
                                status.revision(), status.anchor()));
    return lines;
}

std::vector<Json> jsonOf(const FolderFailures& failures) {
    std::vector<Json> lines;
    for (const FailedItem& item : failures.items)
        lines.push_back({{"type", "failure"},
                         {"folder", failures.folder},
                         {"path", item.path},
                         {"reason", item.reason},
                         {"next_step", item.nextStep}});
    return lines;
}

std::vector<std::string> failureLines(const FolderFailures& failures) {
    std::vector<std::string> lines{fmt::format("failed in the last sync of {}: {}",
                                               displayText(failures.folder),
                                               plural(failures.items.size(), "item"))};
    for (const FailedItem& item : failures.items) {
        lines.push_back(fmt::format("  {}: {}", displayText(item.path), displayText(item.reason)));
        lines.push_back("      " + item.nextStep);
    }
    return lines;
}

}  // namespace host
