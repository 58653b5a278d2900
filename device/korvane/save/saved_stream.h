// Purpose: a "QORX" file that is written beside its place and put there whole and durable.
// Calling thread: any, one at a time.
// Failure: platform errors; without a commit nothing is left.
#pragma once

#include <optional>
#include <string>

#include "common/qorx/writer.h"
#include "common/unique_fd.h"
#include "platform/errors.h"

namespace device {
class RootedFileSystem;
}

namespace korvane {

class SavedStream {
public:
    // `path`: a device path in a directory that exists.
    SavedStream(device::RootedFileSystem& files, std::string path);
    ~SavedStream();
    SavedStream(const SavedStream&) = delete;
    SavedStream& operator=(const SavedStream&) = delete;

    // Writing to it before a successful open fails.
    platform::OptionalError open();
    common::QorxWriter& writer() { return _writer; }
    // Ends the stream, and the file takes its place.
    platform::OptionalError commit();

private:
    platform::OptionalError append(std::span<const std::uint8_t> bytes);

    device::RootedFileSystem& _files;
    const std::string _path;
    std::string _temporaryPath;  // empty once there is none
    common::UniqueFd _file;
    common::QorxWriter _writer;
};

}  // namespace korvane
