#include "common/av/av_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace common {

AvFile::~AvFile() {
    if (_context)
        av_freep(&_context->buffer);
    avio_context_free(&_context);
}

bool AvFile::open(int fd, int bufferSize) {
    _fd = fd;
    auto* buffer = static_cast<unsigned char*>(av_malloc(static_cast<std::size_t>(bufferSize)));
    if (buffer)
        _context = avio_alloc_context(buffer, bufferSize, 0, this, read, nullptr, seek);
    if (!_context)
        av_free(buffer);
    return _context != nullptr;
}

int AvFile::read(void* self, std::uint8_t* buffer, int size) {
    auto& file = *static_cast<AvFile*>(self);
    if (file._bytesRead >= file._readLimit)
        return AVERROR(EFBIG);
    ssize_t count = 0;
    do
        count = ::pread(file._fd, buffer, static_cast<std::size_t>(size), file._position);
    while (count < 0 && errno == EINTR);
    if (count < 0)
        return AVERROR(errno);
    file._position += count;
    file._bytesRead += count;
    return count == 0 ? AVERROR_EOF : static_cast<int>(count);
}

std::int64_t AvFile::seek(void* self, std::int64_t offset, int whence) {
    auto& file = *static_cast<AvFile*>(self);
    struct stat status {};
    if (::fstat(file._fd, &status) != 0)
        return AVERROR(errno);
    switch (whence & ~AVSEEK_FORCE) {
        case AVSEEK_SIZE:
            return status.st_size;
        case SEEK_SET:
            break;
        case SEEK_CUR:
            offset += file._position;
            break;
        case SEEK_END:
            offset += status.st_size;
            break;
        default:
            return AVERROR(EINVAL);
    }
    if (offset < 0)
        return AVERROR(EINVAL);
    return file._position = offset;
}

}  // namespace common
