#include "device/artwork/frame_picture.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

namespace artwork {
namespace {

constexpr int JpegQuantizer = 3;  // 2 is the best, 31 the worst
// A film that claims pixels of stranger proportions is taken to have square ones.
constexpr double StrangestPixel = 8;

struct FrameFree {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using FrameHandle = std::unique_ptr<AVFrame, FrameFree>;
struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct CodecFree {
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
};
struct ScalerFree {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

FrameHandle makeFrame(int width, int height) {
    FrameHandle frame(av_frame_alloc());
    if (!frame)
        return nullptr;
    frame->format = AV_PIX_FMT_YUVJ420P;
    frame->width = width;
    frame->height = height;
    frame->color_range = AVCOL_RANGE_JPEG;
    return av_frame_get_buffer(frame.get(), 0) < 0 ? nullptr : std::move(frame);
}

std::array<int, 2> squarePixelSize(const AVFrame& frame, AVRational ratio, int longestSide) {
    double pixel = ratio.num > 0 && ratio.den > 0 ? av_q2d(ratio) : 1;
    if (pixel > StrangestPixel || pixel < 1 / StrangestPixel)
        pixel = 1;
    const double width = frame.width * pixel;
    const double scale = std::min(1.0, longestSide / std::max<double>(width, frame.height));
    const auto whole = [](double side) { return std::max(1, static_cast<int>(std::lround(side))); };
    return {whole(width * scale), whole(frame.height * scale)};
}

FrameHandle scaled(const AVFrame& source, int width, int height) {
    const std::unique_ptr<SwsContext, ScalerFree> scaler(sws_getContext(
        source.width, source.height, static_cast<AVPixelFormat>(source.format), width, height,
        AV_PIX_FMT_YUVJ420P, SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    FrameHandle target = makeFrame(width, height);
    if (!scaler || !target)
        return nullptr;
    // JPEG is always BT.601 in full range; large films are BT.709 unless they say otherwise.
    int space = source.colorspace;
    if (space == AVCOL_SPC_UNSPECIFIED)
        space = source.height >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
    const bool fullRange = source.color_range == AVCOL_RANGE_JPEG;
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(space), fullRange,
                             sws_getCoefficients(SWS_CS_ITU601), 1, 0, 1 << 16, 1 << 16);
    if (sws_scale(scaler.get(), source.data, source.linesize, 0, source.height, target->data,
                  target->linesize) <= 0)
        return nullptr;
    return target;
}

struct Plane {
    std::uint8_t* bytes;
    int stride;
    int width;
    int height;
};

Plane planeOf(const AVFrame& frame, int index) {
    const int shift = index == 0 ? 0 : 1;  // chroma has half the size, rounded up
    return {frame.data[index], frame.linesize[index], (frame.width + shift) >> shift,
            (frame.height + shift) >> shift};
}

void turnPlane(const Plane& source, const Plane& target, Orientation orientation) {
    for (int y = 0; y < target.height; ++y) {
        for (int x = 0; x < target.width; ++x) {
            const int mirroredX = orientation.mirroredAcross ? target.width - 1 - x : x;
            const int mirroredY = orientation.mirroredDown ? target.height - 1 - y : y;
            const int sourceX = orientation.transposed ? mirroredY : mirroredX;
            const int sourceY = orientation.transposed ? mirroredX : mirroredY;
            target.bytes[y * target.stride + x] = source.bytes[sourceY * source.stride + sourceX];
        }
    }
}

FrameHandle turned(FrameHandle source, Orientation orientation) {
    if (!orientation.transposed && !orientation.mirroredAcross && !orientation.mirroredDown)
        return source;
    FrameHandle target = orientation.transposed ? makeFrame(source->height, source->width)
                                                : makeFrame(source->width, source->height);
    if (!target)
        return nullptr;
    for (int plane = 0; plane < 3; ++plane)
        turnPlane(planeOf(*source, plane), planeOf(*target, plane), orientation);
    return target;
}

std::vector<std::uint8_t> encoded(AVFrame& frame) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    const std::unique_ptr<AVCodecContext, CodecFree> encoder(codec ? avcodec_alloc_context3(codec)
                                                                   : nullptr);
    const std::unique_ptr<AVPacket, PacketFree> packet(av_packet_alloc());
    if (!encoder || !packet)
        return {};
    encoder->width = frame.width;
    encoder->height = frame.height;
    encoder->pix_fmt = AV_PIX_FMT_YUVJ420P;
    encoder->color_range = AVCOL_RANGE_JPEG;
    encoder->time_base = {1, 1};
    encoder->thread_count = 1;
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = FF_QP2LAMBDA * JpegQuantizer;
    frame.quality = encoder->global_quality;
    frame.pts = 0;
    if (avcodec_open2(encoder.get(), codec, nullptr) < 0 ||
        avcodec_send_frame(encoder.get(), &frame) < 0 ||
        avcodec_receive_packet(encoder.get(), packet.get()) < 0)
        return {};
    return {packet->data, packet->data + packet->size};
}

}  // namespace

Orientation orientationOf(const std::int32_t* displayMatrix) {
    // A point (x, y) of the frame is shown at (a x + c y, b x + d y).
    const std::int64_t a = displayMatrix[0];
    const std::int64_t b = displayMatrix[1];
    const std::int64_t c = displayMatrix[3];
    const std::int64_t d = displayMatrix[4];
    if (std::llabs(b) > std::llabs(a))
        return {true, c < 0, b < 0};
    return {false, a < 0, d < 0};
}

std::vector<std::uint8_t> jpegOfFrame(const AVFrame& frame, AVRational sampleAspectRatio,
                                      Orientation orientation, int longestSide) {
    if (frame.width <= 0 || frame.height <= 0)
        return {};
    const auto [width, height] = squarePixelSize(frame, sampleAspectRatio, longestSide);
    FrameHandle picture = scaled(frame, width, height);
    if (picture)
        picture = turned(std::move(picture), orientation);
    return picture ? encoded(*picture) : std::vector<std::uint8_t>();
}

}  // namespace artwork
