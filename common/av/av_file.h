// Purpose: lets FFmpeg read one open file by position, and reach no other through it.
// Thread: an object belongs to one thread.
// Ownership: the descriptor is the caller's and outlives the object; so is what FFmpeg opened over
// the context, which must be closed first.
// Failure: the codes that FFmpeg's reader expects; AVERROR(EFBIG) beyond the limit.
#pragma once

#include <cstdint>
#include <limits>

struct AVIOContext;

namespace common {

class AvFile {
public:
    static constexpr std::int64_t Unlimited = std::numeric_limits<std::int64_t>::max();

    // `readLimit` bytes may be read in all, those read twice counted twice.
    explicit AvFile(std::int64_t readLimit = Unlimited) : _readLimit(readLimit) {}
    ~AvFile();
    AvFile(const AvFile&) = delete;
    AvFile& operator=(const AvFile&) = delete;

    // False when there is not enough memory. `bufferSize` in bytes.
    bool open(int fd, int bufferSize);
    // After open.
    AVIOContext* context() { return _context; }

private:
    static int read(void* self, std::uint8_t* buffer, int size);
    static std::int64_t seek(void* self, std::int64_t offset, int whence);

    const std::int64_t _readLimit;
    std::int64_t _bytesRead = 0;
    int _fd = -1;
    std::int64_t _position = 0;
    AVIOContext* _context = nullptr;
};

}  // namespace common
