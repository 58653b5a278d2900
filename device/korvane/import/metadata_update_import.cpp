#include "device/korvane/import/metadata_update_import.h"

#include <fmt/format.h>

#include <vector>

#include "common/property_list/property_list.h"
#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/connections.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/import/import_cancellation.h"
#include "device/korvane/import/import_failure.h"
#include "device/korvane/library.h"
#include "device/korvane/owner_edits.h"
#include "platform/media_library.h"

namespace korvane {

namespace {

using platform::Dictionary;
using platform::OptionalError;
using platform::Value;

constexpr std::string_view PersistentIDKey = "persistent_id";
constexpr std::string_view SyncIDKey = "sync_id";
constexpr std::string_view FieldsKey = "fields";
constexpr std::string_view RatingField = "rating";
constexpr std::string_view BookmarkField = "bookmark";

constexpr std::int64_t LargestRating = 100;

[[noreturn]] void refuse(const std::string& text) {
    throw ImportFailure(KVMediaLibraryServiceErrorRefusedUpdate, text);
}

bool isInteger(const Value& value) {
    return value.type() == Value::Type::Signed || value.type() == Value::Type::Unsigned;
}

// What of a track is to change.
struct TrackUpdate {
    std::string_view idKey;  // which of the two ids names the track
    std::int64_t id = 0;
    std::vector<FieldEdit> fields;
    std::optional<std::int64_t> rating;
    std::optional<std::int64_t> bookmarkMs;
};

std::int64_t numberOf(std::string_view field, const Value& value, std::int64_t most) {
    // Beyond the largest signed number it is clamped, and too large as well.
    const std::int64_t number = value.int64Value();
    if (!isInteger(value) || number < 0 || number > most)
        refuse(fmt::format("{}: a whole number from 0 to {}", field, most));
    return number;
}

std::string textOf(std::string_view field, const Value& value) {
    if (const std::string* text = value.string())
        return *text;
    if (value.isBoolean())
        return value.boolValue() ? "yes" : "no";
    if (isInteger(value))
        return value.description();
    refuse(fmt::format("{}: text, a whole number, or yes or no", field));
}

void readFields(const Value& fields, TrackUpdate& update) {
    if (!fields.dictionary() || fields.dictionary()->empty())
        refuse("the update sets no fields");
    for (const auto& [field, value] : *fields.dictionary()) {
        if (field == RatingField)
            update.rating = numberOf(field, value, LargestRating);
        else if (field == BookmarkField)
            update.bookmarkMs = numberOf(field, value, INT64_MAX);
        else
            update.fields.push_back({field, textOf(field, value)});
    }
}

TrackUpdate readUpdate(const platform::Data& bytes) {
    OptionalError error;
    const auto document = common::parsePropertyList(bytes, &error);
    if (!document)
        throw ImportFailure(KVMediaLibraryServiceErrorDamagedData,
                            "the update is no property list: " + error->text());
    if (!document->dictionary())
        throw ImportFailure(KVMediaLibraryServiceErrorDamagedData, "the update is no dictionary");
    TrackUpdate update;
    for (const auto& [key, value] : *document->dictionary()) {
        if (key == FieldsKey) {
            readFields(value, update);
            continue;
        }
        if (key != PersistentIDKey && key != SyncIDKey)
            refuse(fmt::format("an update has no key \"{}\"", key));
        if (!update.idKey.empty() || value.type() != Value::Type::Signed || value.int64Value() == 0)
            refuse("an update names one track, by persistent_id or by sync_id");
        update.idKey = key == PersistentIDKey ? PersistentIDKey : SyncIDKey;
        update.id = value.int64Value();
    }
    if (update.idKey.empty())
        refuse("an update names one track, by persistent_id or by sync_id");
    if ((*document)[FieldsKey].isNull())
        refuse("the update sets no fields");
    return update;
}

std::int64_t trackOf(common::Database& database, const TrackUpdate& update) {
    const std::int64_t pid =
        update.idKey == PersistentIDKey
            ? database.int64("SELECT item_pid FROM item WHERE item_pid = ?", update.id)
            : database.int64(
                  "SELECT item_pid FROM item_store WHERE sync_id = ? AND sync_id <> 0 LIMIT 1",
                  update.id);
    if (pid == 0)
        refuse(fmt::format("there is no track of the {} {}", update.idKey, update.id));
    return pid;
}

OptionalError apply(Library& library, std::int64_t pid, const TrackUpdate& update) {
    OptionalError error;
    if (!update.fields.empty())
        error = setTrackFields(library, pid, update.fields);
    if (!error && update.rating)
        error = rateTrackInPoints(library, pid, *update.rating);
    if (!error && update.bookmarkMs)
        error = setBookmark(library, pid, static_cast<std::uint64_t>(*update.bookmarkMs));
    return error;
}

}  // namespace

OptionalError importMetadataUpdate(Library& library, const platform::Data& update,
                                   const std::string& anchor, ImportCancellation& cancellation) {
    try {
        cancellation.check();
        const TrackUpdate track = readUpdate(update);
        library.connections().write([&](common::Database& database) {
            const ImportCancellation::Scope scope(cancellation, database);
            cancellation.check();
            if (const OptionalError error = apply(library, trackOf(database, track), track)) {
                cancellation.check();
                refuse(error->text());
            }
            setDatabaseProperty(database, SyncAnchorProperty, Value(anchor));
            return true;
        });
        return std::nullopt;
    } catch (const ImportFailure& failure) {
        return failure.error();
    } catch (const common::SqliteError& error) {
        return importError(error, cancellation);
    }
}

}  // namespace korvane
