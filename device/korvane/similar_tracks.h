// Purpose: which tracks of the library are like one of them, from the library's own Kenning tables:
//          the similarities of the track's Kenning id, and the configuration record.
// Calling thread: any.
// Failure: an error of LibraryErrorDomain says in plain words what is wrong and what helps.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/errors.h"

namespace korvane {

class Library;

struct SimilarTrack {
    std::int64_t persistentID = 0;
    std::string title;
    std::string artist;
    std::string album;
    std::uint16_t likeness = 0;  // 1 to 65535
};

struct SimilarAnswer {
    std::vector<SimilarTrack>
        tracks;                 // the most alike first; equally alike ones by their Kenning id
    std::size_t available = 0;  // that are in the library
    std::size_t minimum = 0;
};

// The configuration's default_num_results says how many are offered, and min_num_results below how
// many none are; a `count` takes the place of both. A number that the configuration does not have,
// or that makes no sense, is as if it were not there. A version other than 1 is refused.
platform::OptionalError findSimilarTracks(Library& library, std::int64_t trackPID,
                                          std::optional<std::uint32_t> count,
                                          SimilarAnswer& answer);

}  // namespace korvane
