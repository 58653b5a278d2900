#include "tests/support/memory_file_system.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "tests/support/recording_streams.h"

namespace support {
namespace {

using platform::Error;
using platform::OptionalError;

// What a fault gives.
constexpr int injectedError = EIO;

// Without "/private" in front, empty components and a slash at the end.
std::string normalised(std::string_view path) {
    if (path == "/private" || path.starts_with("/private/"))
        path.remove_prefix(std::string_view("/private").size());
    std::string result;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view component = path.substr(0, slash);
        if (!component.empty())
            result.append("/").append(component);
        path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    }
    return result;
}

bool isDevicePath(std::string_view path) {
    return path.starts_with('/') && path.find('\0') == std::string_view::npos;
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

void report(int errorNumber, OptionalError* error) {
    if (error)
        *error = Error::posix(errorNumber);
}

}  // namespace

// "" is the root.
MemoryFileSystem::MemoryFileSystem(Recorder& recorder) : _recorder(recorder) {
    _nodes.emplace("", nullptr);
}

void MemoryFileSystem::makeDirectories(const std::string& path) {
    if (_nodes.contains(path))
        return;
    makeDirectories(parentOf(path));
    _nodes.emplace(path, nullptr);
}

void MemoryFileSystem::addFile(const std::string& path, platform::Data content) {
    const std::lock_guard lock(_mutex);
    const std::string target = normalised(path);
    makeDirectories(parentOf(target));
    const std::uint64_t size = content.size();
    _nodes[target] = std::make_shared<const Content>(Content{std::move(content), size});
}

void MemoryFileSystem::addFileOfSize(const std::string& path, std::uint64_t size) {
    addFile(path);
    const std::lock_guard lock(_mutex);
    _nodes[normalised(path)] = std::make_shared<const Content>(Content{{}, size});
}

void MemoryFileSystem::addDirectory(const std::string& path) {
    const std::lock_guard lock(_mutex);
    makeDirectories(normalised(path));
}

std::vector<std::string> MemoryFileSystem::below(const std::string& directory) const {
    std::vector<std::string> paths;
    const std::string prefix = directory + "/";
    for (auto node = _nodes.lower_bound(prefix);
         node != _nodes.end() && node->first.starts_with(prefix); ++node)
        paths.push_back(node->first.substr(prefix.size()));
    return paths;
}

std::vector<std::string> MemoryFileSystem::pathsBelow(const std::string& path) const {
    const std::lock_guard lock(_mutex);
    return below(normalised(path));
}

bool MemoryFileSystem::contains(const std::string& path) const {
    const std::lock_guard lock(_mutex);
    return _nodes.contains(normalised(path));
}

std::optional<std::vector<std::string>> MemoryFileSystem::contentsOfDirectory(
    const std::string& path, OptionalError* error) {
    const bool isFault = _recorder.fails("FileSystem.contentsOfDirectory", {path});
    const std::lock_guard lock(_mutex);
    const auto node = _nodes.find(normalised(path));
    if (isFault || node == _nodes.end() || node->second) {
        report(isFault ? injectedError : node == _nodes.end() ? ENOENT : ENOTDIR, error);
        return std::nullopt;
    }
    std::vector<std::string> names;
    for (const std::string& name : below(node->first)) {
        if (name.find('/') == std::string::npos)
            names.push_back(name);
    }
    // "In no order": not the sorted one, so that a test sees who sorts.
    std::reverse(names.begin(), names.end());
    return names;
}

std::vector<std::string> MemoryFileSystem::subpathsOfDirectory(const std::string& path) {
    if (_recorder.fails("FileSystem.subpathsOfDirectory", {path}))
        return {};
    const std::lock_guard lock(_mutex);
    return below(normalised(path));
}

bool MemoryFileSystem::fileExists(const std::string& path) {
    if (_recorder.fails("FileSystem.fileExists", {path}))
        return false;
    return isDevicePath(path) && contains(path);
}

std::optional<platform::FileAttributes> MemoryFileSystem::attributes(const std::string& path,
                                                                     OptionalError* error) {
    const bool isFault = _recorder.fails("FileSystem.attributes", {path});
    const std::lock_guard lock(_mutex);
    const auto node = isDevicePath(path) ? _nodes.find(normalised(path)) : _nodes.end();
    if (isFault || node == _nodes.end()) {
        report(isFault ? injectedError : isDevicePath(path) ? ENOENT : EINVAL, error);
        return std::nullopt;
    }
    const bool isDirectory = !node->second;
    return platform::FileAttributes{isDirectory ? 0 : node->second->size, isDirectory,
                                    !isDirectory};
}

// 0, or why nothing can be made at `to`.
int MemoryFileSystem::linkProblem(const std::string& from, const std::string& to) const {
    if (!_nodes.contains(from))
        return ENOENT;
    if (_nodes.contains(to))
        return EEXIST;
    const auto parent = _nodes.find(parentOf(to));
    if (parent == _nodes.end())
        return ENOENT;
    return parent->second ? ENOTDIR : 0;
}

OptionalError MemoryFileSystem::linkItem(const std::string& from, const std::string& to) {
    if (_recorder.fails("FileSystem.linkItem", {from, to}))
        return Error::posix(injectedError);
    const std::lock_guard lock(_mutex);
    const std::string source = normalised(from);
    const std::string target = normalised(to);
    if (const int problem = linkProblem(source, target))
        return Error::posix(problem);
    if (!_nodes[source])
        return Error::posix(EPERM);
    _nodes[target] = _nodes[source];
    return std::nullopt;
}

OptionalError MemoryFileSystem::moveItem(const std::string& from, const std::string& to) {
    if (_recorder.fails("FileSystem.moveItem", {from, to}))
        return Error::posix(injectedError);
    const std::lock_guard lock(_mutex);
    const std::string source = normalised(from);
    const std::string target = normalised(to);
    if (const int problem = linkProblem(source, target))
        return Error::posix(problem);
    for (const std::string& path : below(source)) {
        _nodes[target + "/" + path] = _nodes[source + "/" + path];
        _nodes.erase(source + "/" + path);
    }
    _nodes[target] = _nodes[source];
    _nodes.erase(source);
    return std::nullopt;
}

OptionalError MemoryFileSystem::removeItem(const std::string& path) {
    if (_recorder.fails("FileSystem.removeItem", {path}))
        return Error::posix(injectedError);
    const std::lock_guard lock(_mutex);
    const std::string target = normalised(path);
    if (!isDevicePath(path))
        return Error::posix(EINVAL);
    if (target.empty())
        return Error::posix(EBUSY);
    if (!_nodes.contains(target))
        return Error::posix(ENOENT);
    for (const std::string& lower : below(target))
        _nodes.erase(target + "/" + lower);
    _nodes.erase(target);
    return std::nullopt;
}

int MemoryFileSystem::unlink(const std::string& path) {
    if (_recorder.fails("FileSystem.unlink", {path}))
        return injectedError;
    if (!isDevicePath(path))
        return EINVAL;
    const std::lock_guard lock(_mutex);
    const auto node = _nodes.find(normalised(path));
    if (node == _nodes.end())
        return ENOENT;
    if (!node->second)
        return EISDIR;
    _nodes.erase(node);
    return 0;
}

OptionalError MemoryFileSystem::createDirectory(const std::string& path) {
    if (_recorder.fails("FileSystem.createDirectory", {path}))
        return Error::posix(injectedError);
    if (!isDevicePath(path))
        return Error::posix(EINVAL);
    const std::lock_guard lock(_mutex);
    const std::string target = normalised(path);
    for (std::string existing = target; !existing.empty(); existing = parentOf(existing)) {
        if (const auto node = _nodes.find(existing); node != _nodes.end() && node->second)
            return Error::posix(ENOTDIR);
    }
    makeDirectories(target);
    return std::nullopt;
}

std::optional<platform::Data> MemoryFileSystem::readFile(const std::string& path,
                                                         std::uint64_t limit,
                                                         OptionalError* error) {
    const bool isFault = _recorder.fails("FileSystem.readFile", {path});
    const std::lock_guard lock(_mutex);
    const auto node = _nodes.find(normalised(path));
    int problem = 0;
    if (isFault)
        problem = injectedError;
    else if (node == _nodes.end())
        problem = ENOENT;
    else if (!node->second)
        problem = EISDIR;
    else if (node->second->size > limit)
        problem = EFBIG;
    if (problem) {
        report(problem, error);
        return std::nullopt;
    }
    return node->second->bytes;
}

std::unique_ptr<platform::InputStream> MemoryFileSystem::openInputStream(const std::string& path) {
    if (_recorder.fails("FileSystem.openInputStream", {path}))
        return nullptr;
    const std::lock_guard lock(_mutex);
    const auto node = _nodes.find(normalised(path));
    if (node == _nodes.end() || !node->second)
        return nullptr;
    return std::make_unique<MemoryInputStream>(node->first, node->second->bytes);
}

std::unique_ptr<platform::InputStream> MemoryFileSystem::makeInputStream(platform::Data bytes) {
    return std::make_unique<MemoryInputStream>("memory", std::move(bytes));
}

std::unique_ptr<platform::MemoryOutputStream> MemoryFileSystem::makeMemoryOutputStream() {
    _recorder.record("FileSystem.makeMemoryOutputStream");
    return std::make_unique<RecordingOutputStream>(_recorder, "memory");
}

std::string MemoryFileSystem::errorText(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

}  // namespace support
