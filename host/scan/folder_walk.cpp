#include "host/scan/folder_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <utility>

#include "common/unique_fd.h"
#include "host/scan/file_names.h"
#include "host/scan/file_purpose.h"

namespace host {

namespace {

constexpr int DepthLimit = 64;
constexpr std::size_t FileLimit = 2'000'000;
constexpr std::int64_t ProgressInterval = 256;  // files

using Inode = std::pair<std::uint64_t, std::uint64_t>;  // device, inode

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

FileStamp stampOf(std::string path, const struct stat& status) {
    FileStamp stamp;
    stamp.path = std::move(path);
    stamp.size = status.st_size;
    stamp.modifiedNanoseconds =
        std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
    stamp.inode = status.st_ino;
    stamp.device = status.st_dev;
    return stamp;
}

std::string errorText() {
    return std::strerror(errno);
}

class Walk {
public:
    Walk(const std::string& root, const RuleFile& rules,
         const std::function<void(std::int64_t)>& seen, const std::stop_token& stop,
         FolderListing& listing)
        : _root(root), _rules(rules), _seen(seen), _stop(stop), _listing(listing) {}

    platform::OptionalError run() {
        common::UniqueFd top(::open(_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        Directory directory(top ? ::fdopendir(top.get()) : nullptr);
        if (!directory)
            return platform::Error(
                ScanErrorDomain, ScanErrorFolderUnreadable,
                fmt::format("The folder {} cannot be read: {}.", displayText(_root), errorText()));
        top.release();
        listDirectory(directory.get(), "", 0);
        followLinks();
        if (_stop.stop_requested())
            return platform::Error(ScanErrorDomain, ScanErrorCancelled, "The scan was stopped.");
        sortListing();
        return std::nullopt;
    }

private:
    bool full() const {
        return _listing.media.size() + _listing.images.size() + _listing.playlists.size() >=
               FileLimit;
    }

    // `prefix` is the directory's path with a '/' at its end, "" for the folder itself.
    void listDirectory(DIR* directory, const std::string& prefix, int depth) {
        while (!_stop.stop_requested()) {
            errno = 0;
            const dirent* entry = ::readdir(directory);
            if (!entry) {
                if (errno != 0)
                    skip(prefix, fmt::format("the folder cannot be read: {}", errorText()));
                return;
            }
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..")
                listEntry(::dirfd(directory), entry->d_name, prefix + std::string(name), depth);
        }
    }

    void listEntry(int directory, const char* name, std::string path, int depth) {
        struct stat status {};
        if (::fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            if (purposeOfFile(name) != FilePurpose::Ignored)
                skip(std::move(path), fmt::format("it cannot be looked at: {}", errorText()));
        } else if (S_ISDIR(status.st_mode)) {
            if (!isIgnoredFolder(name))
                enterDirectory(directory, name, path + '/', depth + 1);
        } else if (S_ISREG(status.st_mode)) {
            listFile(stampOf(std::move(path), status));
        } else if (purposeOfFile(name) == FilePurpose::Ignored) {
            return;
        } else if (S_ISLNK(status.st_mode)) {
            _links.push_back(std::move(path));
        } else {
            skip(std::move(path), "it is no file");
        }
    }

    void enterDirectory(int parent, const char* name, std::string path, int depth) {
        if (depth > DepthLimit)
            return skip(std::move(path),
                        fmt::format("it lies more than {} folders deep", DepthLimit));
        common::UniqueFd fd(
            ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        Directory directory(fd ? ::fdopendir(fd.get()) : nullptr);
        if (!directory)
            return skip(std::move(path), fmt::format("the folder cannot be read: {}", errorText()));
        fd.release();
        listDirectory(directory.get(), path, depth);
    }

    void listFile(FileStamp stamp) {
        const FilePurpose purpose = purposeOfFile(fileNameOfPath(stamp.path));
        if (purpose == FilePurpose::Ignored || _rules.verdictFor(stamp.path).ignore)
            return;
        if (full())
            return skip(std::move(stamp.path),
                        fmt::format("the folder holds more than {} files", FileLimit));
        switch (purpose) {
            case FilePurpose::Image:
                _listing.images.push_back(std::move(stamp));
                return;
            case FilePurpose::Playlist:
                _listing.playlists.push_back(std::move(stamp));
                return;
            default:
                listMedia(std::move(stamp), purpose);
        }
    }

    void listMedia(FileStamp stamp, FilePurpose purpose) {
        std::string reason;
        if (purpose == FilePurpose::UnsupportedMedia)
            reason = fmt::format(
                "files of the kind .{} cannot be played there; convert it, to .m4a or .mp4 say",
                displayText(extensionOfPath(stamp.path)));
        else if (purpose == FilePurpose::Unknown)
            reason = "it is no kind of file that can be synced";
        else if (stamp.size == 0)
            reason = "the file is empty";
        _listing.media.push_back({std::move(stamp), std::move(reason)});
        const auto count = static_cast<std::int64_t>(_listing.media.size());
        if (_seen && count % ProgressInterval == 0)
            _seen(count);
    }

    // A link stands for its file where that lies in this folder and is not listed itself.
    void followLinks() {
        if (_links.empty())
            return;
        std::ranges::sort(_links);
        for (const FoundMedia& media : _listing.media)
            _listed.emplace(media.stamp.device, media.stamp.inode);
        for (const auto* stamps : {&_listing.playlists, &_listing.images})
            for (const FileStamp& stamp : *stamps)
                _listed.emplace(stamp.device, stamp.inode);
        for (std::string& path : _links) {
            if (_stop.stop_requested())
                return;
            followLink(std::move(path));
        }
    }

    void followLink(std::string path) {
        const std::unique_ptr<char, decltype(&std::free)> target(
            ::realpath((_root + '/' + path).c_str(), nullptr), &std::free);
        struct stat status {};
        if (!target || ::stat(target.get(), &status) != 0)
            return skip(std::move(path), fmt::format("the link leads nowhere: {}", errorText()));
        if (S_ISDIR(status.st_mode))
            return skip(std::move(path), "links to folders are not followed");
        if (!std::string_view(target.get()).starts_with(_root == "/" ? _root : _root + '/'))
            return skip(std::move(path), "the link leads out of the folder");
        if (!S_ISREG(status.st_mode))
            return skip(std::move(path), "the link leads to no file");
        if (_listed.contains(Inode(status.st_dev, status.st_ino)))
            return skip(std::move(path), "the link leads to a file that is listed itself");
        listFile(stampOf(std::move(path), status));
    }

    void skip(std::string path, std::string reason) {
        if (_listing.skipped.size() < FileLimit)
            _listing.skipped.push_back({std::move(path), std::move(reason)});
    }

    void sortListing() {
        std::ranges::sort(_listing.media, {},
                          [](const FoundMedia& m) -> const std::string& { return m.stamp.path; });
        std::ranges::sort(_listing.playlists, {}, &FileStamp::path);
        std::ranges::sort(_listing.images, {}, &FileStamp::path);
        std::ranges::sort(_listing.skipped, {}, &SkippedPath::path);
    }

    const std::string& _root;
    const RuleFile& _rules;
    const std::function<void(std::int64_t)>& _seen;
    const std::stop_token& _stop;
    FolderListing& _listing;
    std::vector<std::string> _links;  // looked into when everything else is listed
    std::set<Inode> _listed;          // filled only where there are links
};

}  // namespace

platform::OptionalError resolveScanFolder(const std::string& folder, std::string& resolved) {
    const auto failure = [&](ScanErrorCode code, std::string_view text) {
        return platform::Error(ScanErrorDomain, code,
                               fmt::format("The folder {} {}.", displayText(folder), text));
    };
    const std::unique_ptr<char, decltype(&std::free)> path(::realpath(folder.c_str(), nullptr),
                                                           &std::free);
    struct stat status {};
    if (!path || ::stat(path.get(), &status) != 0) {
        if (errno == ENOENT)
            return failure(ScanErrorFolderNotFound, "does not exist");
        if (errno == ENOTDIR)
            return failure(ScanErrorNotAFolder, "is no folder");
        return failure(ScanErrorFolderUnreadable, fmt::format("cannot be read: {}", errorText()));
    }
    if (!S_ISDIR(status.st_mode))
        return failure(ScanErrorNotAFolder, "is no folder");
    if (!common::UniqueFd(::open(path.get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)))
        return failure(ScanErrorFolderUnreadable, fmt::format("cannot be read: {}", errorText()));
    resolved = path.get();
    return std::nullopt;
}

platform::OptionalError walkFolder(const std::string& folder, const RuleFile& rules,
                                   const std::function<void(std::int64_t)>& seen,
                                   const std::stop_token& stop, FolderListing& listing) {
    return Walk(folder, rules, seen, stop, listing).run();
}

}  // namespace host
