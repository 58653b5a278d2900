// Purpose: reads a folder of media: walks it, has workers read each new or changed file, and
// applies the folder's rules.
// Thread: scanFolder works on the calling thread and calls back on it; `stop` may be asked for from
// any thread.
// Failure: only the folder as a whole fails (the codes below); a file's failure is its reason.
#pragma once

#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "host/scan/media_file.h"
#include "host/scan/media_workers.h"
#include "platform/errors.h"

namespace host {

inline constexpr std::string_view ScanErrorDomain = "HostScanError";

enum ScanErrorCode : std::int64_t {
    ScanErrorFolderNotFound = 1,
    ScanErrorNotAFolder = 2,
    ScanErrorFolderUnreadable = 3,
    ScanErrorCancelled = 4,
    ScanErrorRuleFile = 5,  // the text names the line and what to do
    ScanErrorNoWorker = 6,
};

struct ScanProgress {
    bool walking = true;           // the folder is being listed: the number of files still grows
    std::int64_t filesSeen = 0;    // media files found
    std::int64_t filesToRead = 0;  // new or changed ones; 0 while walking
    std::int64_t filesRead = 0;
};

struct SkippedPath {
    std::string path;    // relative; a folder ends in '/'
    std::string reason;  // plain words
};

struct ScanResult {
    std::vector<MediaFile> files;      // by path, bytewise; unreadable ones with their reason
    std::vector<FileStamp> playlists;  // by path
    std::vector<FileStamp> images;     // by path: what may serve as a cover
    std::vector<SkippedPath> skipped;  // links that lead out, folders that cannot be read, ...
    std::int64_t filesRead = 0;        // opened by this scan
};

struct ScanOptions {
    std::string folder;  // as the user gave it
    // What an earlier scan found for a path, or null. It is taken as it is, and the file not
    // opened, when size and time of modification agree. Kind and overrides are decided anew.
    std::function<const MediaFile*(const FileStamp&)> known;
    // Called now and then, at least at the start and end of each phase.
    std::function<void(const ScanProgress&)> progress;
    std::stop_token stop;
};

platform::OptionalError scanFolder(const ScanOptions& options, MediaWorkers& workers,
                                   ScanResult& result);

}  // namespace host
