#include "device/korvane/save/saved_stream.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "device/system/rooted_file_system.h"

namespace korvane {

using platform::Error;
using platform::OptionalError;

namespace {

std::string directoryOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

}  // namespace

SavedStream::SavedStream(device::RootedFileSystem& files, std::string path)
    : _files(files),
      _path(std::move(path)),
      _writer([this](std::span<const std::uint8_t> bytes) { return append(bytes); }) {}

SavedStream::~SavedStream() {
    if (!_temporaryPath.empty()) {
        _files.unlink(_temporaryPath);
    }
}

OptionalError SavedStream::open() {
    OptionalError error;
    std::string path;
    _file = _files.openTemporary(directoryOf(_path), path, &error);
    if (_file) {
        _temporaryPath = std::move(path);
    }
    return error;
}

OptionalError SavedStream::append(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(_file.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return Error::posix(written < 0 ? errno : EIO);
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return std::nullopt;
}

OptionalError SavedStream::commit() {
    if (OptionalError error = _writer.end()) {
        return error;
    }
    if (::fdatasync(_file.get()) != 0) {
        return Error::posix(errno);
    }
    if (OptionalError error = _files.renameReplacing(_temporaryPath, _path)) {
        return error;
    }
    _temporaryPath.clear();
    return _files.syncDirectory(directoryOf(_path));
}

}  // namespace korvane
