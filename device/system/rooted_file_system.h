// The embedded device's file system: the platform's operations, and those that the device's own
// services need beside them, all confined to the device directory.
//
// Any thread; immutable after construction. Only regular files are opened: a FIFO, socket or device
// node is refused without blocking. An absent `error` slot (null) is allowed everywhere. Errors are
// of POSIXErrorDomain.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"
#include "device/system/root_directory.h"
#include "platform/operating_system.h"

namespace device {

struct DirectoryEntry;

class RootedFileSystem final : public platform::FileSystem {
public:
    // A file whose name begins so was being written when the device stopped; nothing refers to it.
    static constexpr std::string_view TemporaryPrefix = ".orlith-partial-";

    // Makes the device directory when it is missing. Throws std::system_error when it cannot be
    // made or opened.
    explicit RootedFileSystem(std::string deviceRoot);

    // platform::FileSystem
    std::optional<std::vector<std::string>> contentsOfDirectory(
        const std::string& path, platform::OptionalError* error) override;
    std::vector<std::string> subpathsOfDirectory(const std::string& path) override;
    bool fileExists(const std::string& path) override;
    std::optional<platform::FileAttributes> attributes(const std::string& path,
                                                       platform::OptionalError* error) override;
    platform::OptionalError linkItem(const std::string& from, const std::string& to) override;
    platform::OptionalError moveItem(const std::string& from, const std::string& to) override;
    platform::OptionalError removeItem(const std::string& path) override;
    int unlink(const std::string& path) override;
    platform::OptionalError createDirectory(const std::string& path) override;
    std::optional<platform::Data> readFile(const std::string& path, std::uint64_t limit,
                                           platform::OptionalError* error) override;
    std::unique_ptr<platform::InputStream> openInputStream(const std::string& path) override;
    std::string errorText(int errorNumber) override;
    std::unique_ptr<platform::InputStream> makeInputStream(platform::Data bytes) override;
    std::unique_ptr<platform::MemoryOutputStream> makeMemoryOutputStream() override;

    // A regular file, opened with open(2) flags; `mode` counts when O_CREAT is among them. Empty on
    // failure.
    common::UniqueFd openFile(const std::string& path, int flags, unsigned mode,
                              platform::OptionalError* error);
    // A new file whose name begins with TemporaryPrefix in a directory, opened for reading and
    // writing; its path is stored. Whoever asked for it renames or removes it.
    common::UniqueFd openTemporary(const std::string& directory, std::string& path,
                                   platform::OptionalError* error);
    // As moveItem, but what is at `to` is replaced (an empty directory by a directory, a file by a
    // file).
    platform::OptionalError renameReplacing(const std::string& from, const std::string& to);
    // Waits until a file's contents are on the disk.
    platform::OptionalError syncFile(const std::string& path);
    // Waits until a directory's entries are on the disk.
    platform::OptionalError syncDirectory(const std::string& path);
    // Replaces a small file whole: after success the new contents survive a power cut; after a
    // failure or a crash the file is either the old one or the new one. The directory must exist.
    platform::OptionalError writeFileDurably(const std::string& path,
                                             std::span<const std::uint8_t> bytes);
    // Bytes that an unprivileged process may still write where `path` lies.
    std::optional<std::uint64_t> freeSpace(const std::string& path, platform::OptionalError* error);
    // Bytes in which the file system that holds `path` gives out its space; 0 when it cannot be
    // asked.
    std::uint64_t blockSize(const std::string& path);
    // Bytes on disk of everything below a directory, as the file system counts them: holes of a
    // sparse file take none, a file with several names counts once, and of a link the link itself.
    // What cannot be looked at counts 0.
    std::uint64_t diskUsage(const std::string& path);
    // Where a path of the device's own making lies on the real disk, by its text alone. Never for a
    // name that came from a host: links on the way are not confined. Empty for a path that is not
    // absolute, holds a NUL, or has a ".." in it.
    std::string realPath(const std::string& devicePath) const;

private:
    // Everything below a directory, each entry once, a directory before what it holds: an open
    // descriptor of where it lies, and its path from the first directory. Links are not followed,
    // but for the first.
    using WalkBlock = std::function<void(int directory, const std::string& relativePath,
                                         const DirectoryEntry& entry)>;
    void walk(const std::string& path, const WalkBlock& block) const;
    int placeBoth(const std::string& from, const std::string& to, RootDirectory::Place& source,
                  RootDirectory::Place& target) const;

    const RootDirectory _root;
};

}  // namespace device
