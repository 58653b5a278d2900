#include "device/artwork/picture_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>

#include "device/artwork/frame_grabber.h"
#include "device/artwork/image_file.h"
#include "device/system/rooted_file_system.h"

namespace artwork {
namespace {

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

platform::OptionalError writeAll(int fd, const PictureBytes& bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return platform::Error::posix(errno);
        written += static_cast<std::size_t>(count);
    }
    return std::nullopt;
}

// Files that are removed again unless they have been taken over.
class PendingFiles {
public:
    explicit PendingFiles(device::RootedFileSystem& fileSystem) : _fileSystem(fileSystem) {}
    PendingFiles(const PendingFiles&) = delete;
    PendingFiles& operator=(const PendingFiles&) = delete;
    ~PendingFiles() {
        for (const std::string& path : _paths)
            _fileSystem.unlink(path);
    }
    void add(std::string path) { _paths.push_back(std::move(path)); }
    std::string& operator[](std::size_t index) { return _paths[index]; }
    void takeOver() { _paths.clear(); }

private:
    device::RootedFileSystem& _fileSystem;
    std::vector<std::string> _paths;
};

}  // namespace

PictureBytes readPicture(device::RootedFileSystem& fileSystem, const std::string& path,
                         platform::OptionalError& error) {
    const common::UniqueFd file = fileSystem.openFile(path, O_RDONLY, 0, &error);
    if (!file)
        return {};
    return readWholeFile(file.get(), MaximumImageFileSize, error).value_or(PictureBytes());
}

platform::OptionalError writePictures(device::RootedFileSystem& fileSystem,
                                      const std::vector<std::string>& paths,
                                      const std::vector<PictureBytes>& pictures) {
    PendingFiles pending(fileSystem);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        platform::OptionalError error;
        std::string temporary;
        const common::UniqueFd file =
            fileSystem.openTemporary(directoryOf(paths[i]), temporary, &error);
        if (!file)
            return error;
        pending.add(std::move(temporary));
        if (platform::OptionalError failure = writeAll(file.get(), pictures[i]))
            return failure;
    }
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (platform::OptionalError failure = fileSystem.renameReplacing(pending[i], paths[i]))
            return failure;
        pending[i] = paths[i];
    }
    pending.takeOver();
    return std::nullopt;
}

ImageCheck checkPicture(device::RootedFileSystem& fileSystem, const std::string& path) {
    platform::OptionalError error;
    const common::UniqueFd file = fileSystem.openFile(path, O_RDONLY, 0, &error);
    if (!file)
        return {std::nullopt, fmt::format("The file cannot be opened: {}", error->text()), false};
    return checkImageFile(file.get());
}

PictureBytes grabFrame(device::RootedFileSystem& fileSystem, const FrameGrabber& grabber,
                       const std::string& path, double seconds, platform::OptionalError& error) {
    const common::UniqueFd film = fileSystem.openFile(path, O_RDONLY, 0, &error);
    return film ? grabber.grab(film.get(), seconds, error) : PictureBytes();
}

}  // namespace artwork
