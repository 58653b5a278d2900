#include <algorithm>

#include "tests/support/recording_library.h"
#include "tests/support/track_predicates.h"

namespace support {
namespace {

// The value of a property in a track's map; the persistent id stands in the key.
platform::Value valueIn(std::int64_t persistentID, const TrackProperties& properties,
                        KV3TrackProperty property) {
    if (property == KV3TrackPropertyPersistentID)
        return persistentID;
    const auto found = properties.find(property);
    return found == properties.end() ? platform::Value() : found->second;
}

bool meets(const KV3Predicate& predicate, std::int64_t persistentID,
           const TrackProperties& properties) {
    return matches(predicate, [&](KV3TrackProperty property) {
        return valueIn(persistentID, properties, property);
    });
}

platform::Array namesOf(std::span<const KV3TrackProperty> properties) {
    platform::Array names;
    for (const KV3TrackProperty property : properties)
        names.emplace_back(propertyName(property));
    return names;
}

class RecordingTrack : public KV3Track {
public:
    RecordingTrack(std::int64_t persistentID, std::shared_ptr<RecordingLibrary> library)
        : _persistentID(persistentID),
          _library(std::move(library)),
          _recorder(_library->recorder()) {}

    std::int64_t persistentID() const override { return _persistentID; }
    bool existsInLibrary() override {
        return !_recorder.fails("KV3Track.existsInLibrary", {_persistentID}) && exists();
    }
    std::optional<std::string> absoluteFilePath() override {
        if (_recorder.fails("KV3Track.absoluteFilePath", {_persistentID}))
            return std::nullopt;
        const platform::Value path = value(KV3TrackPropertyFilePath);
        return path.isString() ? std::optional(*path.string()) : std::nullopt;
    }
    bool deleteFromLibrary() override {
        if (_recorder.fails("KV3Track.deleteFromLibrary", {_persistentID}))
            return false;
        return _library->tracks.erase(_persistentID) > 0;
    }
    platform::Value valueForProperty(KV3TrackProperty property) override {
        if (_recorder.fails("KV3Track.valueForProperty", {_persistentID, propertyName(property)}))
            return {};
        return value(property);
    }
    std::vector<platform::Value> getValues(std::span<const KV3TrackProperty> properties) override {
        const bool isFault =
            _recorder.fails("KV3Track.getValues", {_persistentID, namesOf(properties)});
        std::vector<platform::Value> values;
        for (const KV3TrackProperty property : properties)
            values.push_back(isFault ? platform::Value() : value(property));
        return values;
    }
    bool setValue(const platform::Value& value, KV3TrackProperty property) override {
        if (_recorder.fails("KV3Track.setValue", {_persistentID, value, propertyName(property)}) ||
            !exists())
            return false;
        _library->tracks[_persistentID][property] = value;
        return true;
    }
    bool setValues(std::span<const platform::Value> values,
                   std::span<const KV3TrackProperty> properties) override {
        if (_recorder.fails("KV3Track.setValues",
                            {_persistentID, platform::Array(values.begin(), values.end()),
                             namesOf(properties)}) ||
            !exists())
            return false;
        for (std::size_t i = 0; i < properties.size(); ++i)
            _library->tracks[_persistentID][properties[i]] = values[i];
        return true;
    }
    bool populateLocationPropertiesWithPath(const std::string& path) override {
        if (_recorder.fails("KV3Track.populateLocationPropertiesWithPath", {_persistentID, path}) ||
            !exists())
            return false;
        const bool hasFile = _library->files().contains(path);
        TrackProperties& properties = _library->tracks[_persistentID];
        properties[KV3TrackPropertyBaseLocationID] =
            hasFile ? RecordingLibrary::musicLocation : std::int64_t{0};
        properties[KV3TrackPropertyFilePath] = hasFile ? platform::Value(path) : platform::Value();
        return true;
    }
    bool needsVideoSnapshot() override {
        if (_recorder.fails("KV3Track.needsVideoSnapshot", {_persistentID}))
            return false;
        const auto found = _library->needsVideoSnapshot.find(_persistentID);
        return found != _library->needsVideoSnapshot.end() && found->second;
    }
    bool createVideoSnapshotAtTime(double seconds) override {
        return !_recorder.fails("KV3Track.createVideoSnapshotAtTime", {_persistentID, seconds});
    }
    std::string description() const override {
        return "<KV3Track " + std::to_string(_persistentID) + ">";
    }

private:
    bool exists() const { return _library->tracks.contains(_persistentID); }
    platform::Value value(KV3TrackProperty property) const {
        const auto found = _library->tracks.find(_persistentID);
        return found == _library->tracks.end() ? platform::Value()
                                               : valueIn(_persistentID, found->second, property);
    }

    const std::int64_t _persistentID;
    const std::shared_ptr<RecordingLibrary> _library;
    Recorder& _recorder;
};

// A borrowed view of a value; null for what a row cannot hold.
platform::ValueView viewOf(const platform::Value& value) {
    switch (value.type()) {
        case platform::Value::Type::Boolean:
        case platform::Value::Type::Signed:
        case platform::Value::Type::Unsigned:
            return platform::ValueView(value.int64Value());
        case platform::Value::Type::Double:
            return platform::ValueView(value.doubleValue());
        case platform::Value::Type::String:
            return platform::ValueView(std::string_view(*value.string()));
        case platform::Value::Type::Data:
            return platform::ValueView(value.data()->data(), value.data()->size());
        default:
            return {};
    }
}

class RecordingTrackQuery : public KV3TrackQuery {
public:
    RecordingTrackQuery(KV3Predicate predicate, std::vector<KV3OrderingTerm> orderingTerms,
                        std::shared_ptr<RecordingLibrary> library)
        : _predicate(std::move(predicate)),
          _orderingTerms(std::move(orderingTerms)),
          _library(std::move(library)) {}

    void enumeratePersistentIDsAndProperties(
        std::span<const KV3TrackProperty> properties,
        const std::function<void(std::int64_t, KV3TrackRow)>& block) override {
        _library->recorder().record("KV3TrackQuery.enumerate", {namesOf(properties)});
        for (const auto& [persistentID, track] : sortedTracks()) {
            std::vector<platform::Value> values;
            for (const KV3TrackProperty property : properties)
                values.push_back(valueIn(persistentID, track, property));
            std::vector<platform::ValueView> row;
            for (const platform::Value& value : values)
                row.push_back(viewOf(value));
            block(persistentID, row);
        }
    }
    bool deleteAllEntitiesFromLibrary() override {
        if (_library->recorder().fails("KV3TrackQuery.deleteAllEntities"))
            return false;
        std::erase_if(_library->tracks, [this](const auto& entry) {
            return meets(_predicate, entry.first, entry.second);
        });
        return true;
    }

private:
    using Entry = std::pair<std::int64_t, TrackProperties>;

    std::vector<Entry> sortedTracks() const {
        std::vector<Entry> found;
        for (const auto& [persistentID, track] : _library->tracks) {
            if (meets(_predicate, persistentID, track))
                found.emplace_back(persistentID, track);
        }
        std::stable_sort(found.begin(), found.end(), [this](const Entry& a, const Entry& b) {
            for (const KV3OrderingTerm& term : _orderingTerms) {
                const auto left = valueIn(a.first, a.second, term.property).int64Value();
                const auto right = valueIn(b.first, b.second, term.property).int64Value();
                if (left != right)
                    return left < right;
            }
            return false;
        });
        return found;
    }

    const KV3Predicate _predicate;
    const std::vector<KV3OrderingTerm> _orderingTerms;
    const std::shared_ptr<RecordingLibrary> _library;
};

}  // namespace

std::shared_ptr<KV3Track> makeTrack(std::int64_t persistentID,
                                    const std::shared_ptr<RecordingLibrary>& library) {
    return std::make_shared<RecordingTrack>(persistentID, library);
}

std::shared_ptr<KV3Track> findTrack(const KV3Predicate& predicate,
                                    const std::shared_ptr<RecordingLibrary>& library) {
    for (const auto& [persistentID, track] : library->tracks) {
        if (meets(predicate, persistentID, track))
            return makeTrack(persistentID, library);
    }
    return makeTrack(0, library);
}

std::shared_ptr<KV3TrackQuery> makeTrackQuery(const KV3Predicate& predicate,
                                              const std::vector<KV3OrderingTerm>& orderingTerms,
                                              const std::shared_ptr<RecordingLibrary>& library) {
    return std::make_shared<RecordingTrackQuery>(predicate, orderingTerms, library);
}

}  // namespace support
