// Purpose: content hashes of whole files, several at a time.
// Thread: works on the calling thread and on threads of its own that end with the call.
// Failure: a file that cannot be read, or changes meanwhile, has its reason.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "host/scan/content_hash.h"
#include "host/scan/media_file.h"

namespace host {

struct HashedFile {
    std::optional<ContentHash> hash;
    std::string failure;  // empty when there is a hash
};

// One answer per file, in order; after a stop the rest has neither. `progress` is called on the
// calling thread with the number of files done.
std::vector<HashedFile> hashFiles(const std::string& folder,
                                  std::span<const FileStamp* const> files,
                                  const std::function<void(std::size_t)>& progress,
                                  const std::stop_token& stop);
HashedFile hashFile(const std::string& folder, const FileStamp& file);

}  // namespace host
