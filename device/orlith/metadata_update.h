// A metadata update of one track, handed to the plug-in and looked at afterwards: the plug-in only
// logs what became of it.
//
// Any thread that has the session's place.
#pragma once

#include <string>

#include "link/reports.pb.h"
#include "platform/errors.h"
#include "platform/sync_daemon.h"

namespace korvane {
class Library;
}
namespace platform {
class PropertyLists;
}

namespace orlith {

class LibraryAccess;

// All of it is borrowed.
struct MetadataUpdateParts {
    ORClient& client;
    korvane::Library& library;
    LibraryAccess& access;
    SyncDaemonServices& daemon;
    platform::PropertyLists& propertyLists;
};

// Absent when the device has taken the update: its anchor is the new one. `title` becomes the
// track's.
platform::OptionalError updateMetadata(const MetadataUpdateParts& parts,
                                       const link::UpdateMetadataRequest& request,
                                       std::string& title);

}  // namespace orlith
