// Purpose: a device's own lists in the host's terms.
// Thread: as DeviceConnection.
// Failure: Errors of the connection.
#pragma once

#include <vector>

#include "host/plan/adoption.h"
#include "platform/errors.h"

namespace host {

class DeviceConnection;

struct DeviceLists {
    std::vector<DeviceTrack> tracks;
    std::vector<DevicePlaylist> playlists;
};

platform::OptionalError readDeviceLists(DeviceConnection& connection, DeviceLists& lists);

}  // namespace host
