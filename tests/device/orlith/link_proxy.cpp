#include "tests/device/orlith/link_proxy.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "link/address.h"

namespace orlith::testing {

namespace {

namespace fs = std::filesystem;

// Milliseconds; how soon the end is noticed.
constexpr int LookInterval = 20;
constexpr std::size_t PieceSize = 16 << 10;

bool writeAll(int fd, const char* bytes, std::size_t count) {
    while (count != 0) {
        const ssize_t written = ::send(fd, bytes, count, MSG_NOSIGNAL);
        if (written <= 0)
            return false;
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace

LinkProxy::LinkProxy(std::string firstRoot) : _firstRoot(std::move(firstRoot)) {
    std::string name = fs::temp_directory_path() / "orlith-proxy-XXXXXX";
    _root = ::mkdtemp(name.data());
    fs::create_directories(_root + "/var/run");
    platform::OptionalError error;
    _listener = link::listenOnSocket(link::socketPathOfDevice(_root), &error);
    _thread = std::thread([this] { accept(); });
}

LinkProxy::~LinkProxy() {
    _ends = true;
    _thread.join();
    for (std::thread& conversation : _conversations)
        conversation.join();
    std::error_code ignored;
    fs::remove_all(_root, ignored);
}

void LinkProxy::at(Way way, std::size_t bytes, std::function<bool()> then) {
    const std::scoped_lock lock(_mutex);
    _intervention = {way, bytes, std::move(then)};
}

void LinkProxy::accept() {
    while (!_ends) {
        pollfd waiting{_listener.get(), POLLIN, 0};
        if (::poll(&waiting, 1, LookInterval) <= 0)
            continue;
        common::UniqueFd companion(::accept4(_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!companion)
            continue;
        const std::scoped_lock lock(_mutex);
        _conversations.emplace_back(
            [this, fd = std::move(companion), intervention = _intervention]() mutable {
                converse(std::move(fd), std::move(intervention));
            });
    }
}

void LinkProxy::converse(common::UniqueFd companion, Intervention intervention) {
    platform::OptionalError error;
    const common::UniqueFd first =
        link::connectToSocket(link::socketPathOfDevice(_firstRoot), &error);
    if (!first)
        return;
    _passed[0] = _passed[1] = 0;
    // By the way that leads away from each.
    const std::array<int, 2> sources{first.get(), companion.get()};
    std::array<char, PieceSize> piece;
    while (!_ends) {
        pollfd waiting[2] = {{sources[0], POLLIN, 0}, {sources[1], POLLIN, 0}};
        if (::poll(waiting, 2, LookInterval) <= 0)
            continue;
        for (std::size_t way = 0; way < 2; ++way) {
            if (waiting[way].revents == 0)
                continue;
            const bool isWatched =
                intervention.then && static_cast<std::size_t>(intervention.way) == way;
            const std::size_t most = isWatched
                                         ? std::min(piece.size(), intervention.bytes - _passed[way])
                                         : piece.size();
            if (most != 0) {
                const ssize_t count = ::read(sources[way], piece.data(), most);
                if (count <= 0 ||
                    !writeAll(sources[1 - way], piece.data(), static_cast<std::size_t>(count)))
                    return;
                _passed[way] += static_cast<std::size_t>(count);
            }
            if (isWatched && _passed[way] == intervention.bytes) {
                if (!std::exchange(intervention.then, nullptr)())
                    return;
            }
        }
    }
}

}  // namespace orlith::testing
