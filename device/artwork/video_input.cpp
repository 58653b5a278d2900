#include "device/artwork/video_input.h"

#include <algorithm>
#include <cerrno>
#include <cmath>

namespace artwork {
namespace {

constexpr int IoBufferSize = 64 << 10;
constexpr std::int64_t ProbeBytes = 5 << 20;
constexpr std::int64_t AnalyzeDuration = 5 * AV_TIME_BASE;
constexpr int MaximumStreams = 64;
constexpr std::int64_t MaximumFramePixels = 50'000'000;
// Containers of films. Playlists and everything else that opens further files are not among them.
constexpr char Containers[] =
    "mov,mp4,m4a,3gp,3g2,mj2,matroska,webm,avi,mpegts,mpeg,mpegvideo,asf,flv,ogg";

// A film refers to other files only to be refused.
int refuseToOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
    return AVERROR(EPERM);
}

bool isFilm(const AVStream& stream) {
    return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
           !(stream.disposition & (AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS));
}

}  // namespace

VideoInput::VideoInput(int fd, std::chrono::steady_clock::time_point deadline)
    : _fd(fd), _deadline(deadline) {}

VideoInput::~VideoInput() {
    avcodec_free_context(&_decoder);
    avformat_close_input(&_format);
}

int VideoInput::wantsInterrupt(void* self) {
    return static_cast<VideoInput*>(self)->isOverdue();
}

bool VideoInput::open(std::string& reason) {
    _format = avformat_alloc_context();
    if (!_format || !_file.open(_fd, IoBufferSize)) {
        reason = "There is not enough memory.";
        return false;
    }
    _format->pb = _file.context();
    _format->flags |= AVFMT_FLAG_CUSTOM_IO;
    _format->io_open = refuseToOpen;
    _format->interrupt_callback = {wantsInterrupt, this};
    _format->probesize = ProbeBytes;
    _format->max_analyze_duration = AnalyzeDuration;
    _format->max_streams = MaximumStreams;

    AVDictionary* options = nullptr;
    av_dict_set(&options, "format_whitelist", Containers, 0);
    const int status = avformat_open_input(&_format, nullptr, nullptr, &options);
    av_dict_free(&options);
    if (status < 0 || avformat_find_stream_info(_format, nullptr) < 0) {
        reason = "The file is not a film that can be read.";
        return false;
    }
    return openDecoder(reason);
}

bool VideoInput::openDecoder(std::string& reason) {
    for (unsigned i = 0; i < _format->nb_streams; ++i) {
        AVStream* stream = _format->streams[i];
        if (!_stream && isFilm(*stream))
            _stream = stream;
        else
            stream->discard = AVDISCARD_ALL;
    }
    if (!_stream) {
        reason = "The file has no moving picture.";
        return false;
    }
    const AVCodec* codec = avcodec_find_decoder(_stream->codecpar->codec_id);
    if (!codec) {
        reason = "The film's picture is in a format that is not known.";
        return false;
    }
    _decoder = avcodec_alloc_context3(codec);
    if (!_decoder || avcodec_parameters_to_context(_decoder, _stream->codecpar) < 0) {
        reason = "The film's description is damaged.";
        return false;
    }
    _decoder->max_pixels = MaximumFramePixels;
    _decoder->thread_count = 2;
    _decoder->pkt_timebase = _stream->time_base;
    if (avcodec_open2(_decoder, codec, nullptr) < 0) {
        reason = "The film's picture cannot be decoded.";
        return false;
    }
    return true;
}

double VideoInput::duration() const {
    if (_stream->duration > 0)
        return static_cast<double>(_stream->duration) * av_q2d(_stream->time_base);
    if (_format->duration > 0)
        return static_cast<double>(_format->duration) / AV_TIME_BASE;
    return 0;
}

std::int64_t VideoInput::timestampAt(double seconds) const {
    const std::int64_t start = _stream->start_time == AV_NOPTS_VALUE ? 0 : _stream->start_time;
    const double units = seconds / av_q2d(_stream->time_base);
    // Far beyond any film, and still far from the ends of the integers.
    return start + static_cast<std::int64_t>(std::min(std::floor(units + 1e-6), 1e15));
}

bool VideoInput::seek(std::int64_t timestamp) {
    avcodec_flush_buffers(_decoder);
    return av_seek_frame(_format, _stream->index, timestamp, AVSEEK_FLAG_BACKWARD) >= 0;
}

}  // namespace artwork
