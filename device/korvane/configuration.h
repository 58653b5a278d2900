// Purpose: what the library is made of that others supply.
// Calling thread: pictures and films are looked at on the thread that asks.
// Ownership: everything is borrowed and outlives the library.
#pragma once

#include <optional>
#include <string>

#include "platform/errors.h"
#include "platform/log.h"
#include "platform/operating_system.h"

namespace device {
class RootedFileSystem;
}

namespace korvane {

// Takes still pictures from films.
class FrameGrabber {
public:
    virtual ~FrameGrabber() = default;
    // A JPEG of the frame that a film (a device path) shows at a time in seconds, 0 or more. A time
    // beyond the end gives the last frame. Absent, with a reason, when the file is no film.
    virtual std::optional<platform::Data> grabFrame(const std::string& path, double seconds,
                                                    platform::OptionalError* error) = 0;
};

// Looks at received pictures before the library takes them.
class ArtworkInspector {
public:
    virtual ~ArtworkInspector() = default;
    // Whether the file (a device path) is a picture of a kind and size that the library can show.
    // The file is untrusted.
    virtual bool isShowablePicture(const std::string& path) = 0;
};

inline constexpr char MediaDirectory[] = "/var/mobile/Media/";
inline constexpr char DefaultDatabasePath[] =
    "/var/mobile/Media/Tessel_Control/Tessel/MediaLibrary.sqlitedb";
inline constexpr char DefaultAccountDatabasePath[] =
    "/var/mobile/Media/Tessel_Control/Tessel/AccountCache.sqlitedb";

struct Configuration {
    device::RootedFileSystem& files;
    platform::OperatingSystem& system;
    platform::LogService& logService;
    FrameGrabber& frameGrabber;
    ArtworkInspector& artworkInspector;
    std::string databasePath = DefaultDatabasePath;
    std::string accountDatabasePath = DefaultAccountDatabasePath;
};

// Of opening the library.
inline constexpr std::string_view LibraryErrorDomain = "KV3KorvaneErrorDomain";
enum LibraryErrorCode : std::int64_t {
    LibraryErrorDamaged = 1,     // the database lost something; it can be set aside
    LibraryErrorCannotOpen = 2,  // not there, not readable, no space, of a newer version
    LibraryErrorRefused = 3,     // an edit that makes no sense
    LibraryErrorNotFound = 4,    // an edit of something that is not there, or not there alone
};

}  // namespace korvane
