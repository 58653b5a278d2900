// Purpose: writes the host data file that a session's import reads.
// Thread: one at a time.
// Ownership: the file is removed when the object goes.
// Failure: an Error that says why it could not be written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/plan/adoption.h"
#include "host/plan/planner.h"
#include "host/session/materials.h"
#include "platform/errors.h"

namespace host {

struct HostDataInput {
    const Plan& plan;
    const FolderState& state;
    const FolderMaterials& materials;
    std::string libraryUid;  // of the device
    // The revision up to which the owner's changes were taken over; 0: all that was saved.
    std::int64_t coveredRevision = 0;
    // Tracks of the device's own that get a sync id, so that they can be deleted by it.
    const std::vector<DeviceTrack>& named;
};

class HostDataFile {
public:
    // `directory` exists.
    explicit HostDataFile(const std::string& directory);
    ~HostDataFile();
    HostDataFile(const HostDataFile&) = delete;
    HostDataFile& operator=(const HostDataFile&) = delete;

    platform::OptionalError write(const HostDataInput& input);
    const std::string& path() const { return _path; }

private:
    std::string _path;
};

}  // namespace host
