// The artwork service's reading and writing of device files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/errors.h"

namespace device {
class RootedFileSystem;
}

namespace artwork {

using PictureBytes = std::vector<std::uint8_t>;

// At most MaximumImageFileSize bytes.
PictureBytes readPicture(device::RootedFileSystem& fileSystem, const std::string& path,
                         platform::OptionalError& error);

// Writes every picture beside its path, then renames them all. On an error none of the paths has a
// new file: one that has none of the pictures' names keeps what it had, the others have nothing.
platform::OptionalError writePictures(device::RootedFileSystem& fileSystem,
                                      const std::vector<std::string>& paths,
                                      const std::vector<PictureBytes>& pictures);

}  // namespace artwork
