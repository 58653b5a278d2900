// Purpose: which kind of media a file is. The first that speaks decides: a rule of the rule file,
// the file's tags, the folders it lies in (the innermost first), its name (SxxEyy is an episode),
// or the default: sound is music; a film without any hint is a home video when a camera named it,
// else a film. Thread: any. Failure: none.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/scan/media_file.h"
#include "host/scan/rule_file.h"

namespace host {

// Fills mediaType, isRental, the overridden tags, and for an episode the show, season and episode
// that only its name tells. What an earlier call overrode is undone first.
void classifyMedia(MediaFile& file, const RuleFile& rules);

// The name that rules use for a kind ("music", "audiobook", "podcast", "video-podcast", "tv",
// "movie", "music-video", "home-video", "tessel-u", "tessel-u-video"), and back.
std::string_view nameOfMediaType(std::uint32_t mediaType);
std::optional<std::uint32_t> mediaTypeNamed(std::string_view name);
// All of them, with commas between.
std::string mediaTypeNames();

}  // namespace host
