// What the library asks about pictures and films, answered by the artwork service's pieces.
//
// Any thread. The file system outlives them.
#pragma once

#include <string>

#include "device/artwork/frame_grabber.h"
#include "device/korvane/configuration.h"
#include "device/system/rooted_file_system.h"

namespace orlith {

class FilmFrames final : public korvane::FrameGrabber {
public:
    FilmFrames(device::RootedFileSystem& files, std::string helperPath)
        : _files(files), _grabber(std::move(helperPath)) {}
    std::optional<platform::Data> grabFrame(const std::string& path, double seconds,
                                            platform::OptionalError* error) override;

private:
    device::RootedFileSystem& _files;
    const artwork::FrameGrabber _grabber;
};

class PictureInspector final : public korvane::ArtworkInspector {
public:
    explicit PictureInspector(device::RootedFileSystem& files) : _files(files) {}
    bool isShowablePicture(const std::string& path) override;

private:
    device::RootedFileSystem& _files;
};

// The program that takes frames out of films: beside this one, or in the folder of its helpers.
std::string frameGrabberProgram();

}  // namespace orlith
