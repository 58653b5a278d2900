#include "host/session/upload_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <span>

#include "host/scan/file_names.h"

namespace host {

namespace {

constexpr std::size_t LongestName = 200;
constexpr int MostNamesTried = 10'000;

}  // namespace

std::string safeFileName(std::string_view name) {
    std::string safe = displayText(name, LongestName);
    for (char& c : safe)
        if (c == '/' || c == '\0')
            c = '_';
    while (safe.starts_with('.'))
        safe.erase(0, 1);
    return safe.empty() ? "upload" : safe;
}

std::int64_t fileSize(const std::string& path) {
    struct stat file {};
    return ::stat(path.c_str(), &file) == 0 ? file.st_size : 0;
}

UploadFile::UploadFile(std::string directory, std::string_view name)
    : _directory(std::move(directory)), _name(safeFileName(name)) {
    std::error_code error;
    std::filesystem::create_directories(_directory, error);
    if (error) {
        fail(error.message());
        return;
    }
    _partialPath = fmt::format("{}/.orlith-upload-{}", _directory, ::getpid());
    _fd.reset(
        ::open(_partialPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (!_fd)
        fail(std::strerror(errno));
}

UploadFile::~UploadFile() {
    if (_fd)
        ::unlink(_partialPath.c_str());
}

void UploadFile::write(std::string_view bytes) {
    if (!_failure.empty())
        return;
    _hasher.update(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
    while (!bytes.empty()) {
        const ssize_t written = ::write(_fd.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return fail(std::strerror(errno));
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void UploadFile::finish(const std::optional<ContentHash>& expected) {
    if (!_failure.empty())
        return;
    if (expected && *expected != _hasher.digest())
        return fail("it arrived damaged");
    if (::fsync(_fd.get()) != 0)
        return fail(std::strerror(errno));
    moveIntoPlace();
}

void UploadFile::moveIntoPlace() {
    const std::string stem(stemOfPath(_name));
    const std::string extension = _name.substr(stem.size());
    for (int number = 1; number <= MostNamesTried; ++number) {
        const std::string path =
            number == 1 ? fmt::format("{}/{}", _directory, _name)
                        : fmt::format("{}/{} ({}){}", _directory, stem, number, extension);
        if (::renameat2(AT_FDCWD, _partialPath.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) ==
            0) {
            _path = path;
            _fd.reset();
            const common::UniqueFd directory(
                ::open(_directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            if (!directory || ::fsync(directory.get()) != 0)
                fail(std::strerror(errno));
            return;
        }
        if (errno != EEXIST)
            return fail(std::strerror(errno));
    }
    fail("too many files of that name are there");
}

void UploadFile::fail(std::string_view reason) {
    if (_failure.empty())
        _failure = reason;
}

}  // namespace host
