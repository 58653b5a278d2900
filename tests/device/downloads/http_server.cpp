#include "tests/device/downloads/http_server.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace test {
namespace {

constexpr std::chrono::seconds Deadline{30};

bool sendAll(int connection, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return std::tolower(character); });
    return text;
}

}  // namespace

HttpReply serveFile(const HttpRequest& request, const std::string& content,
                    const std::string& entityTag) {
    HttpReply reply;
    reply.fields = {"ETag: " + entityTag, "Content-Type: audio/mpeg"};
    const std::string range = request.field("range");
    if (!range.starts_with("bytes=") || request.field("if-range") != entityTag) {
        reply.body = content;
        return reply;
    }
    const std::size_t first = std::strtoull(range.c_str() + 6, nullptr, 10);
    if (first >= content.size()) {
        reply.status = "416 Range Not Satisfiable";
        return reply;
    }
    reply.status = "206 Partial Content";
    reply.body = content.substr(first);
    reply.fields.push_back(
        fmt::format("Content-Range: bytes {}-{}/{}", first, content.size() - 1, content.size()));
    return reply;
}

HttpServer::HttpServer(Handler handler)
    : _listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), _handler(std::move(handler)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (!_listener || ::bind(_listener.get(), plain, size) != 0 ||
        ::listen(_listener.get(), 16) != 0 || ::getsockname(_listener.get(), plain, &size) != 0)
        throw std::runtime_error("no server can be started");
    _port = ntohs(address.sin_port);
    _thread = std::thread([this] { accept(); });
}

HttpServer::~HttpServer() {
    {
        const std::lock_guard lock(_mutex);
        _ends = true;
        for (const int connection : _open)
            ::shutdown(connection, SHUT_RDWR);
        _changed.notify_all();
    }
    ::shutdown(_listener.get(), SHUT_RDWR);
    _thread.join();
    for (std::thread& conversation : _conversations)
        conversation.join();
}

std::string HttpServer::url(const std::string& path) const {
    return fmt::format("http://127.0.0.1:{}{}", _port, path);
}

std::vector<HttpRequest> HttpServer::requests() {
    const std::lock_guard lock(_mutex);
    return _requests;
}

void HttpServer::setHandler(Handler handler) {
    const std::lock_guard lock(_mutex);
    _handler = std::move(handler);
}

void HttpServer::release() {
    const std::lock_guard lock(_mutex);
    ++_releases;
    _changed.notify_all();
}

bool HttpServer::waitForStall() {
    std::unique_lock lock(_mutex);
    return _changed.wait_for(lock, Deadline, [&] { return _stalled > 0; });
}

void HttpServer::accept() {
    for (;;) {
        const int connection = ::accept4(_listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard lock(_mutex);
        if (connection < 0 || _ends) {
            if (connection >= 0)
                ::close(connection);
            return;
        }
        _open.push_back(connection);
        _conversations.emplace_back([this, connection] { converse(connection); });
    }
}

// One request for each connection.
void HttpServer::converse(int connection) {
    if (const auto request = readRequest(connection)) {
        Handler handler;
        {
            const std::lock_guard lock(_mutex);
            _requests.push_back(*request);
            handler = _handler;
        }
        answer(connection, handler(*request));
    }
    const std::lock_guard lock(_mutex);
    std::erase(_open, connection);
    ::shutdown(connection, SHUT_RDWR);
    ::close(connection);
}

void HttpServer::answer(int connection, const HttpReply& reply) {
    std::string head = "HTTP/1.1 " + reply.status + "\r\nConnection: close\r\n";
    for (const std::string& field : reply.fields)
        head += field + "\r\n";
    if (reply.tellsLength)
        head += fmt::format("Content-Length: {}\r\n", reply.announced.value_or(reply.body.size()));
    if (!sendAll(connection, head + "\r\n") ||
        !sendAll(connection, std::string_view(reply.body).substr(0, reply.sends)) || !reply.stalls)
        return;
    std::unique_lock lock(_mutex);
    const unsigned releases = _releases;
    ++_stalled;
    _changed.notify_all();
    _changed.wait(lock, [&] { return _releases != releases || _ends; });
    --_stalled;
}

std::optional<HttpRequest> HttpServer::readRequest(int connection) {
    std::string text;
    while (text.find("\r\n\r\n") == std::string::npos) {
        char buffer[4096];
        const ssize_t count = ::recv(connection, buffer, sizeof buffer, 0);
        if (count <= 0)
            return std::nullopt;
        text.append(buffer, static_cast<std::size_t>(count));
    }
    HttpRequest request;
    const std::size_t blank = text.find(' ');
    request.path = text.substr(blank + 1, text.find(' ', blank + 1) - blank - 1);
    for (std::size_t line = text.find("\r\n") + 2; text.compare(line, 2, "\r\n") != 0;) {
        const std::size_t end = text.find("\r\n", line);
        const std::size_t colon = text.find(": ", line);
        if (colon < end)
            request.fields[lowered(text.substr(line, colon - line))] =
                text.substr(colon + 2, end - colon - 2);
        line = end + 2;
    }
    return request;
}

}  // namespace test
