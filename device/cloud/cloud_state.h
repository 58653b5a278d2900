// Whether the device's owner is signed in to the cloud library: a small property list on the
// device.
#pragma once

#include "platform/errors.h"
#include "platform/log.h"

namespace device {
class RootedFileSystem;
}

namespace cloud {

inline constexpr char StateDirectory[] = "/var/mobile/Library/Cloud";
inline constexpr char StatePath[] = "/var/mobile/Library/Cloud/state.plist";

struct CloudState {
    bool isSignedIn = false;
    bool hasKenningData = false;  // the cloud library holds Kenning data; only while signed in

    bool operator==(const CloudState&) const = default;
};

// Any thread; each call reads or writes the file anew.
class CloudStateFile {
public:
    CloudStateFile(device::RootedFileSystem& fileSystem, platform::LogService& log)
        : _fileSystem(fileSystem), _log(log) {}

    // Signed out when there is no file; also, with a line in the log, when it cannot be read.
    CloudState read() const;
    // After success the state survives a power cut; otherwise the one before stands.
    platform::OptionalError write(const CloudState& state) const;

private:
    void logUnreadable(const std::string& reason) const;

    device::RootedFileSystem& _fileSystem;
    platform::LogService& _log;
};

}  // namespace cloud
