// Purpose: the parameters of a change stream as they lie beside it, as a JSON file.
// Thread: any.
// Failure: a reason in plain words; nothing of a file that is not understood is used.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "common/hash.h"
#include "platform/errors.h"
#include "platform/values.h"

namespace host {

inline constexpr std::string_view PlaylistLengthKey = "PlaylistDataLen";
inline constexpr std::string_view ItemCountKey = "SyncItemCount";

// What the stream's own file is to be; a file whose facts are others belongs to other parameters.
struct StreamFacts {
    std::uint64_t size = 0;
    common::Hash128 hash{};
    std::int64_t revision = 0;  // that the stream reaches

    bool operator==(const StreamFacts&) const = default;
};

struct ChangeParameters {
    platform::Dictionary values;  // as the device gave them and takes them
    std::optional<StreamFacts> stream;

    // Of the playlists, which come first.
    std::uint64_t playlistBytes() const;
    // How many records there are.
    std::uint64_t items() const;
};

// An object of the values, with the facts under "Stream". Data are {"$data": hexadecimal}, moments
// {"$date": seconds since 1970}.
std::string jsonOfParameters(const ChangeParameters& parameters);
std::optional<ChangeParameters> parametersOfJson(std::string_view text,
                                                 platform::OptionalError& error);

// As they travel: a binary property list of the values.
std::optional<platform::Dictionary> dictionaryOfPropertyList(std::string_view bytes,
                                                             platform::OptionalError& error);
std::optional<std::string> propertyListOfDictionary(const platform::Dictionary& values,
                                                    platform::OptionalError& error);

// "<file>.json"
std::string parametersPath(const std::string& streamPath);
// Of the file beside a stream. A missing one is POSIX ENOENT.
std::optional<ChangeParameters> readParameters(const std::string& streamPath,
                                               platform::OptionalError& error);

}  // namespace host
