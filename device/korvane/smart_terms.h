// Purpose: the words that the rules of smart playlists are written in.
// Calling thread: any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "device/korvane/smart_rules.h"

namespace korvane {

// What a field's values are, for people.
enum class SmartKind {
    Text,
    Stars,     // 0 to 5
    Number,    // whole, not negative
    Length,    // seconds, or 3:30 or 1:02:03
    Size,      // bytes, or with a unit
    KiloBits,  // a second
    Date,      // YYYY-MM-DD in UTC, never, or a time that has passed
    Flag,      // yes or no
    MediaKind,
};

struct SmartFieldTerm {
    SmartField field;
    SmartKind kind;
    std::string_view name;
    std::string_view alias;  // understood too
};

// In the order in which they are explained.
inline constexpr SmartFieldTerm SmartFieldTerms[] = {
    {SmartField::Title, SmartKind::Text, "title", ""},
    {SmartField::Artist, SmartKind::Text, "artist", ""},
    {SmartField::Album, SmartKind::Text, "album", ""},
    {SmartField::AlbumArtist, SmartKind::Text, "album-artist", ""},
    {SmartField::Genre, SmartKind::Text, "genre", ""},
    {SmartField::Composer, SmartKind::Text, "composer", ""},
    {SmartField::Comment, SmartKind::Text, "comment", ""},
    {SmartField::Grouping, SmartKind::Text, "grouping", ""},
    {SmartField::Show, SmartKind::Text, "show", ""},
    {SmartField::MediaType, SmartKind::MediaKind, "kind", "asset-type"},
    {SmartField::Rating, SmartKind::Stars, "rating", "stars"},
    {SmartField::PlayCount, SmartKind::Number, "play-count", "plays"},
    {SmartField::SkipCount, SmartKind::Number, "skip-count", "skips"},
    {SmartField::Year, SmartKind::Number, "year", ""},
    {SmartField::DiscNumber, SmartKind::Number, "disc", "disc-number"},
    {SmartField::TrackNumber, SmartKind::Number, "track", "track-number"},
    {SmartField::SeasonNumber, SmartKind::Number, "season", ""},
    {SmartField::Bpm, SmartKind::Number, "bpm", ""},
    {SmartField::Compilation, SmartKind::Flag, "compilation", ""},
    {SmartField::TotalTime, SmartKind::Length, "length", ""},
    {SmartField::TotalSize, SmartKind::Size, "size", ""},
    {SmartField::BitRate, SmartKind::KiloBits, "bit-rate", ""},
    {SmartField::DateAdded, SmartKind::Date, "added", "date-added"},
    {SmartField::LastPlayed, SmartKind::Date, "last-played", ""},
    {SmartField::LastSkipped, SmartKind::Date, "last-skipped", ""},
};

struct SmartNumberTerm {
    std::string_view name;  // in lower case
    std::int64_t number;
};

// Bits of KV3MediaType, named as lists of tracks name kinds.
struct SmartMediaKind {
    std::string_view name;
    std::int64_t bits;
};
inline constexpr SmartMediaKind SmartMediaKinds[] = {
    {"Music", 0x8},           {"MusicVideo", 0x400},   {"Movie", 0x800},   {"TVEpisode", 0x200},
    {"Podcast", 0x4},         {"VideoPodcast", 0x100}, {"Audiobook", 0x2}, {"TesselU", 0x20},
    {"TesselUVideo", 0x1000}, {"HomeVideo", 0x2000},
};

// The largest first; a month is 30 days, a year 365.
inline constexpr SmartNumberTerm SmartTimeUnits[] = {
    {"year", 31'536'000}, {"month", 2'592'000}, {"week", 604'800}, {"day", 86'400},
    {"hour", 3'600},      {"minute", 60},       {"second", 1},
};
inline constexpr SmartNumberTerm SmartSizeUnits[] = {
    {"gib", 1LL << 30}, {"mib", 1LL << 20}, {"kib", 1LL << 10}, {"gb", 1'000'000'000},
    {"mb", 1'000'000},  {"kb", 1'000},      {"b", 1},
};

// Lower case of A to Z, and '_' as '-'.
std::string plainSmartWord(std::string_view word);

const SmartFieldTerm* smartFieldNamed(std::string_view word);
const SmartFieldTerm& smartFieldTerm(SmartField field);

}  // namespace korvane
