#include "host/scan/worker_main.h"

#include <sys/resource.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "host/artwork/prepared_image.h"
#include "host/scan/av_reader.h"
#include "host/scan/media_record.h"
#include "host/scan/small_file.h"
#include "host/scan/worker_protocol.h"

extern "C" {
#include <libavutil/log.h>
}

namespace host {

namespace {

constexpr rlim_t SecondsPerFile = 10;  // of processor time

void limitResources(std::uint64_t addressSpace) {
    if (addressSpace > 0) {
        const rlimit limit{addressSpace, addressSpace};
        ::setrlimit(RLIMIT_AS, &limit);
    }
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    ::setrlimit(RLIMIT_FSIZE, &none);
}

// Lets the next file use its share of processor time, and no more: the kernel then kills.
void startFileClock() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto used = static_cast<rlim_t>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec);
    const rlimit limit{used + SecondsPerFile + 1, RLIM_INFINITY};
    ::setrlimit(RLIMIT_CPU, &limit);
}

bool sendAll(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(WorkerSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

MediaAnswer prepareEmbedded(const MediaRequest& request) {
    const auto picture = readEmbeddedPicture(request.path, request.chapter);
    if (!picture)
        return {"its picture cannot be read", {}};
    return {{}, encodePreparedImage(prepareImage(*picture))};
}

MediaAnswer prepareImageFile(const MediaRequest& request) {
    std::string picture;
    std::string reason = readSmallFile(request.path, ImageSourceLimit, picture);
    if (!reason.empty())
        return {std::move(reason), {}};
    return {{},
            encodePreparedImage(prepareImage(
                {reinterpret_cast<const std::uint8_t*>(picture.data()), picture.size()}))};
}

MediaAnswer answerTo(const MediaRequest& request) {
    try {
        switch (request.kind) {
            case MediaRequest::Kind::ReadMedia:
                return {{}, encodeMediaFile(readMediaFile(request.path))};
            case MediaRequest::Kind::PrepareEmbedded:
                return prepareEmbedded(request);
            case MediaRequest::Kind::PrepareImage:
                return prepareImageFile(request);
        }
        return {"the reader does not know what to do", {}};
    } catch (const std::bad_alloc&) {
        return {"reading it takes too much memory", {}};
    } catch (const std::exception& error) {
        return {std::string("it cannot be read: ") + error.what(), {}};
    }
}

// Answers all whole requests in the buffer; false when the conversation is over.
bool answerRequests(std::string& buffer) {
    bool tooLong = false;
    while (const auto message = takeMessage(buffer, tooLong)) {
        const auto request = decodeRequest(*message);
        if (!request)
            return false;
        startFileClock();
        std::string answer = encodeAnswer(answerTo(*request));
        if (answer.size() > WorkerMessageLimit)
            answer = encodeAnswer({"what it holds is too large", {}});
        if (!sendAll(framedMessage(answer)))
            return false;
    }
    return !tooLong;
}

}  // namespace

int mediaWorkerMain(int count, char** arguments) {
    limitResources(count > 1 ? std::strtoull(arguments[1], nullptr, 10) : 0);
    av_log_set_level(AV_LOG_QUIET);
    if (!sendAll(framedMessage(WorkerGreeting)))
        return EXIT_FAILURE;
    std::string buffer;
    std::vector<char> piece(64 * 1024);
    while (true) {
        const ssize_t got = ::recv(WorkerSocket, piece.data(), piece.size(), 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return EXIT_FAILURE;
        if (got == 0)
            return EXIT_SUCCESS;
        buffer.append(piece.data(), static_cast<std::size_t>(got));
        if (!answerRequests(buffer))
            return EXIT_FAILURE;
    }
}

}  // namespace host
