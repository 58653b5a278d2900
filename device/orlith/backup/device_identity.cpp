#include "device/orlith/backup/device_identity.h"

#include <fmt/format.h>
#include <algorithm>

#include "common/random_id.h"
#include "device/system/rooted_file_system.h"

namespace orlith {
namespace {

constexpr char Directory[] = "/var/mobile/Media/Tessel_Control/Tessel";
constexpr char Path[] = "/var/mobile/Media/Tessel_Control/Tessel/Device.identity";
constexpr std::size_t Digits = 32;  // hexadecimal

bool isIdentity(const std::string& text) {
    return text.size() == Digits && std::ranges::all_of(text, [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

}  // namespace

std::string knownDeviceIdentity(device::RootedFileSystem& files) {
    const auto bytes = files.readFile(Path, Digits + 1, nullptr);
    if (!bytes)
        return {};
    std::string text(bytes->begin(), bytes->end());
    if (text.ends_with('\n'))
        text.pop_back();
    return isIdentity(text) ? text : std::string();
}

std::string deviceIdentity(device::RootedFileSystem& files, platform::OptionalError& error) {
    if (std::string known = knownDeviceIdentity(files); !known.empty())
        return known;
    std::string made =
        fmt::format("{:016x}{:016x}", common::randomPositiveId(), common::randomPositiveId());
    error = setDeviceIdentity(files, made);
    return error ? std::string() : made;
}

platform::OptionalError setDeviceIdentity(device::RootedFileSystem& files,
                                          const std::string& identity) {
    if (auto error = files.createDirectory(Directory))
        return error;
    const std::string text = identity + "\n";
    return files.writeFileDurably(
        Path, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

}  // namespace orlith
