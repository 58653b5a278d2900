// Purpose: a file that is written beside its place and takes it once it is whole.
// Thread: one at a time.
// Ownership: what was written is removed unless commit() succeeded.
// Failure: Errors of POSIXErrorDomain with a text that names the file.
#pragma once

#include <string>
#include <string_view>

#include "common/unique_fd.h"
#include "platform/errors.h"

namespace host {

class ReplacedFile {
public:
    explicit ReplacedFile(std::string path) : _path(std::move(path)) {}
    ~ReplacedFile();
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;

    platform::OptionalError open();
    platform::OptionalError write(std::string_view bytes);
    // Syncs what was written and puts it in the place of what lies there.
    platform::OptionalError commit();

private:
    platform::Error failure() const;

    const std::string _path;
    std::string _partialPath;
    common::UniqueFd _fd;
};

}  // namespace host
