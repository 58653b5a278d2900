// Two daemons as processes, each with the real plug-in and library over a directory of its own: one
// brings itself up to date from the other.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "link/peer.grpc.pb.h"
#include "tests/device/orlith/daemon_process.h"
#include "tests/device/orlith/host_library.h"

namespace orlith::testing {

// Asked after each event of a run; false leaves.
using EventCheck = std::function<bool(const link::MirrorEvent&)>;

// What a run told.
struct MirrorRun {
    grpc::Status status;
    std::vector<link::MirrorStarted> starts;
    std::vector<link::MirrorSummary> summaries;
    std::vector<link::MirrorAsset> failures;

    const link::MirrorSummary& summary() const { return summaries.back(); }
};

std::unique_ptr<link::Mirror::Stub> mirrorOf(DeviceProcess& device);
// From a device directory, which need not be that of a DeviceProcess.
link::MirrorRequest requestFrom(const std::string& root);
MirrorRun run(
    const link::MirrorRequest& request, DeviceProcess& to,
    const EventCheck& goesOn = [](const link::MirrorEvent&) { return true; });
// One that must end well, with nothing that did not come.
MirrorRun mirror(DeviceProcess& from, DeviceProcess& to);

link::RevisionReply revisions(DeviceProcess& device);
std::int64_t revision(DeviceProcess& device);
void rate(DeviceProcess& device, const std::string& track, unsigned stars);
// Imports a change stream as it came from Export.
grpc::Status importChanges(DeviceProcess& device, const std::vector<link::ChangeStream>& messages,
                           link::ImportReply& reply);
std::vector<link::ChangeStream> exportChanges(DeviceProcess& device);

std::vector<link::TrackRow> tracksOf(DeviceProcess& device);
// Fails when two tracks have one title.
std::map<std::string, link::TrackRow> tracksByTitle(DeviceProcess& device);
// The titles of each playlist's tracks, in order; not of the library's own.
std::map<std::string, std::vector<std::string>> playlists(DeviceProcess& device);
// All that an owner would miss: tracks, their files, pictures, ratings and playlists; a line each.
std::string contentOf(DeviceProcess& device);
// Every track has its own file, whole, and nothing else lies about.
void expectComplete(DeviceProcess& device, const HostLibrary& library);
// Nothing travels any more, either way.
void expectQuiet(DeviceProcess& one, DeviceProcess& other);
// Waits until no session holds the device.
void waitUntilFree(DeviceProcess& device);
// Waits for what another process does; false when it does not in time.
bool eventually(const std::function<bool()>& condition);

class Mirrors : public ::testing::Test {
protected:
    DeviceProcess first;
    DeviceProcess companion;
};

}  // namespace orlith::testing
