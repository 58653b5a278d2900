// Purpose: lists a folder of media and sorts its files by what they are for.
// Thread: walkFolder works on the calling thread.
// Failure: see ScanErrorCode; what cannot be listed inside is skipped with its reason.
#pragma once

#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "host/scan/media_file.h"
#include "host/scan/rule_file.h"
#include "host/scan/scanner.h"
#include "platform/errors.h"

namespace host {

struct FoundMedia {
    FileStamp stamp;
    std::string reason;  // why it is not worth opening; empty when it is
};

struct FolderListing {
    std::vector<FoundMedia> media;  // each list by path, bytewise
    std::vector<FileStamp> playlists;
    std::vector<FileStamp> images;
    std::vector<SkippedPath> skipped;
};

// The folder's absolute path without links, or why it cannot be scanned.
platform::OptionalError resolveScanFolder(const std::string& folder, std::string& resolved);

// `folder` is a resolved one; `seen` is told the number of media files now and then.
platform::OptionalError walkFolder(const std::string& folder, const RuleFile& rules,
                                   const std::function<void(std::int64_t)>& seen,
                                   const std::stop_token& stop, FolderListing& listing);

}  // namespace host
