#include "host/session/device_directory.h"

#include <fmt/format.h>

#include <filesystem>

#include "host/scan/file_names.h"
#include "host/session/link_error.h"

namespace host {

std::string existingDevice(const std::string& directory, platform::OptionalError& error) {
    std::error_code failed;
    const std::filesystem::path path = std::filesystem::canonical(directory, failed);
    if (!failed && std::filesystem::is_directory(path / "var", failed))
        return path.string();
    error = platform::Error(LinkErrorDomain, LinkErrorNotFound,
                            fmt::format("{}: there is no device", displayText(directory)));
    return {};
}

}  // namespace host
