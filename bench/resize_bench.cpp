// The device's resizing of pictures beside libvips called bare: the same picture, size and quality,
// without the checks of a picture that comes from anywhere.
#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <vips/vips.h>

#include <cmath>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "bench/figures.h"
#include "device/artwork/image_resize.h"

namespace {

constexpr int Rounds = 9;
constexpr int PicturesPerRound = 10;
constexpr double Limit = 1.25;
constexpr artwork::PixelSize Cover{600, 600};
constexpr int JpegQuality = 88;
constexpr int WebPQuality = 85;
constexpr int PngCompression = 6;

using Bytes = std::vector<std::uint8_t>;

void require(bool condition, const char* what) {
    if (condition)
        return;
    fmt::print(stderr, "{}: {}\n", what, vips_error_buffer());
    std::exit(1);
}

Bytes encode(VipsImage* image, artwork::ImageFormat format) {
    void* memory = nullptr;
    std::size_t size = 0;
    int status = -1;
    if (format == artwork::ImageFormat::Jpeg)
        status = vips_jpegsave_buffer(image, &memory, &size, "Q", JpegQuality, "optimize_coding",
                                      TRUE, "strip", TRUE, nullptr);
    else if (format == artwork::ImageFormat::Png)
        status = vips_pngsave_buffer(image, &memory, &size, "compression", PngCompression, "strip",
                                     TRUE, nullptr);
    else
        status =
            vips_webpsave_buffer(image, &memory, &size, "Q", WebPQuality, "strip", TRUE, nullptr);
    require(status == 0, "a picture could not be written");
    const auto* first = static_cast<const std::uint8_t*>(memory);
    Bytes bytes(first, first + size);
    g_free(memory);
    return bytes;
}

// As a photograph: smooth, with some noise.
Bytes photograph(int width, int height, artwork::ImageFormat format) {
    Bytes pixels(static_cast<std::size_t>(width) * height * 3);
    unsigned noise = 1;
    std::size_t at = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int band = 0; band < 3; ++band) {
                noise = noise * 1664525 + 1013904223;
                const double wave = std::sin(x * 0.01 + band) * std::cos(y * 0.013);
                pixels[at++] = static_cast<std::uint8_t>(120 + 100 * wave + (noise >> 28));
            }
    VipsImage* const image = vips_image_new_from_memory(pixels.data(), pixels.size(), width, height,
                                                        3, VIPS_FORMAT_UCHAR);
    require(image != nullptr, "no picture can be made");
    Bytes bytes = encode(image, format);
    g_object_unref(image);
    return bytes;
}

void resizeBare(const Bytes& picture, artwork::PixelSize size, artwork::ImageFormat format) {
    VipsImage* image = nullptr;
    auto* const bytes = const_cast<std::uint8_t*>(picture.data());
    require(vips_thumbnail_buffer(bytes, picture.size(), &image, static_cast<int>(size.width),
                                  "height", static_cast<int>(size.height), "crop",
                                  VIPS_INTERESTING_CENTRE, nullptr) == 0,
            "a picture could not be resized");
    benchmark::DoNotOptimize(encode(image, format));
    g_object_unref(image);
}

void resizeOurs(const Bytes& picture, artwork::PixelSize size) {
    platform::OptionalError error;
    const auto results = artwork::resizeImage(picture, std::span(&size, 1), error);
    require(!error && results.size() == 1, "a picture could not be resized");
}

bench::Cost costOfRound(const std::function<void()>& resize) {
    return bench::costOf([&] {
        for (int i = 0; i < PicturesPerRound; ++i)
            resize();
    });
}

void resize(benchmark::State& state, const std::string& name, int width, int height,
            artwork::ImageFormat format) {
    const Bytes picture = photograph(width, height, format);
    bench::Figure figure{"resize: " + name, "libvips", 0, PicturesPerRound, Limit};
    // The first use of a format loads its code; ours sets libvips up for both.
    resizeOurs(picture, Cover);
    resizeBare(picture, Cover, format);
    for (auto _ : state)
        bench::addRound(
            figure, [&] { return costOfRound([&] { resizeOurs(picture, Cover); }); },
            [&] { return costOfRound([&] { resizeBare(picture, Cover, format); }); });
    bench::report(state, std::move(figure));
}

void add(const std::string& name, int width, int height, artwork::ImageFormat format) {
    benchmark::RegisterBenchmark(("resize/" + name).c_str(), resize, name, width, height, format)
        ->Iterations(Rounds)
        ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    require(VIPS_INIT(argv[0]) == 0, "libvips does not start");
    add("JPEG 3000x3000", 3000, 3000, artwork::ImageFormat::Jpeg);
    add("JPEG 1400x1000", 1400, 1000, artwork::ImageFormat::Jpeg);
    add("JPEG 500x500", 500, 500, artwork::ImageFormat::Jpeg);
    add("PNG 1500x1500", 1500, 1500, artwork::ImageFormat::Png);
    add("WebP 1500x1500", 1500, 1500, artwork::ImageFormat::WebP);
    benchmark::RunSpecifiedBenchmarks();
    bench::printTable();
    benchmark::Shutdown();
    return 0;
}
