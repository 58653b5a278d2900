#include "host/artwork/prepared_image.h"
#include "host/scan/byte_codec.h"

namespace host {

std::string encodePreparedImage(const PreparedImage& image) {
    ByteWriter out;
    out.text(image.reason);
    out.raw(bytesOfContentHash(image.hash));
    out.text(image.extension);
    out.number(image.width);
    out.number(image.height);
    out.text(image.bytes);
    return out.take();
}

std::optional<PreparedImage> decodePreparedImage(std::string_view bytes) {
    ByteReader in(bytes);
    std::optional<PreparedImage> image(std::in_place);
    image->reason = in.text();
    image->hash = contentHashOfBytes(in.raw(sizeof image->hash)).value_or(ContentHash{});
    image->extension = in.text();
    image->width = in.number<std::int32_t>();
    image->height = in.number<std::int32_t>();
    image->bytes = in.text();
    const bool named = image->extension == "jpg" || image->extension == "png";
    if (!in.complete() || (image->reason.empty() && (!named || image->bytes.empty())))
        return std::nullopt;
    return image;
}

}  // namespace host
