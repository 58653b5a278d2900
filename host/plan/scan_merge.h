// Purpose: recognises the files of a scan: which are known, which moved, which are new. A file
// keeps its identity under another name, with other tags and with other contents. Thread: one at a
// time; works on the calling thread. Failure: none; a file that cannot be hashed counts as changed.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "host/scan/scanner.h"
#include "host/state/folder_state.h"
#include "host/state/identity_source.h"

namespace host {

// Where a run puts what it takes from the device, below the folder. Never synced from there.
inline constexpr std::string_view UploadFolderName = "Uploads from device";

struct ScanMergeInput {
    std::int64_t now = 0;  // seconds since 1970
    // The content hash of a file of the folder (relative path), read whole; absent when that fails.
    // Asked only for files that may be another one moved, and for known ones that changed.
    std::function<std::optional<ContentHash>(const FileStamp&)> hashFile;
};

struct ScanMergeResult {
    std::size_t added = 0;
    std::size_t moved = 0;
    std::size_t changed = 0;  // tags or contents
    std::size_t missing = 0;  // known, in the folder no more
};

// Brings `state.files` up to date with the scan and sets everyone's presence.
ScanMergeResult mergeScan(const ScanResult& scan, FolderState& state, IdentitySource& ids,
                          const ScanMergeInput& input);

}  // namespace host
