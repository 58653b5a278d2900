#include "device/orlith/metadata_update.h"

#include <algorithm>
#include <charconv>

#include "device/korvane/configuration.h"
#include "device/korvane/library.h"
#include "device/korvane/owner_edits.h"
#include "device/orlith/library_access.h"
#include "link/anchors.h"
#include "platform/operating_system.h"

namespace orlith {
namespace {

using platform::Dictionary;
using platform::Error;
using platform::OptionalError;

// Fields whose values travel as numbers; those of the others are understood as text too.
constexpr std::string_view NumberFields[] = {"rating", "bookmark"};

platform::Value valueOf(const link::UpdatedField& field) {
    const bool isNumber = std::ranges::find(NumberFields, field.field()) != std::end(NumberFields);
    std::int64_t number = 0;
    const std::string& text = field.value();
    const auto end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, number);
    if (isNumber && failure == std::errc() && rest == end)
        return number;
    return text;
}

Dictionary updateOf(std::int64_t trackPID, const link::UpdateMetadataRequest& request) {
    Dictionary fields;
    for (const link::UpdatedField& field : request.fields())
        fields[field.field()] = valueOf(field);
    return {{"persistent_id", trackPID}, {"fields", std::move(fields)}};
}

// Why the device's anchor is still the old one.
Error reasonOf(const MetadataUpdateParts& parts, const Dictionary& update) {
    OptionalError error;
    if (!parts.propertyLists.serialize(update, platform::PropertyListFormat::Binary, &error))
        return {korvane::LibraryErrorDomain, korvane::LibraryErrorRefused,
                "the update cannot be written as a property list: " +
                    (error ? error->text() : std::string("no reason given"))};
    return parts.access.lastHostImportFailure().value_or(
        Error(korvane::LibraryErrorDomain, korvane::LibraryErrorRefused,
              "the device did not take the update and gave no reason"));
}

}  // namespace

OptionalError updateMetadata(const MetadataUpdateParts& parts,
                             const link::UpdateMetadataRequest& request, std::string& title) {
    OptionalError error;
    const auto track = korvane::findTrack(parts.library, request.track(), error);
    if (!track)
        return error;
    title = track->title;
    const Dictionary update = updateOf(track->persistentID, request);
    const std::string anchor = link::anchorOfUpdate(parts.access.anchor());
    parts.client.metadataUpdate(
        update, parts.daemon.makeDownloadAsset(std::to_string(track->persistentID), "Media", title),
        anchor);
    if (parts.access.anchor() != anchor)
        return reasonOf(parts, update);
    return std::nullopt;
}

}  // namespace orlith
