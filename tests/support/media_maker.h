// Purpose: small media files and pictures for tests and benchmarks, made in memory at once.
// Thread: any.
// Failure: an exception, which fails the test.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace test {

// Writes a file, with the folders above it.
void writeFile(const std::string& path, const std::string& bytes);

// A silent MP3 of about `seconds` with an ID3 tag of the frames given ("TIT2", text). Pictures are
// cover bytes, "" for none.
std::string taggedMp3(const std::vector<std::pair<std::string, std::string>>& frames,
                      double seconds = 1, const std::string& jpegCover = {});

// `count` tagged songs of `size` bytes or a little more, in folders of an artist and an album each
// with 10 tracks. The same bytes at every call.
void makeSongs(const std::string& folder, std::size_t count, std::size_t size = 0);

// Pictures of a grey ramp; the JPEG made longer to `size` bytes behind its end.
std::string plainJpeg(int width, int height, std::size_t size = 0);
std::string plainPng(int width, int height);
std::string plainWebp(int width, int height);
// Small as a file, width * height pixels once decoded.
std::string pngBomb(std::uint32_t width, std::uint32_t height);

// The bytes of a file; "" when it is not there.
std::string bytesOfFile(const std::filesystem::path& path);

}  // namespace test
