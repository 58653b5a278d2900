#include "device/system/rooted_file_system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "device/system/directory_listing.h"
#include "device/system/memory_streams.h"
#include "device/system/posix_errors.h"

namespace device {
namespace {

using platform::Data;
using platform::Error;
using platform::OptionalError;

constexpr std::size_t readChunk = 64 * 1024;

// Appends at most `count` bytes to `out`; gives 0 or an errno value.
int readSome(int fd, Data& out, std::size_t count) {
    const std::size_t before = out.size();
    out.resize(before + count);
    ssize_t got;
    do {
        got = ::read(fd, out.data() + before, count);
    } while (got < 0 && errno == EINTR);
    const int failed = got < 0 ? errno : 0;
    out.resize(before + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return failed;
}

class FileInputStream final : public platform::InputStream {
public:
    FileInputStream(common::UniqueFd fd, std::string path)
        : _fd(std::move(fd)), _path(std::move(path)) {}

    OptionalError read(Data& out, std::size_t count) override {
        if (!_fd)
            return Error::posix(EBADF);
        const int failed = readSome(_fd.get(), out, count);
        if (failed)
            _fd.reset();
        return posixError(failed);
    }
    std::string description() const override { return "<InputStream: " + _path + ">"; }

private:
    common::UniqueFd _fd;  // empty after an error
    const std::string _path;
};

}  // namespace

RootedFileSystem::RootedFileSystem(std::string deviceRoot) : _root(std::move(deviceRoot)) {}

std::optional<std::vector<std::string>> RootedFileSystem::contentsOfDirectory(
    const std::string& path, OptionalError* error) {
    common::UniqueFd directory;
    std::vector<DirectoryEntry> entries;
    int failed = _root.open(path, O_RDONLY | O_DIRECTORY, 0, directory);
    if (!failed)
        failed = readDirectory(std::move(directory), entries);
    storePosixError(failed, error);
    if (failed)
        return std::nullopt;
    std::vector<std::string> names;
    names.reserve(entries.size());
    for (DirectoryEntry& entry : entries)
        names.push_back(std::move(entry.name));
    return names;
}

std::vector<std::string> RootedFileSystem::subpathsOfDirectory(const std::string& path) {
    std::vector<std::string> subpaths;
    walk(path, [&](int, const std::string& relativePath, const DirectoryEntry&) {
        subpaths.push_back(relativePath);
    });
    return subpaths;
}

void RootedFileSystem::walk(const std::string& path, const WalkBlock& block) const {
    std::vector<std::string> pending{""};
    while (!pending.empty()) {
        const std::string folder = std::move(pending.back());
        pending.pop_back();
        common::UniqueFd directory;
        std::vector<DirectoryEntry> entries;
        // One that took a directory's place since is not followed.
        const int noFollow = folder.empty() ? 0 : O_NOFOLLOW;
        if (_root.open(path + folder, O_RDONLY | O_DIRECTORY | noFollow, 0, directory) ||
            readDirectory(common::UniqueFd(::fcntl(directory.get(), F_DUPFD_CLOEXEC, 0)), entries))
            continue;
        for (const DirectoryEntry& entry : entries) {
            std::string child = folder + "/" + entry.name;
            block(directory.get(), child.substr(1), entry);
            if (entry.isDirectory)
                pending.push_back(std::move(child));
        }
    }
}

bool RootedFileSystem::fileExists(const std::string& path) {
    common::UniqueFd item;
    return _root.open(path, O_PATH, 0, item) == 0;
}

std::optional<platform::FileAttributes> RootedFileSystem::attributes(const std::string& path,
                                                                     OptionalError* error) {
    common::UniqueFd item;
    struct stat status {};
    int failed = _root.open(path, O_PATH, 0, item);
    if (!failed && ::fstat(item.get(), &status) != 0)
        failed = errno;
    storePosixError(failed, error);
    if (failed)
        return std::nullopt;
    return platform::FileAttributes{.size = static_cast<std::uint64_t>(status.st_size),
                                    .isDirectory = S_ISDIR(status.st_mode),
                                    .isRegularFile = S_ISREG(status.st_mode)};
}

int RootedFileSystem::placeBoth(const std::string& from, const std::string& to,
                                RootDirectory::Place& source, RootDirectory::Place& target) const {
    const int failed = _root.place(from, source);
    return failed ? failed : _root.place(to, target);
}

OptionalError RootedFileSystem::linkItem(const std::string& from, const std::string& to) {
    RootDirectory::Place source, target;
    if (const int failed = placeBoth(from, to, source, target))
        return posixError(failed);
    const int result = ::linkat(source.parent.get(), source.name.c_str(), target.parent.get(),
                                target.name.c_str(), 0);
    return posixError(result == 0 ? 0 : errno);
}

OptionalError RootedFileSystem::moveItem(const std::string& from, const std::string& to) {
    RootDirectory::Place source, target;
    if (const int failed = placeBoth(from, to, source, target))
        return posixError(failed);
    const int result = ::renameat2(source.parent.get(), source.name.c_str(), target.parent.get(),
                                   target.name.c_str(), RENAME_NOREPLACE);
    return posixError(result == 0 ? 0 : errno);
}

OptionalError RootedFileSystem::removeItem(const std::string& path) {
    RootDirectory::Place place;
    int failed = _root.place(path, place);
    if (!failed)
        failed = removeTree(place.parent.get(), place.name);
    return posixError(failed);
}

int RootedFileSystem::unlink(const std::string& path) {
    RootDirectory::Place place;
    if (const int failed = _root.place(path, place))
        return failed;
    return ::unlinkat(place.parent.get(), place.name.c_str(), 0) == 0 ? 0 : errno;
}

OptionalError RootedFileSystem::createDirectory(const std::string& path) {
    return posixError(_root.createDirectory(path));
}

std::optional<Data> RootedFileSystem::readFile(const std::string& path, std::uint64_t limit,
                                               OptionalError* error) {
    const common::UniqueFd file = openFile(path, O_RDONLY, 0, error);
    if (!file)
        return std::nullopt;
    Data bytes;
    int failed = 0;
    std::size_t before;
    do {
        before = bytes.size();
        // One byte more than allowed tells a file of the limit from a larger one.
        const std::uint64_t room = limit - before;
        failed = readSome(file.get(), bytes, room < readChunk ? room + 1 : readChunk);
        if (bytes.size() > limit)
            failed = EFBIG;
    } while (!failed && bytes.size() > before);
    storePosixError(failed, error);
    if (failed)
        return std::nullopt;
    return bytes;
}

std::unique_ptr<platform::InputStream> RootedFileSystem::openInputStream(const std::string& path) {
    common::UniqueFd file = openFile(path, O_RDONLY, 0, nullptr);
    if (!file)
        return nullptr;
    return std::make_unique<FileInputStream>(std::move(file), path);
}

std::string RootedFileSystem::errorText(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

std::unique_ptr<platform::InputStream> RootedFileSystem::makeInputStream(Data bytes) {
    return makeMemoryInputStream(std::move(bytes));
}

std::unique_ptr<platform::MemoryOutputStream> RootedFileSystem::makeMemoryOutputStream() {
    return device::makeMemoryOutputStream();
}

}  // namespace device
