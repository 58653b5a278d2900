// Purpose: opens one media file with FFmpeg's reader, within bounds: only the formats that a scan
// accepts, only the one file, bounded probing and bounded reading. Runs in a worker.
// Thread: an object belongs to one thread.
// Failure: a reason in plain words.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "common/av/av_file.h"
#include "common/unique_fd.h"

struct AVFormatContext;

namespace host {

class AvInput {
public:
    AvInput();
    ~AvInput();
    AvInput(const AvInput&) = delete;
    AvInput& operator=(const AvInput&) = delete;

    // "" when the file is open, else why not. `path` is any bytes.
    std::string open(const std::string& path);
    // Whether an open() that failed may yet succeed, though the file stays as it is.
    bool mayOpenLater() const { return _mayOpenLater; }
    // Has the reader look into the content for what the headers did not tell.
    void analyze();

    AVFormatContext& context() { return *_format; }
    std::int64_t fileSize() const { return _size; }

private:
    common::UniqueFd _fd;
    bool _mayOpenLater = false;
    std::int64_t _size = 0;
    common::AvFile _file;
    AVFormatContext* _format = nullptr;  // closed before _file
};

// Plain words for an error of FFmpeg's.
std::string mediaErrorText(int error);

}  // namespace host
