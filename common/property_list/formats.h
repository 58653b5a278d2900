// The readers and writers of the two formats. Each takes input of at most limits.h's maxBytes and
// stores the reason of a refusal.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/errors.h"
#include "platform/values.h"

namespace common::property_list {

bool isBinary(std::span<const std::uint8_t> bytes);

std::optional<platform::Value> readBinary(std::span<const std::uint8_t> bytes,
                                          platform::Error& reason);
std::optional<platform::Value> readXml(std::span<const std::uint8_t> bytes,
                                       platform::Error& reason);
std::optional<platform::Data> writeBinary(const platform::Value& value, platform::Error& reason);
std::optional<platform::Data> writeXml(const platform::Value& value, platform::Error& reason);

}  // namespace common::property_list
