// The parameters that go with a change stream. Both devices know them under these keys.
#pragma once

#include <string_view>

#include "platform/values.h"

// The encoding of the stream's sections, and its one value.
inline constexpr std::string_view KVSyncParamFormatType = "FormatType";
inline constexpr std::string_view KVFormatTypeQORX = "QORX";
// The bytes of the playlist section, which comes first.
inline constexpr std::string_view KVSyncParamPlaylistDataLen = "PlaylistDataLen";
// How many entries changed; a hint.
inline constexpr std::string_view KVSyncParamSyncItemCount = "SyncItemCount";
// A dictionary; absent without settings.
inline constexpr std::string_view KVSyncParamPlaylistSyncSettings = "PlaylistSyncSettings";
// Which tracks the other device takes; the library's own form of a filter.
inline constexpr std::string_view KVSyncParamSupportedMediaTypes = "SupportedMediaTypes";

// Null when there is none.
inline platform::Value KVSyncParam(const platform::Dictionary& params, std::string_view key) {
    const auto found = params.find(key);
    return found == params.end() ? platform::Value() : found->second;
}
