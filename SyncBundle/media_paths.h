// The device paths that the plug-in names, and how it joins paths. All are absolute device paths;
// a directory ends with a slash.
#pragma once

#include <string>
#include <string_view>

inline constexpr std::string_view KVMediaDirectory = "/var/mobile/Media/";
// Where the host leaves its sync settings files.
inline constexpr std::string_view KVSyncSettingsDirectory =
    "/var/mobile/Media/Tessel_Control/Sync/Media/";
inline constexpr std::string_view KVTemporaryMediaDirectory = "/var/tmp/Media/";
// Received artwork and Kenning files, until they are filed.
inline constexpr std::string_view KVStageholdMediaDirectory = "/var/mobile/Media/Stagehold/Media/";
// Media files that a reset sync moved aside, and resized artwork on its way to the host.
inline constexpr std::string_view KVStageholdTemporaryDirectory =
    "/var/mobile/Media/Stagehold/tmp/";

// The two with exactly one slash between them, and none at the end.
std::string KVPathByAppendingComponent(std::string_view directory, std::string_view component);
// The file's name, without slashes; "" for a path of none.
std::string KVLastPathComponent(std::string_view path);
