// Pictures and films by their device paths. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "device/artwork/image_check.h"
#include "platform/errors.h"

namespace device {
class RootedFileSystem;
}

namespace artwork {

class FrameGrabber;

using PictureBytes = std::vector<std::uint8_t>;

// At most MaximumImageFileSize bytes.
PictureBytes readPicture(device::RootedFileSystem& fileSystem, const std::string& path,
                         platform::OptionalError& error);

// Writes every picture beside its path, then renames them all. On an error none of the paths has a
// new file: one that has none of the pictures' names keeps what it had, the others have nothing.
platform::OptionalError writePictures(device::RootedFileSystem& fileSystem,
                                      const std::vector<std::string>& paths,
                                      const std::vector<PictureBytes>& pictures);

// As checkImageFile; what is no regular file of the device is refused too.
ImageCheck checkPicture(device::RootedFileSystem& fileSystem, const std::string& path);

// As FrameGrabber::grab.
PictureBytes grabFrame(device::RootedFileSystem& fileSystem, const FrameGrabber& grabber,
                       const std::string& path, double seconds, platform::OptionalError& error);

}  // namespace artwork
