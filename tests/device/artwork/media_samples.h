// Pictures and films for the tests, made and taken apart by the ffmpeg tool: an encoder and a
// decoder that are not the ones under test.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace samples {

using Bytes = std::vector<std::uint8_t>;

// Runs "ffmpeg -v error -y -nostdin <arguments>" through the shell; throws when it fails.
void ffmpeg(const std::string& arguments);

Bytes readFile(const std::string& path);
void writeFile(const std::string& path, const Bytes& bytes);

// A picture of an ffmpeg source such as "color=red:s=300x200"; the suffix ("jpg", "png", "webp")
// chooses the format.
Bytes picture(const std::string& source, const std::string& suffix,
              const std::string& options = "");

// A PNG and a JPEG whose headers promise a size that their data does not have.
Bytes pngClaiming(std::uint32_t width, std::uint32_t height, bool interlaced = false);
Bytes jpegClaiming(std::uint16_t width, std::uint16_t height);

// A picture taken apart into 8-bit RGB.
struct Pixels {
    int width = 0;
    int height = 0;
    Bytes rgb;
    std::array<int, 3> at(int x, int y) const;
};
Pixels decode(const Bytes& picture);

}  // namespace samples
