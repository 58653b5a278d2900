#include "device/artwork/video_frame.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

#include "device/artwork/frame_picture.h"
#include "device/artwork/video_input.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/log.h>
}

namespace artwork {
namespace {

constexpr int LongestSide = 1280;

struct FrameFree {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using FrameHandle = std::unique_ptr<AVFrame, FrameFree>;

struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using PacketHandle = std::unique_ptr<AVPacket, PacketFree>;

// Decodes on from where the input stands and keeps the frame that is shown at the target time.
class FrameSearch {
public:
    FrameSearch(VideoInput& input, std::int64_t target)
        : _input(input), _target(target), _current(av_frame_alloc()), _packet(av_packet_alloc()) {}

    // Null when nothing could be decoded, or the time is up.
    FrameHandle run() {
        if (!_current || !_packet)
            return nullptr;
        while (!_found && !_input.isOverdue() &&
               av_read_frame(_input.format(), _packet.get()) >= 0) {
            // What cannot be decoded is passed over: the frames after it may be sound.
            if (_packet->stream_index == _input.stream()->index &&
                avcodec_send_packet(_input.decoder(), _packet.get()) >= 0)
                takeFrames();
            av_packet_unref(_packet.get());
        }
        if (!_found && !_input.isOverdue() && avcodec_send_packet(_input.decoder(), nullptr) >= 0)
            takeFrames();
        return _input.isOverdue() ? nullptr : std::move(_shown);
    }

private:
    void takeFrames() {
        while (!_found && avcodec_receive_frame(_input.decoder(), _current.get()) >= 0) {
            const std::int64_t time = _current->best_effort_timestamp;
            const bool isLater = time != AV_NOPTS_VALUE && time > _target;
            if (!isLater || !_shown)
                keepCurrent();
            _found = isLater;
        }
    }

    void keepCurrent() {
        if (!_shown)
            _shown.reset(av_frame_alloc());
        if (!_shown)
            return;
        av_frame_unref(_shown.get());
        av_frame_move_ref(_shown.get(), _current.get());
    }

    VideoInput& _input;
    const std::int64_t _target;
    FrameHandle _current;
    PacketHandle _packet;
    FrameHandle _shown;
    bool _found = false;
};

FrameHandle frameAt(VideoInput& input, double seconds) {
    const double length = input.duration();
    const double clamped = std::clamp(seconds, 0.0, length > 0 ? length : seconds);
    const std::int64_t target = input.timestampAt(clamped);
    if (input.seek(target)) {
        if (FrameHandle frame = FrameSearch(input, target).run())
            return frame;
    }
    // A length or an index that lies: from the beginning, then.
    if (input.isOverdue() || !input.seek(input.timestampAt(0)))
        return nullptr;
    return FrameSearch(input, target).run();
}

Orientation streamOrientation(const AVStream& stream) {
    std::size_t size = 0;
    const auto* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    if (!matrix || size < 9 * sizeof(std::int32_t))
        return {};
    return orientationOf(reinterpret_cast<const std::int32_t*>(matrix));
}

}  // namespace

VideoFrame videoFrameAt(int fd, double seconds, std::chrono::steady_clock::duration limit) {
    av_log_set_level(AV_LOG_QUIET);
    if (!std::isfinite(seconds) || seconds < 0)
        seconds = 0;
    VideoInput input(fd, std::chrono::steady_clock::now() + limit);
    VideoFrame result;
    if (!input.open(result.reason))
        return result;
    const FrameHandle frame = frameAt(input, seconds);
    if (!frame) {
        result.reason = input.isOverdue() ? "The film takes too long to decode."
                                          : "No frame of the film can be decoded.";
        return result;
    }
    const AVRational ratio =
        av_guess_sample_aspect_ratio(input.format(), input.stream(), frame.get());
    result.jpeg = jpegOfFrame(*frame, ratio, streamOrientation(*input.stream()), LongestSide);
    if (result.jpeg.empty())
        result.reason = "The film's frame cannot be made into a picture.";
    return result;
}

}  // namespace artwork
