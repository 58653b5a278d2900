#include "tests/device/artwork/media_samples.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tests/support/temporary_directory.h"

namespace samples {
namespace {

void storeBigEndian(Bytes& bytes, std::size_t offset, std::uint64_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.at(offset + static_cast<std::size_t>(i)) =
            static_cast<std::uint8_t>(value >> (8 * (count - 1 - i)));
}

std::uint32_t crc32(const Bytes& bytes, std::size_t first, std::size_t last) {
    std::uint32_t crc = ~0U;
    for (std::size_t i = first; i < last; ++i) {
        crc ^= bytes.at(i);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) ? 0xEDB88320U : 0U);
    }
    return ~crc;
}

}  // namespace

void ffmpeg(const std::string& arguments) {
    const std::string command = "ffmpeg -v error -y -nostdin " + arguments;
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("failed: " + command);
}

Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    if (!out.flush())
        throw std::runtime_error("cannot write " + path);
}

Bytes picture(const std::string& source, const std::string& suffix, const std::string& options) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / ("picture." + suffix);
    ffmpeg("-f lavfi -i '" + source + "' -frames:v 1 " + options + " " + path);
    return readFile(path);
}

Bytes pngClaiming(std::uint32_t width, std::uint32_t height, bool interlaced) {
    // Signature (8), length (4), "IHDR" (4), width (4), height (4), 4 more, interlacing, checksum.
    Bytes bytes = picture("color=red:s=16x16", "png", "-pix_fmt rgb24");
    storeBigEndian(bytes, 16, width, 4);
    storeBigEndian(bytes, 20, height, 4);
    bytes.at(28) = interlaced;
    storeBigEndian(bytes, 29, crc32(bytes, 12, 29), 4);
    return bytes;
}

Bytes jpegClaiming(std::uint16_t width, std::uint16_t height) {
    Bytes bytes = picture("color=red:s=16x16", "jpg");
    for (std::size_t i = 0; i + 9 < bytes.size(); ++i) {
        if (bytes[i] == 0xFF && bytes[i + 1] == 0xC0) {  // start of frame, baseline
            storeBigEndian(bytes, i + 5, height, 2);
            storeBigEndian(bytes, i + 7, width, 2);
            return bytes;
        }
    }
    throw std::runtime_error("no start of frame");
}

std::array<int, 3> Pixels::at(int x, int y) const {
    const auto first = 3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                            static_cast<std::size_t>(x));
    return {rgb.at(first), rgb.at(first + 1), rgb.at(first + 2)};
}

Pixels decode(const Bytes& picture) {
    const test::TemporaryDirectory directory;
    writeFile(directory / "picture", picture);
    ffmpeg("-i " + (directory / "picture") + " -frames:v 1 -pix_fmt rgb24 -f image2 -c:v ppm " +
           (directory / "pixels"));
    const Bytes ppm = readFile(directory / "pixels");
    Pixels pixels;
    int headerLength = 0;
    const std::string start(ppm.begin(),
                            ppm.begin() + std::min<std::ptrdiff_t>(64, std::ssize(ppm)));
    if (std::sscanf(start.c_str(), "P6 %d %d 255%n", &pixels.width, &pixels.height,
                    &headerLength) != 2)
        throw std::runtime_error("no PPM");
    pixels.rgb.assign(ppm.begin() + headerLength + 1, ppm.end());
    return pixels;
}

}  // namespace samples
