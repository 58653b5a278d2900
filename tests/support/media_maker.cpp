#include "tests/support/media_maker.h"

#include <zlib.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace test {

namespace {

// MPEG 1 layer III, 128 kbit/s, 44.1 kHz, mono; empty side information is silence.
constexpr unsigned char FrameHeader[] = {0xff, 0xfb, 0x90, 0xc4};
constexpr std::size_t FrameSize = 417;  // bytes
constexpr double FramesPerSecond = 44100.0 / 1152;

std::string syncSafe(std::size_t size) {
    std::string bytes(4, '\0');
    for (std::size_t at = 4; at-- > 0; size >>= 7)
        bytes[at] = static_cast<char>(size & 0x7f);
    return bytes;
}

std::string id3Frame(const std::string& id, const std::string& body) {
    return id + syncSafe(body.size()) + std::string(2, '\0') + body;
}

std::string bigEndian(std::uint32_t number) {
    return {static_cast<char>(number >> 24), static_cast<char>(number >> 16),
            static_cast<char>(number >> 8), static_cast<char>(number)};
}

std::string pngChunk(const std::string& kind, const std::string& body) {
    const std::string checked = kind + body;
    const auto sum =
        crc32(0, reinterpret_cast<const Bytef*>(checked.data()), static_cast<uInt>(checked.size()));
    return bigEndian(static_cast<std::uint32_t>(body.size())) + checked +
           bigEndian(static_cast<std::uint32_t>(sum));
}

std::string deflated(const std::string& bytes) {
    uLongf size = compressBound(bytes.size());
    std::string result(size, '\0');
    if (compress2(reinterpret_cast<Bytef*>(result.data()), &size,
                  reinterpret_cast<const Bytef*>(bytes.data()), bytes.size(), 1) != Z_OK)
        throw std::runtime_error("zlib");
    result.resize(size);
    return result;
}

}  // namespace

void writeFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush())
        throw std::runtime_error("cannot write " + path);
}

std::string taggedMp3(const std::vector<std::pair<std::string, std::string>>& frames,
                      double seconds, const std::string& jpegCover) {
    std::string tag;
    for (const auto& [id, text] : frames)
        tag += id3Frame(id, '\x03' + text);
    if (!jpegCover.empty())
        tag +=
            id3Frame("APIC", '\x03' + std::string("image/jpeg") + '\0' + '\x03' + '\0' + jpegCover);
    std::string bytes = std::string("ID3\x04\0\0", 6) + syncSafe(tag.size()) + tag;
    std::string frame(std::begin(FrameHeader), std::end(FrameHeader));
    frame.resize(FrameSize);
    for (auto count = std::lround(seconds * FramesPerSecond); count > 0; --count)
        bytes += frame;
    return bytes;
}

void makeSongs(const std::string& folder, std::size_t count, std::size_t size) {
    constexpr std::size_t AlbumSize = 10;
    const double seconds =
        size == 0 ? 1 : static_cast<double>(size) / (FrameSize * FramesPerSecond);
    for (std::size_t number = 0; number < count; ++number) {
        const std::size_t album = number / AlbumSize;
        const std::size_t track = number % AlbumSize + 1;
        const std::string artistName = "Artist " + std::to_string(album / 3);
        const std::string albumName = "Album " + std::to_string(album);
        const std::filesystem::path path = std::filesystem::path(folder) / artistName / albumName;
        if (track == 1)
            std::filesystem::create_directories(path);
        std::ofstream out(path / ("Song " + std::to_string(track) + ".mp3"), std::ios::binary);
        const std::string bytes = taggedMp3({{"TIT2", "Song " + std::to_string(number)},
                                             {"TPE1", artistName},
                                             {"TALB", albumName},
                                             {"TCON", "Genre " + std::to_string(album % 7)},
                                             {"TDRC", std::to_string(1970 + album % 50)},
                                             {"TRCK", std::to_string(track) + "/10"}},
                                            seconds);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
}

std::string pngBomb(std::uint32_t width, std::uint32_t height) {
    // One bit a pixel, grey; each row begins with its filter.
    const std::size_t row = 1 + (std::size_t{width} + 7) / 8;
    return "\x89PNG\r\n\x1a\n" +
           pngChunk("IHDR", bigEndian(width) + bigEndian(height) + std::string("\1\0\0\0\0", 5)) +
           pngChunk("IDAT", deflated(std::string(row * height, '\0'))) + pngChunk("IEND", "");
}

std::string bytesOfFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace test
