// Where a download may come from: an http, https or file address. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/errors.h"

namespace downloads {

enum class Scheme { Http, Https, File };

struct Address {
    Scheme scheme = Scheme::Https;
    std::string url;   // as it is fetched; of a file, the address as it was given
    std::string path;  // decoded and absolute; what a file is opened by, else for its name alone
};

// Longest address, in bytes.
inline constexpr std::size_t MaximumAddressSize = 8192;

// Absent, with plain words in `error` (EINVAL), for every other scheme, for a file of another
// machine, and for an address that holds a name or password: it would be shown in lists and logs.
std::optional<Address> parseAddress(std::string_view text, platform::OptionalError& error);

// The path that a URL names, decoded; "" when it is none.
std::string pathOfUrl(std::string_view url);

}  // namespace downloads
