// Media files: gone, of another size, of other contents, nobody's, or found again.
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <unordered_map>
#include <unordered_set>

#include "common/hash.h"
#include "common/sqlite/database.h"
#include "device/korvane/check/check_run.h"
#include "device/korvane/library.h"
#include "device/korvane/orphan_sweep.h"
#include "device/korvane/track_location.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

namespace {

struct TrackFile {
    std::int64_t trackPID = 0;
    std::string title;
    std::string path;  // absolute; empty without a file
    std::int64_t size = 0;
    std::string contentHash;  // 16 bytes, or empty
};

bool isHash(const std::string& bytes) {
    return bytes.size() == std::tuple_size<common::Hash128>();
}

std::vector<TrackFile> readTracks(Library& library) {
    return library.connections().reading<std::vector<TrackFile>>([](common::Database& database) {
        std::vector<TrackFile> tracks;
        auto rows = database.query(
            "SELECT i.item_pid, e.title, bl.path, e.location_file_name, e.total_size, "
            "e.content_hash, i.base_location_id FROM item i JOIN item_extra e USING (item_id) LEFT "
            "JOIN base_location bl USING (base_location_id)");
        while (rows.step()) {
            const auto hash = rows->blob(5);
            TrackFile& track = tracks.emplace_back();
            track = {rows->int64(0), std::string(rows->text(1)), "", rows->int64(4),
                     std::string(hash.begin(), hash.end())};
            const std::int64_t location = rows->int64(6);
            if (location != 0 && location != CloudAssetsLocation)
                track.path = fmt::format("{}{}/{}", MediaDirectory, rows->text(2), rows->text(3));
            if (!isFileOfContentHash(location))
                track.contentHash.clear();
        }
        return tracks;
    });
}

class FileCheck {
public:
    explicit FileCheck(CheckRun& run) : _run(run), _files(run.library.configuration().files) {}

    void check() {
        const std::vector<TrackFile> tracks = readTracks(_run.library);
        for (const TrackFile& track : tracks)
            look(track);
        if (_run.onRead)
            compareContents(tracks);
        if (!_run.isStopped)
            lookForStrangers();
        mend();
    }

private:
    void look(const TrackFile& track) {
        if (track.path.empty())
            return lacksItsFile(track);
        const auto attributes = _files.attributes(track.path, nullptr);
        _owned.insert(track.path);
        if (!attributes || !attributes->isRegularFile) {
            _lost.push_back(track.trackPID);
            lacksItsFile(track);
            return report(
                track.title, fmt::format("its file {} is gone", track.path),
                "the track waits for its file, which a sync, a mirror or a download brings", true);
        }
        if (track.size != 0 && static_cast<std::int64_t>(attributes->size) != track.size)
            return spoilt(track, fmt::format("its file {} has {} bytes where {} belong", track.path,
                                             attributes->size, track.size));
        _whole.insert(track.trackPID);
        _read.allFiles += 1;
        _read.allBytes += attributes->size;
    }

    void spoilt(const TrackFile& track, const std::string& problem) {
        const bool isAside = _run.repairs && setFileAside(_run.library, track.path);
        if (isAside)
            _lost.push_back(track.trackPID);
        report(track.title, problem,
               fmt::format("the file goes to {}, and the next sync or mirror brings it again",
                           SetAsideDirectory),
               isAside);
    }

    // Of the files that seem to be whole.
    void compareContents(const std::vector<TrackFile>& tracks) {
        const auto goesOn = [this](std::size_t bytes) {
            _read.bytes += bytes;
            _run.isStopped = _run.isStopped || !_run.onRead(_read);
            return !_run.isStopped;
        };
        for (const TrackFile& track : tracks) {
            if (!_whole.contains(track.trackPID))
                continue;
            const std::string hash = hashOf(track.path, goesOn);
            if (_run.isStopped)
                return;
            if (hash.empty())
                spoilt(track, fmt::format("its file {} cannot be read", track.path));
            else if (isHash(track.contentHash) && hash != track.contentHash)
                spoilt(track, fmt::format("its file {} is not what came: its contents have changed",
                                          track.path));
            ++_read.files;
        }
    }

    void lacksItsFile(const TrackFile& track) {
        if (track.size > 0 && isHash(track.contentHash))
            _wanting.emplace(track.size, track);
    }

    void lookForStrangers() {
        const auto folders =
            _run.library.connections().reading<std::unordered_map<std::int64_t, std::string>>(
                foldersThatHostsFill);
        std::vector<std::string> paths;
        for (const auto& [location, folder] : folders)
            for (const std::string& name : _files.subpathsOfDirectory(folder))
                paths.push_back(folder + name);
        std::ranges::sort(paths);
        for (const std::string& path : paths)
            if (!_owned.contains(path))
                lookAtStranger(path);
    }

    void lookAtStranger(const std::string& path) {
        const auto attributes = _files.attributes(path, nullptr);
        if (!attributes || !attributes->isRegularFile)
            return;
        if (const TrackFile* owner = ownerOf(path, static_cast<std::int64_t>(attributes->size))) {
            _found.emplace_back(owner->trackPID, path);
            return report(
                path,
                fmt::format("nobody's by name, but it is the file that \"{}\" lacks", owner->title),
                "the track gets it back", true);
        }
        const bool isAside = _run.repairs && setFileAside(_run.library, path);
        report(path, "no track of the library owns this file",
               fmt::format("it goes to {}", SetAsideDirectory), isAside);
    }

    // By contents.
    const TrackFile* ownerOf(const std::string& path, std::int64_t size) {
        const auto [first, last] = _wanting.equal_range(size);
        if (first == last)
            return nullptr;
        const std::string hash = hashOf(path, [](std::size_t) { return true; });
        for (auto candidate = first; candidate != last; ++candidate)
            if (candidate->second.contentHash == hash &&
                _served.insert(candidate->second.trackPID).second)
                return &candidate->second;
        return nullptr;
    }

    // Empty for a file that cannot be read to its end, or when `goesOn`, which is told the bytes of
    // each piece, ends it.
    std::string hashOf(const std::string& path, const std::function<bool(std::size_t)>& goesOn) {
        const common::UniqueFd file = _files.openFile(path, O_RDONLY, 0, nullptr);
        common::XXH3Stream hash;
        std::array<std::uint8_t, 1 << 16> piece{};
        for (;;) {
            const ssize_t count = ::read(file.get(), piece.data(), piece.size());
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0 || !goesOn(static_cast<std::size_t>(count)))
                return "";
            if (count == 0)
                break;
            hash.update(std::span(piece).first(static_cast<std::size_t>(count)));
        }
        const common::Hash128 digest = hash.digest();
        return {digest.begin(), digest.end()};
    }

    void report(const std::string& subject, const std::string& problem, const std::string& remedy,
                bool canMend) {
        _run.report({CheckArea::File, subject, problem, remedy, _run.repairs && canMend});
    }

    void mend() {
        if (!_run.repairs || (_lost.empty() && _found.empty()))
            return;
        _run.library.connections().write([this](common::Database& database) {
            for (const std::int64_t pid : _lost)
                recordLocation(database, _files, pid, "");
            for (const auto& [pid, path] : _found)
                recordLocation(database, _files, pid, path);
            return true;
        });
    }

    CheckRun& _run;
    device::RootedFileSystem& _files;
    std::unordered_set<std::string> _owned;
    std::unordered_set<std::int64_t> _whole;  // tracks whose file is there in its size
    ReadProgress _read;
    std::unordered_multimap<std::int64_t, TrackFile> _wanting;  // by size
    std::unordered_set<std::int64_t> _served;                   // of those, found again
    std::vector<std::int64_t> _lost;  // tracks without their file from now on
    std::vector<std::pair<std::int64_t, std::string>> _found;  // tracks and their files
};

}  // namespace

void checkFiles(CheckRun& run) {
    FileCheck(run).check();
}

}  // namespace korvane
