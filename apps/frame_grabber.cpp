// orlith-frame-grabber: takes one picture out of the film on its standard input. Started by the
// daemon for one film and gone afterwards; device/artwork/frame_grabber.h describes its answer.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string_view>

#include "device/artwork/frame_grabber.h"
#include "device/artwork/video_frame.h"

namespace {

constexpr auto DecodeLimit = std::chrono::seconds(15);
constexpr rlim_t CpuSeconds = 30;  // of two decoding threads
constexpr rlim_t Memory = rlim_t{1536} << 20;

void limit(int resource, rlim_t value) {
    const rlimit bounds{value, value};
    ::setrlimit(resource, &bounds);
}

// What a decoder that a film has taken over could still do, is spin and fill its own memory.
void limitEverything() {
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_CPU, CpuSeconds);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they map much and report
    limit(RLIMIT_FSIZE, 0);
    limit(RLIMIT_AS, Memory);
    limit(RLIMIT_NOFILE, 3);
#endif
}

bool writeAll(const void* bytes, std::size_t size) {
    const auto* next = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t count = ::write(STDOUT_FILENO, next, size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        next += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

bool answer(char kind, const void* bytes, std::size_t size) {
    const unsigned char header[artwork::FrameAnswerHeaderSize] = {
        static_cast<unsigned char>(kind), static_cast<unsigned char>(size),
        static_cast<unsigned char>(size >> 8), static_cast<unsigned char>(size >> 16),
        static_cast<unsigned char>(size >> 24)};
    return writeAll(header, sizeof header) && writeAll(bytes, size);
}

}  // namespace

#ifdef __SANITIZE_THREAD__
// It starts without an environment. The decoders are not built for the sanitizer.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "ignore_noninstrumented_modules=1:halt_on_error=1";
}
#endif

int main(int argc, char** argv) {
    if (argc != 2)
        return 64;
    limitEverything();
    const artwork::VideoFrame frame =
        artwork::videoFrameAt(STDIN_FILENO, std::strtod(argv[1], nullptr), DecodeLimit);
    const bool written =
        frame.jpeg.empty()
            ? answer(artwork::FrameAnswerReason, frame.reason.data(), frame.reason.size())
            : answer(artwork::FrameAnswerPicture, frame.jpeg.data(), frame.jpeg.size());
    return written ? 0 : 1;
}
