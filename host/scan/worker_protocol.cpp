#include "host/scan/worker_protocol.h"

#include "host/scan/byte_codec.h"

namespace host {

std::string framedMessage(std::string_view body) {
    ByteWriter out;
    out.text(body);
    return out.take();
}

std::optional<std::string> takeMessage(std::string& buffer, bool& tooLong) {
    ByteReader in(buffer);
    const auto size = in.number<std::uint32_t>();
    tooLong = in.ok() && size > WorkerMessageLimit;
    if (!in.ok() || tooLong || in.remaining() < size)
        return std::nullopt;
    std::string message(in.raw(size));
    buffer.erase(0, sizeof size + size);
    return message;
}

std::string encodeRequest(const MediaRequest& request) {
    ByteWriter out;
    out.number(static_cast<std::uint8_t>(request.kind));
    out.number(request.chapter);
    out.text(request.path);
    return out.take();
}

std::optional<MediaRequest> decodeRequest(std::string_view body) {
    ByteReader in(body);
    MediaRequest request;
    const auto kind = in.number<std::uint8_t>();
    request.kind = static_cast<MediaRequest::Kind>(kind);
    request.chapter = in.number<std::int32_t>();
    request.path = in.text();
    if (!in.complete() || kind > static_cast<std::uint8_t>(MediaRequest::Kind::PrepareImage))
        return std::nullopt;
    return request;
}

std::string encodeAnswer(const MediaAnswer& answer) {
    ByteWriter out;
    out.text(answer.reason);
    out.text(answer.bytes);
    return out.take();
}

std::optional<MediaAnswer> decodeAnswer(std::string_view body) {
    ByteReader in(body);
    MediaAnswer answer;
    answer.reason = in.text();
    answer.bytes = in.text();
    if (!in.complete())
        return std::nullopt;
    return answer;
}

}  // namespace host
