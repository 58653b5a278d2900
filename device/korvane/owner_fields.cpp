// What the owner does to a track's fields.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "common/qorx/qorx.pb.h"
#include "common/sqlite/database.h"
#include "device/korvane/field_times.h"
#include "device/korvane/import/names.h"
#include "device/korvane/import/new_ids.h"
#include "device/korvane/library.h"
#include "device/korvane/owner_edit.h"
#include "device/korvane/owner_edits.h"
#include "device/korvane/track_deletion.h"

namespace korvane {

using platform::OptionalError;
using platform::Value;

namespace {

constexpr std::size_t LongestText = 4'096;
constexpr std::size_t LongestNote = 65'536;
constexpr std::int64_t LargestYear = 9'999;
constexpr std::int64_t LargestCount = 99'999;

enum class FieldKind { Text, Number, Flag, Name };

struct EditableField {
    std::string_view name;
    FieldKind kind;
    const char* table;
    const char* column;
    int number;         // in the record of a track
    std::int64_t most;  // bytes of a text, the largest number
};

using T = qorx::Track;
constexpr EditableField Fields[] = {
    {"title", FieldKind::Text, "item_extra", "title", T::kTitleFieldNumber, LongestText},
    {"artist", FieldKind::Name, "item", "item_artist_pid", T::kArtistFieldNumber, LongestText},
    {"album", FieldKind::Name, "item", "album_pid", T::kAlbumFieldNumber, LongestText},
    {"album-artist", FieldKind::Name, "item", "album_artist_pid", T::kAlbumArtistFieldNumber,
     LongestText},
    {"composer", FieldKind::Text, "item_extra", "composer", T::kComposerFieldNumber, LongestText},
    {"genre", FieldKind::Text, "item_extra", "genre", T::kGenreFieldNumber, LongestText},
    {"comment", FieldKind::Text, "item_extra", "comment", T::kCommentFieldNumber, LongestNote},
    {"grouping", FieldKind::Text, "item_extra", "grouping", T::kGroupingFieldNumber, LongestText},
    {"year", FieldKind::Number, "item_extra", "year", T::kYearFieldNumber, LargestYear},
    {"disc", FieldKind::Number, "item", "disc_number", T::kDiscNumberFieldNumber, LargestCount},
    {"disc-count", FieldKind::Number, "item_extra", "disc_count", T::kDiscCountFieldNumber,
     LargestCount},
    {"track", FieldKind::Number, "item", "track_number", T::kTrackNumberFieldNumber, LargestCount},
    {"track-count", FieldKind::Number, "item_extra", "track_count", T::kTrackCountFieldNumber,
     LargestCount},
    {"bpm", FieldKind::Number, "item_extra", "bpm", T::kBpmFieldNumber, LargestCount},
    {"compilation", FieldKind::Flag, "item_extra", "compilation", T::kCompilationFieldNumber, 1},
    {"show", FieldKind::Text, "item_extra", "show", T::kShowFieldNumber, LongestText},
    {"season", FieldKind::Number, "item_extra", "season_number", T::kSeasonNumberFieldNumber,
     LargestCount},
    {"episode", FieldKind::Number, "item_extra", "episode_number", T::kEpisodeNumberFieldNumber,
     LargestCount},
    {"episode-id", FieldKind::Text, "item_extra", "episode_id", T::kEpisodeIdFieldNumber,
     LongestText},
    {"description", FieldKind::Text, "item_extra", "description", T::kDescriptionFieldNumber,
     LongestNote},
    {"sort-title", FieldKind::Text, "item_extra", "sort_title", T::kSortTitleFieldNumber,
     LongestText},
    {"sort-artist", FieldKind::Text, "item_extra", "sort_artist", T::kSortArtistFieldNumber,
     LongestText},
    {"sort-album", FieldKind::Text, "item_extra", "sort_album", T::kSortAlbumFieldNumber,
     LongestText},
    {"sort-album-artist", FieldKind::Text, "item_extra", "sort_album_artist",
     T::kSortAlbumArtistFieldNumber, LongestText},
};

char plainLetter(char letter) {
    if (letter == '_' || letter == ' ')
        return '-';
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

const EditableField* fieldNamed(std::string name) {
    std::ranges::transform(name, name.begin(), plainLetter);
    const auto* found = std::ranges::find(Fields, name, &EditableField::name);
    return found == std::end(Fields) ? nullptr : found;
}

std::optional<std::int64_t> numberOf(const EditableField& field, const std::string& text) {
    if (text.empty())
        return 0;
    std::int64_t number = 0;
    const auto end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, number);
    const bool isWhole = failure == std::errc() && rest == end;
    return isWhole && number >= 0 && number <= field.most ? std::optional(number) : std::nullopt;
}

std::optional<std::int64_t> flagOf(std::string text) {
    std::ranges::transform(text, text.begin(), plainLetter);
    if (text == "yes" || text == "true" || text == "1")
        return 1;
    if (text == "no" || text == "false" || text == "0" || text.empty())
        return 0;
    return std::nullopt;
}

// An edit that has been checked; its text is the request's.
struct CheckedEdit {
    const EditableField* field = nullptr;
    const std::string* text = nullptr;
    std::int64_t number = 0;
};

OptionalError check(const FieldEdit& edit, CheckedEdit& checked) {
    const EditableField* field = fieldNamed(edit.field);
    if (!field)
        return refusedEdit(fmt::format("a track has no field \"{}\"", edit.field));
    checked = {field, &edit.value};
    if (field->kind == FieldKind::Text || field->kind == FieldKind::Name) {
        if (!isPlainText(edit.value, static_cast<std::size_t>(field->most)))
            return refusedEdit(
                fmt::format("{}: text of at most {} bytes, without control "
                            "characters",
                            field->name, field->most));
        return std::nullopt;
    }
    const bool isFlag = field->kind == FieldKind::Flag;
    const auto number = isFlag ? flagOf(edit.value) : numberOf(*field, edit.value);
    if (!number)
        return refusedEdit(
            isFlag ? fmt::format("{}: yes or no", field->name)
                   : fmt::format("{}: a whole number from 0 to {}", field->name, field->most));
    checked.number = *number;
    return std::nullopt;
}

// The edits of one track, in the owner's transaction.
class TrackFieldEdits {
public:
    TrackFieldEdits(common::Database& database, std::int64_t trackPID)
        : _database(database), _pid(trackPID) {}

    void apply(const CheckedEdit& edit) {
        if (edit.field->kind == FieldKind::Name) {
            note(edit);
        } else if (write(edit)) {
            _changed.set(static_cast<std::size_t>(edit.field->number));
        }
    }

    void finish(std::int64_t nowMs) {
        if (_hasNames)
            writeNames();
        FieldTimes(_database).setChanged(_pid, _changed, nowMs);
    }

private:
    // Whether the value was another.
    bool write(const CheckedEdit& edit) {
        Value value;
        if (edit.field->kind != FieldKind::Text)
            value = edit.number;
        else if (!edit.text->empty())
            value = *edit.text;
        return _database.execute(
                   fmt::format("UPDATE {0} SET {1} = ?1 WHERE item_pid = ?2 AND {1} IS NOT ?1",
                               edit.field->table, edit.field->column),
                   value, _pid) != 0;
    }

    // The names of a track belong together: an album's row is that of its name and album artist.
    void note(const CheckedEdit& edit) {
        if (!_hasNames)
            readNames();
        std::string& name = edit.field->number == T::kArtistFieldNumber  ? _artist
                            : edit.field->number == T::kAlbumFieldNumber ? _album
                                                                         : _albumArtist;
        if (name != *edit.text) {
            name = *edit.text;
            _changed.set(static_cast<std::size_t>(edit.field->number));
        }
    }

    void readNames() {
        auto row = _database.query(
            "SELECT ifnull(ar.name, ''), ifnull(al.name, ''), ifnull(aa.name, '') FROM item i "
            "LEFT JOIN item_artist ar USING (item_artist_pid) LEFT JOIN album al USING (album_pid) "
            "LEFT JOIN album_artist aa ON aa.album_artist_pid = i.album_artist_pid "
            "WHERE item_pid = ?",
            _pid);
        row.step();
        _artist = row->text(0);
        _album = row->text(1);
        _albumArtist = row->text(2);
        _hasNames = true;
    }

    void writeNames() {
        const std::vector<std::int64_t> nothingReserved;
        NewIDs newIDs(_database, 0, nothingReserved, systemRandomNumber);
        Names names(_database, newIDs);
        const std::int64_t albumArtist = names.albumArtist(_albumArtist);
        _database.execute(
            "UPDATE item SET item_artist_pid = ?, album_pid = ?, album_artist_pid = ? "
            "WHERE item_pid = ?",
            names.itemArtist(_artist), names.album(_album, albumArtist), albumArtist, _pid);
        removeUnusedNames(_database);
    }

    common::Database& _database;
    const std::int64_t _pid;
    TrackFieldSet _changed;
    bool _hasNames = false;
    std::string _artist;
    std::string _album;
    std::string _albumArtist;
};

}  // namespace

std::vector<std::string_view> editableTrackFields() {
    std::vector<std::string_view> names;
    for (const EditableField& field : Fields)
        names.push_back(field.name);
    return names;
}

OptionalError setTrackFields(Library& library, std::int64_t trackPID,
                             std::span<const FieldEdit> edits) {
    std::vector<CheckedEdit> checked(edits.size());
    for (std::size_t i = 0; i < edits.size(); ++i)
        if (auto error = check(edits[i], checked[i]))
            return error;
    return editTrackAsOwner(library, trackPID, [&](common::Database& database) -> OptionalError {
        TrackFieldEdits track(database, trackPID);
        for (const CheckedEdit& edit : checked)
            track.apply(edit);
        track.finish(library.nowMilliseconds());
        return std::nullopt;
    });
}

OptionalError deleteTrackAsOwner(Library& library, std::int64_t trackPID) {
    return editTrackAsOwner(library, trackPID, [&](common::Database& database) -> OptionalError {
        deleteTrack(database, trackPID, DeletionReach::everywhere(library.nowMilliseconds()));
        removeUnusedNames(database);
        return std::nullopt;
    });
}

}  // namespace korvane
