// A file system in memory, with the rules of a device's: hard links share content, links and moves
// fail when something is at the destination, unlink refuses directories. "/private" in front leads
// to the same place as without it. Callable from any thread.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/operating_system.h"
#include "tests/support/recorder.h"

namespace support {

class MemoryFileSystem : public platform::FileSystem {
public:
    explicit MemoryFileSystem(Recorder& recorder);

    // Sets up without being recorded; missing parents are made.
    void addFile(const std::string& path, platform::Data content = {});
    void addDirectory(const std::string& path);
    // A sparse file: only its size is kept.
    void addFileOfSize(const std::string& path, std::uint64_t size);
    // All paths below a directory, sorted, without being recorded.
    std::vector<std::string> pathsBelow(const std::string& path) const;
    bool contains(const std::string& path) const;

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

private:
    struct Content {
        platform::Data bytes;
        std::uint64_t size = 0;
    };
    // Null content: a directory.
    using Nodes = std::map<std::string, std::shared_ptr<const Content>>;

    // The nodes below a directory, which is normalised. _mutex is held.
    std::vector<std::string> below(const std::string& directory) const;
    int linkProblem(const std::string& from, const std::string& to) const;
    void makeDirectories(const std::string& path);

    Recorder& _recorder;
    mutable std::mutex _mutex;
    Nodes _nodes;  // guarded by _mutex; by normalised path
};

}  // namespace support
