#include "device/cloud/cloud_state.h"

#include <fmt/format.h>

#include <cerrno>

#include "common/property_list/property_list.h"
#include "device/system/rooted_file_system.h"

namespace cloud {
namespace {

constexpr char LogCategory[] = "orlith.cloud";
constexpr std::uint64_t MaximumFileSize = 64 << 10;  // bytes; ours has less than 1 KiB
constexpr char SignedInKey[] = "SignedIn";
constexpr char KenningDataKey[] = "HasKenningData";

}  // namespace

CloudState CloudStateFile::read() const {
    platform::OptionalError error;
    const auto bytes = _fileSystem.readFile(StatePath, MaximumFileSize, &error);
    if (!bytes) {
        // No file is how a device begins: nobody ever signed in.
        if (error != platform::Error::posix(ENOENT))
            logUnreadable(error->text());
        return {};
    }
    const auto value = common::parsePropertyList(*bytes, &error);
    if (!value || !(*value)[SignedInKey].isBoolean()) {
        logUnreadable(value ? "It does not say whether anybody is signed in." : error->text());
        return {};
    }
    CloudState state;
    state.isSignedIn = (*value)[SignedInKey].boolValue();
    state.hasKenningData = state.isSignedIn && (*value)[KenningDataKey].boolValue();
    return state;
}

platform::OptionalError CloudStateFile::write(const CloudState& state) const {
    platform::OptionalError error;
    const platform::Value value(platform::Dictionary{{SignedInKey, state.isSignedIn},
                                                     {KenningDataKey, state.hasKenningData}});
    const auto bytes =
        common::serializePropertyList(value, platform::PropertyListFormat::XML, &error);
    if (!bytes)
        return error;
    if (platform::OptionalError failure = _fileSystem.createDirectory(StateDirectory))
        return failure;
    return _fileSystem.writeFileDurably(StatePath, *bytes);
}

void CloudStateFile::logUnreadable(const std::string& reason) const {
    _log.log({platform::LogLevel::Error, LogCategory, "device/cloud/cloud_state", "read", __LINE__,
              fmt::format("The state of the cloud cannot be read from {}; the owner counts as "
                          "signed out. {}",
                          StatePath, reason)});
}

}  // namespace cloud
