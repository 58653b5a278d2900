// Reads the property-list files in which Kenning data arrives. Callable from any thread.
#pragma once

#include <optional>
#include <string>

#include "platform/values.h"

// The file's dictionary; absent when it cannot be opened or holds none. A file that could be opened
// is deleted, whatever it holds.
std::optional<platform::Dictionary> KenningPlistFromPath(const std::string& path);
