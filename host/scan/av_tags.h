// Purpose: turns FFmpeg's metadata dictionaries into Tags. Runs in a worker.
// Thread: any.
// Failure: what makes no sense is left out.
#pragma once

#include <string_view>

#include "host/scan/media_file.h"

struct AVDictionary;

namespace host {

// Adds what the dictionary says; a field that is already set stays.
void addTags(const AVDictionary* dictionary, Tags& tags);

// Parts of it, for tests: "3/12" into number and count; a date's year; a date as seconds since
// 1970 ("2024-05-06", "2024-05-06T07:08:09Z" or with an offset), nothing when it names no day.
void readNumberOfCount(std::string_view text, std::int32_t& number, std::int32_t& count);
std::int32_t yearOf(std::string_view date);
std::optional<std::int64_t> secondsOfDate(std::string_view date);

}  // namespace host
