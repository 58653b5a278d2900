#include "tests/support/recording_platform.h"

#include <gtest/gtest.h>

namespace support {

RecordingPlatform::RecordingPlatform()
    : _operatingSystem(_recorder),
      _daemon(_recorder, _operatingSystem.scheduler()),
      _mediaLibrary(_recorder, _operatingSystem.scheduler(), _operatingSystem.fileSystem()),
      _storeDownloads(_recorder, _operatingSystem.scheduler()),
      _cloud(_recorder),
      _artworkService(_recorder, _operatingSystem.scheduler()) {
    install(this);
}

RecordingPlatform::~RecordingPlatform() {
    // Jobs may hold the last references to what still calls the platform.
    scheduler().discardJobs();
    for (const std::string& fault : _recorder.faultsLeft())
        ADD_FAILURE() << "an armed fault never fired: " << fault;
    install(nullptr);
}

}  // namespace support
