// Every service of the platform as a double, installed for as long as this lives. All record into
// one list, so that the order between services shows too. An armed fault that has not fired by the
// end fails the test.
#pragma once

#include "platform/platform.h"
#include "tests/support/recorder.h"
#include "tests/support/recording_daemon.h"
#include "tests/support/recording_log.h"
#include "tests/support/recording_media_library.h"
#include "tests/support/recording_services.h"
#include "tests/support/virtual_operating_system.h"

namespace support {

class RecordingPlatform : public platform::Platform {
public:
    RecordingPlatform();
    ~RecordingPlatform() override;
    RecordingPlatform(const RecordingPlatform&) = delete;
    RecordingPlatform& operator=(const RecordingPlatform&) = delete;

    Recorder& recorder() { return _recorder; }
    VirtualScheduler& scheduler() { return _operatingSystem.scheduler(); }
    // Of the media library: the one library that there is.
    RecordingLibrary& library() { return _mediaLibrary.library(); }

    RecordingLog& logService() override { return _log; }
    VirtualOperatingSystem& operatingSystem() override { return _operatingSystem; }
    RecordingDaemon& syncDaemon() override { return _daemon; }
    RecordingMediaLibrary& mediaLibrary() override { return _mediaLibrary; }
    RecordingStoreDownloads& storeDownloads() override { return _storeDownloads; }
    RecordingCloud& cloud() override { return _cloud; }
    RecordingArtworkService& artworkService() override { return _artworkService; }

private:
    Recorder _recorder;
    RecordingLog _log;
    VirtualOperatingSystem _operatingSystem;
    RecordingDaemon _daemon;
    RecordingMediaLibrary _mediaLibrary;
    RecordingStoreDownloads _storeDownloads;
    RecordingCloud _cloud;
    RecordingArtworkService _artworkService;
};

}  // namespace support
