#include "host/scan/av_tags.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <string>

#include "host/scan/file_names.h"

extern "C" {
#include <libavutil/dict.h>
}

namespace host {

namespace {

constexpr std::size_t LongTextLimit = 64 * 1024;  // bytes, of comment and description

struct TextTag {
    std::string_view key;  // in lower case
    std::string Tags::*field;
};

// Names of one tag in the order in which the containers' own come; the first in a file wins.
constexpr auto TextTags = std::to_array<TextTag>({
    {"title", &Tags::title},
    {"artist", &Tags::artist},
    {"album", &Tags::album},
    {"album_artist", &Tags::albumArtist},
    {"albumartist", &Tags::albumArtist},
    {"album artist", &Tags::albumArtist},
    {"composer", &Tags::composer},
    {"genre", &Tags::genre},
    {"comment", &Tags::comment},
    {"grouping", &Tags::grouping},
    {"description", &Tags::description},
    {"synopsis", &Tags::description},
    {"tdes", &Tags::description},
    {"sort_name", &Tags::sortTitle},
    {"title-sort", &Tags::sortTitle},
    {"titlesort", &Tags::sortTitle},
    {"sort_artist", &Tags::sortArtist},
    {"artist-sort", &Tags::sortArtist},
    {"artistsort", &Tags::sortArtist},
    {"sort_album", &Tags::sortAlbum},
    {"album-sort", &Tags::sortAlbum},
    {"albumsort", &Tags::sortAlbum},
    {"sort_album_artist", &Tags::sortAlbumArtist},
    {"albumartistsort", &Tags::sortAlbumArtist},
    {"tso2", &Tags::sortAlbumArtist},
    {"sort_composer", &Tags::sortComposer},
    {"composersort", &Tags::sortComposer},
    {"tsoc", &Tags::sortComposer},
    {"sort_show", &Tags::sortShow},
    {"show", &Tags::show},
    {"tvshow", &Tags::show},
    {"episode_id", &Tags::episodeId},
    {"podcast_url", &Tags::podcastFeed},
    {"podcasturl", &Tags::podcastFeed},
    {"wfed", &Tags::podcastFeed},
    {"episode_uid", &Tags::podcastGuid},
    {"tgid", &Tags::podcastGuid},
    {"podcast_guid", &Tags::podcastGuid},
});

struct NumberTag {
    std::string_view key;
    std::int32_t Tags::*field;
};

constexpr auto NumberTags = std::to_array<NumberTag>({
    {"season_number", &Tags::season},
    {"season", &Tags::season},
    {"episode_sort", &Tags::episode},
    {"episode", &Tags::episode},
    {"tmpo", &Tags::beatsPerMinute},
    {"tbpm", &Tags::beatsPerMinute},
    {"bpm", &Tags::beatsPerMinute},
    {"tracktotal", &Tags::trackCount},
    {"totaltracks", &Tags::trackCount},
    {"disctotal", &Tags::discCount},
    {"totaldiscs", &Tags::discCount},
});

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// The whole number that a text begins with; 0 when it begins with none or a negative one.
std::int32_t leadingNumber(std::string_view text) {
    std::int32_t number = 0;
    const std::string_view digits = trimmed(text);
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return std::max(number, 0);
}

bool isSet(std::string_view text) {
    return leadingNumber(text) != 0 || text == "true" || text == "yes";
}

std::optional<std::int32_t> digitsAt(std::string_view text, std::size_t at, std::size_t count) {
    if (at + count > text.size())
        return std::nullopt;
    std::int32_t number = 0;
    const char* end = text.data() + at + count;
    const auto result = std::from_chars(text.data() + at, end, number);
    return result.ptr == end && number >= 0 ? std::optional(number) : std::nullopt;
}

TaggedKind kindOf(std::int32_t number) {
    switch (const auto kind = static_cast<TaggedKind>(number)) {
        case TaggedKind::Music:
        case TaggedKind::Audiobook:
        case TaggedKind::MusicVideo:
        case TaggedKind::Movie:
        case TaggedKind::TVEpisode:
        case TaggedKind::Podcast:
        case TaggedKind::TesselU:
            return kind;
        default:
            return number == 0 ? TaggedKind::Movie : TaggedKind::None;
    }
}

bool addText(std::string_view key, std::string_view value, Tags& tags) {
    for (const TextTag& tag : TextTags) {
        if (tag.key != key)
            continue;
        std::string& field = tags.*tag.field;
        const bool isLong = tag.field == &Tags::comment || tag.field == &Tags::description;
        if (field.empty())
            field = trimmed(isLong ? displayText(value, LongTextLimit) : displayText(value));
        return true;
    }
    return false;
}

bool addNumber(std::string_view key, std::string_view value, Tags& tags) {
    for (const NumberTag& tag : NumberTags) {
        if (tag.key != key)
            continue;
        if (tags.*tag.field == 0)
            tags.*tag.field = leadingNumber(value);
        return true;
    }
    return false;
}

void addOther(std::string_view key, std::string_view value, Tags& tags) {
    if (key == "track" || key == "tracknumber") {
        readNumberOfCount(value, tags.trackNumber, tags.trackCount);
    } else if (key == "disc" || key == "discnumber") {
        readNumberOfCount(value, tags.discNumber, tags.discCount);
    } else if (key == "date" || key == "year" || key == "tdrc" || key == "tyer") {
        if (tags.year == 0)
            tags.year = yearOf(value);
        if (!tags.releaseDate)
            tags.releaseDate = secondsOfDate(value);
    } else if (key == "releasetime" || key == "releasedate" || key == "tdrl") {
        tags.releaseDate = secondsOfDate(value);
    } else if (key == "compilation" || key == "tcmp") {
        tags.compilation = isSet(value);
    } else if (key == "podcast") {
        tags.podcast = isSet(value);
    } else if (key == "pcst") {
        tags.podcast = true;
    } else if (key == "rental") {
        tags.rental = isSet(value);
    } else if (key == "media_type") {
        tags.kind = kindOf(leadingNumber(value));
    }
}

}  // namespace

void addTags(const AVDictionary* dictionary, Tags& tags) {
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX))) {
        std::string key = entry->key;
        std::ranges::transform(key, key.begin(), [](char c) {
            return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        });
        const std::string_view value = entry->value;
        if (!addText(key, value, tags) && !addNumber(key, value, tags))
            addOther(key, trimmed(value), tags);
    }
}

void readNumberOfCount(std::string_view text, std::int32_t& number, std::int32_t& count) {
    if (number == 0)
        number = leadingNumber(text);
    const auto slash = text.find('/');
    if (slash != std::string_view::npos && count == 0)
        count = leadingNumber(text.substr(slash + 1));
}

std::int32_t yearOf(std::string_view date) {
    const std::int32_t year = digitsAt(trimmed(date), 0, 4).value_or(0);
    return year >= 1000 ? year : 0;
}

std::optional<std::int64_t> secondsOfDate(std::string_view date) {
    using namespace std::chrono;
    date = trimmed(date);
    const auto yearDigits = digitsAt(date, 0, 4);
    const auto monthDigits = digitsAt(date, 5, 2);
    const auto dayDigits = digitsAt(date, 8, 2);
    if (!yearDigits || !monthDigits || !dayDigits || date[4] != '-' || date[7] != '-')
        return std::nullopt;
    const year_month_day day{year(*yearDigits), month(static_cast<unsigned>(*monthDigits)),
                             std::chrono::day(static_cast<unsigned>(*dayDigits))};
    if (!day.ok())
        return std::nullopt;
    std::int64_t result = duration_cast<seconds>(sys_days(day).time_since_epoch()).count();
    const auto hour = digitsAt(date, 11, 2);
    const auto minute = digitsAt(date, 14, 2);
    if (hour && minute)
        result += *hour * 3600 + *minute * 60 + digitsAt(date, 17, 2).value_or(0);
    const auto sign = date.find_first_of("+-", 16 < date.size() ? 16 : date.size());
    if (hour && minute && sign != std::string_view::npos) {
        const std::int64_t offset = digitsAt(date, sign + 1, 2).value_or(0) * 3600 +
                                    digitsAt(date, sign + 4, 2).value_or(0) * 60;
        result -= date[sign] == '+' ? offset : -offset;
    }
    return result;
}

}  // namespace host
