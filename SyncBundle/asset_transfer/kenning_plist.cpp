#include "SyncBundle/asset_transfer/kenning_plist.h"

#include "SyncBundle/log.h"
#include "platform/platform.h"

std::optional<platform::Dictionary> KenningPlistFromPath(const std::string& path) {
    constexpr std::string_view operation = "KenningPlistFromPath";
    platform::OperatingSystem& system = platform::Platform::current().operatingSystem();
    const std::unique_ptr<platform::InputStream> stream = system.fileSystem().openInputStream(path);
    if (!stream) {
        KVLogTo(ORLogCategory, Error, operation, "Could not open read stream %@: %@", nullptr,
                path);
        return std::nullopt;
    }
    platform::OptionalError error;
    const platform::Value plist =
        system.propertyLists().parse(*stream, &error).value_or(platform::Value());
    const platform::Dictionary* dictionary = plist.dictionary();
    if (!dictionary)
        KVLogTo(ORLogCategory, Error, operation, "Could not read plist stream %@: %@", path, error);

    if (const int errorNumber = system.fileSystem().unlink(path); errorNumber == 0)
        KVLogTo(ORLogCategory, Debug, operation, "Deleted kenning plist %@", path);
    else
        KVLogTo(ORLogCategory, Error, operation, "Could not delete kenning plist %@: %s", path,
                system.fileSystem().errorText(errorNumber));
    return dictionary ? std::optional(*dictionary) : std::nullopt;
}
