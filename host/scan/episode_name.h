// Purpose: what a file's name tells of a television episode ("Show - S01E02 - Title.mp4").
// Thread: any.
// Failure: none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace host {

struct EpisodeName {
    std::string show;  // "" when the name begins with the numbers
    std::int32_t season = 0;
    std::int32_t episode = 0;
    std::string title;  // "" when nothing follows the numbers
};

// Reads "SxxEyy" out of a path's last part. Nothing when it is not there.
std::optional<EpisodeName> episodeNameOf(std::string_view path);
// The show by the folders of a path: the innermost that names no season, "" when that is "TV
// Shows" or there is none.
std::string showByFolder(std::string_view path);

}  // namespace host
