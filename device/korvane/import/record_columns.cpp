#include "device/korvane/import/record_columns.h"

#include <algorithm>
#include <limits>
#include <string>

#include "common/qorx/qorx.pb.h"

namespace korvane {

using platform::ValueView;

std::int64_t columnNumber(std::uint64_t value) {
    constexpr std::uint64_t Largest = std::numeric_limits<std::int64_t>::max();
    return static_cast<std::int64_t>(std::min(value, Largest));
}

namespace {

ValueView number(std::int64_t value) {
    return ValueView(value);
}
ValueView text(const std::string& value) {
    return ValueView(std::string_view(value));
}
ValueView textIf(bool present, const std::string& value) {
    return present ? text(value) : ValueView();
}
ValueView numberIf(bool present, std::int64_t value) {
    return present ? number(value) : ValueView();
}
ValueView bytesIf(bool present, const std::string& value) {
    return present ? ValueView(reinterpret_cast<const std::uint8_t*>(value.data()), value.size())
                   : ValueView();
}

// The extension becomes part of a file name: anything but a plain one is none.
ValueView extension(const std::string& value) {
    constexpr std::size_t Longest = 16;
    const bool plain = value.size() <= Longest && std::ranges::all_of(value, [](char c) {
                           return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
                       });
    return plain ? text(value) : ValueView(std::string_view(""));
}

using In = const IncomingTrack&;
using Fields = qorx::Track;

// What is one field together.
constexpr int FileFacts = Fields::kContentHashFieldNumber;
constexpr int StoreFacts = Fields::kStoreFieldNumber;

constexpr RecordColumn ItemColumns[] = {
    {"media_type", [](In t) { return number(t.record->media_type()); },
     Fields::kMediaTypeFieldNumber},
    {"sources", [](In t) { return number(t.sources); }},
    {"is_rental", [](In t) { return number(t.record->is_rental()); }, Fields::kIsRentalFieldNumber},
    {"disc_number", [](In t) { return number(t.record->disc_number()); },
     Fields::kDiscNumberFieldNumber},
    {"track_number", [](In t) { return number(t.record->track_number()); },
     Fields::kTrackNumberFieldNumber},
    {"album_pid", [](In t) { return number(t.albumPID); }, Fields::kAlbumFieldNumber},
    {"album_artist_pid", [](In t) { return number(t.albumArtistPID); },
     Fields::kAlbumArtistFieldNumber},
    {"item_artist_pid", [](In t) { return number(t.itemArtistPID); }, Fields::kArtistFieldNumber},
    {"date_added", [](In t) { return number(t.dateAdded); }, Fields::kDateAddedFieldNumber},
    {"added_ms", [](In t) { return number(t.addedMs); }},
    {"metadata_changed_ms", [](In t) { return number(t.metadataChangedMs); }},
};

constexpr RecordColumn ExtraColumns[] = {
    {"title", [](In t) { return textIf(t.record->has_title(), t.record->title()); },
     Fields::kTitleFieldNumber},
    {"total_time_ms", [](In t) { return number(columnNumber(t.record->total_time_ms())); },
     FileFacts},
    {"total_size", [](In t) { return number(columnNumber(t.record->total_size())); }, FileFacts},
    {"global_id", [](In t) { return number(t.globalID); }},
    {"kenning_id",
     [](In t) { return numberIf(t.record->has_kenning_id(), t.record->kenning_id()); },
     Fields::kKenningIdFieldNumber},
    {"pending_kenning_checksum",
     [](In t) {
         return numberIf(t.bringsKenningData && t.record->has_kenning_checksum(),
                         t.record->kenning_checksum());
     }},
    {"year", [](In t) { return number(t.record->year()); }, Fields::kYearFieldNumber},
    {"disc_count", [](In t) { return number(t.record->disc_count()); },
     Fields::kDiscCountFieldNumber},
    {"track_count", [](In t) { return number(t.record->track_count()); },
     Fields::kTrackCountFieldNumber},
    {"compilation", [](In t) { return number(t.record->compilation()); },
     Fields::kCompilationFieldNumber},
    {"bit_rate", [](In t) { return number(t.record->bit_rate()); }, FileFacts},
    {"sample_rate", [](In t) { return number(t.record->sample_rate()); }, FileFacts},
    {"bpm", [](In t) { return number(t.record->bpm()); }, Fields::kBpmFieldNumber},
    {"file_extension", [](In t) { return extension(t.record->file_extension()); }, FileFacts},
    {"content_hash",
     [](In t) { return bytesIf(!t.record->content_hash().empty(), t.record->content_hash()); },
     FileFacts},
    {"host_path", [](In t) { return bytesIf(t.record->has_host_path(), t.record->host_path()); },
     Fields::kHostPathFieldNumber},
    {"release_date", [](In t) { return number(t.record->release_date()); },
     Fields::kReleaseDateFieldNumber},
    {"sort_title", [](In t) { return textIf(t.record->has_sort_title(), t.record->sort_title()); },
     Fields::kSortTitleFieldNumber},
    {"sort_artist",
     [](In t) { return textIf(t.record->has_sort_artist(), t.record->sort_artist()); },
     Fields::kSortArtistFieldNumber},
    {"sort_album", [](In t) { return textIf(t.record->has_sort_album(), t.record->sort_album()); },
     Fields::kSortAlbumFieldNumber},
    {"sort_album_artist",
     [](In t) { return textIf(t.record->has_sort_album_artist(), t.record->sort_album_artist()); },
     Fields::kSortAlbumArtistFieldNumber},
    {"composer", [](In t) { return textIf(t.record->has_composer(), t.record->composer()); },
     Fields::kComposerFieldNumber},
    {"genre", [](In t) { return textIf(t.record->has_genre(), t.record->genre()); },
     Fields::kGenreFieldNumber},
    {"comment", [](In t) { return textIf(t.record->has_comment(), t.record->comment()); },
     Fields::kCommentFieldNumber},
    {"grouping", [](In t) { return textIf(t.record->has_grouping(), t.record->grouping()); },
     Fields::kGroupingFieldNumber},
    {"show", [](In t) { return textIf(t.record->has_show(), t.record->show()); },
     Fields::kShowFieldNumber},
    {"season_number", [](In t) { return number(t.record->season_number()); },
     Fields::kSeasonNumberFieldNumber},
    {"episode_number", [](In t) { return number(t.record->episode_number()); },
     Fields::kEpisodeNumberFieldNumber},
    {"episode_id", [](In t) { return textIf(t.record->has_episode_id(), t.record->episode_id()); },
     Fields::kEpisodeIdFieldNumber},
    {"description",
     [](In t) { return textIf(t.record->has_description(), t.record->description()); },
     Fields::kDescriptionFieldNumber},
    {"chapter_data",
     [](In t) { return bytesIf(t.record->has_chapter_data(), t.record->chapter_data()); },
     Fields::kChapterDataFieldNumber},
};

constexpr RecordColumn StoreColumns[] = {
    {"sync_id", [](In t) { return number(t.syncID); }},
    {"account_id",
     [](In t) {
         return numberIf(t.record->store().has_account_id(), t.record->store().account_id());
     },
     StoreFacts},
    {"store_item_id",
     [](In t) { return numberIf(t.record->store().has_item_id(), t.record->store().item_id()); },
     StoreFacts},
    {"flavor",
     [](In t) { return textIf(t.record->store().has_flavor(), t.record->store().flavor()); },
     StoreFacts},
    {"matched_status",
     [](In t) {
         return numberIf(t.record->store().has_matched_status(),
                         t.record->store().matched_status());
     },
     StoreFacts},
    {"redownloaded_status",
     [](In t) {
         return numberIf(t.record->store().has_redownloaded_status(),
                         t.record->store().redownloaded_status());
     },
     StoreFacts},
    {"veska_id",
     [](In t) { return numberIf(t.record->store().has_veska_id(), t.record->store().veska_id()); },
     StoreFacts},
    {"podcast_guid",
     [](In t) {
         return textIf(t.record->store().has_podcast_guid(), t.record->store().podcast_guid());
     },
     StoreFacts},
};

constexpr RecordColumn StatsColumns[] = {
    {"user_rating", [](In t) { return number(t.rating); }},
    {"rating_changed_ms", [](In t) { return number(t.ratingChangedMs); }},
    {"bookmark_ms", [](In t) { return number(t.bookmarkMs); }},
    {"bookmark_changed_ms", [](In t) { return number(t.bookmarkChangedMs); }},
};

constexpr RecordColumn ArtworkColumns[] = {
    {"sync_artwork_token", [](In t) { return text(t.record->artwork_token()); },
     Fields::kArtworkTokenFieldNumber},
};

constexpr RecordTable Tables[] = {
    {"item", ItemColumns},        {"item_extra", ExtraColumns},     {"item_store", StoreColumns},
    {"item_stats", StatsColumns}, {"item_artwork", ArtworkColumns},
};

}  // namespace

std::span<const RecordTable> recordTables() {
    return Tables;
}

}  // namespace korvane
