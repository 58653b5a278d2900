// Purpose: a handle on one track.
// Calling thread: any.
// Failure: database errors are logged; getters answer null, setters false.
#pragma once

#include <memory>

#include "platform/media_library.h"

namespace korvane {

class Library;

class Track final : public KV3Track {
public:
    Track(std::int64_t persistentID, std::shared_ptr<Library> library)
        : _persistentID(persistentID), _library(std::move(library)) {}

    std::int64_t persistentID() const override { return _persistentID; }
    bool existsInLibrary() override;
    std::optional<std::string> absoluteFilePath() override;
    bool deleteFromLibrary() override;
    platform::Value valueForProperty(KV3TrackProperty property) override;
    std::vector<platform::Value> getValues(std::span<const KV3TrackProperty> properties) override;
    // False for a property that the library computes.
    bool setValue(const platform::Value& value, KV3TrackProperty property) override;
    bool setValues(std::span<const platform::Value> values,
                   std::span<const KV3TrackProperty> properties) override;
    bool populateLocationPropertiesWithPath(const std::string& path) override;
    bool needsVideoSnapshot() override;
    bool createVideoSnapshotAtTime(double seconds) override;
    // "<KV3Track: 5, Title>", or the id alone for one that is not in the library.
    std::string description() const override;

private:
    const std::int64_t _persistentID;
    const std::shared_ptr<Library> _library;
};

// The first track that matches; 0 when none does or the database fails.
std::int64_t anyTrackMatching(Library& library, const KV3Predicate& predicate);

}  // namespace korvane
