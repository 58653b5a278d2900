// An FFmpeg demuxer over one open file, which cannot reach any other.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "common/av/av_file.h"

namespace artwork {

class VideoInput {
public:
    VideoInput(int fd, std::chrono::steady_clock::time_point deadline);
    ~VideoInput();
    VideoInput(const VideoInput&) = delete;
    VideoInput& operator=(const VideoInput&) = delete;

    // False with a reason when the file is no film that can be read.
    bool open(std::string& reason);
    bool isOverdue() const { return std::chrono::steady_clock::now() > _deadline; }

    // After open.
    AVFormatContext* format() { return _format; }
    AVStream* stream() { return _stream; }
    AVCodecContext* decoder() { return _decoder; }
    // The film's length in seconds; 0 when it is not known.
    double duration() const;
    // In the stream's units, from the film's beginning.
    std::int64_t timestampAt(double seconds) const;
    // To the key frame at or before a timestamp; the decoder starts afresh.
    bool seek(std::int64_t timestamp);

private:
    static int wantsInterrupt(void* self);
    bool openDecoder(std::string& reason);

    int _fd;  // not owned
    std::chrono::steady_clock::time_point _deadline;
    common::AvFile _file;
    AVFormatContext* _format = nullptr;  // closed before _file
    AVStream* _stream = nullptr;         // owned by _format
    AVCodecContext* _decoder = nullptr;
};

}  // namespace artwork
