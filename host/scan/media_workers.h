// Purpose: child processes that open media and pictures on the host's behalf, so that a file that
// crashes, hangs or bloats a decoder costs only itself.
// Thread: one object belongs to one thread; every call works on the calling thread.
// Ownership: the children end with the object. They start at the first request.
// Failure: a file's failure is its answer's reason; run() itself fails only when no worker can be
// started.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stop_token>
#include <string>

#include "platform/errors.h"

namespace host {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr std::uint64_t DefaultWorkerMemory = 0;  // sanitizers map more than any limit
#else
inline constexpr std::uint64_t DefaultWorkerMemory = std::uint64_t{1} << 30;
#endif

struct MediaWorkerOptions {
    // The worker program; empty for "orlith-scan-worker" beside the running program.
    std::string executable;
    unsigned count = 2;
    // A file that takes longer is given up, and its worker replaced.
    std::chrono::milliseconds fileTimeout{10'000};
    // Address space of one worker, bytes; 0 for no limit.
    std::uint64_t memoryLimit = DefaultWorkerMemory;
};

struct MediaRequest {
    enum class Kind : std::uint8_t {
        ReadMedia,        // answer: an encoded MediaFile (media_record.h)
        PrepareEmbedded,  // answer: a prepared image (prepared_image.h) of the file's own picture
        PrepareImage,     // answer: a prepared image of an image file
    };
    Kind kind = Kind::ReadMedia;
    std::string path;           // absolute, any bytes
    std::int32_t chapter = -1;  // of PrepareEmbedded: the chapter's place, -1 for the cover
};

struct MediaAnswer {
    std::string reason;  // why there is no answer, in plain words; empty when there is one
    std::string bytes;
};

class MediaWorkers {
public:
    explicit MediaWorkers(MediaWorkerOptions options = {});
    ~MediaWorkers();
    MediaWorkers(const MediaWorkers&) = delete;
    MediaWorkers& operator=(const MediaWorkers&) = delete;

    // Answers each request exactly once, in any order, by its place. When `stop` is asked for, what
    // is left gets no answer and the call returns.
    platform::OptionalError run(std::span<const MediaRequest> requests,
                                const std::function<void(std::size_t, MediaAnswer)>& answered,
                                const std::stop_token& stop = {});

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace host
