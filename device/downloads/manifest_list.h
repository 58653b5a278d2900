// The manifest's form on the disk: a property list, {"Version": 1, "Files": [{"Name", "Class"}]}.
//
// Any thread; no state. The bytes are untrusted.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>

#include "device/downloads/download_installer.h"
#include "platform/errors.h"
#include "platform/values.h"

namespace downloads {

// Absent with a reason in plain words when it is no manifest.
std::optional<std::map<std::string, FileClass>> parseManifest(std::span<const std::uint8_t> bytes,
                                                              platform::OptionalError& error);
// Absent with a reason when there are more files than a property list may hold.
std::optional<platform::Data> serializeManifest(const std::map<std::string, FileClass>& classes,
                                                platform::OptionalError& error);

// Whether a file of the directory of purchases may be called so: one component, no control
// characters, no more than 255 bytes of UTF-8, and not hidden.
bool isPurchaseFileName(std::string_view name);

}  // namespace downloads
