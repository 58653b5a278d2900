// A small HTTP server on this machine that misbehaves as it is told.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "common/unique_fd.h"

namespace test {

struct HttpRequest {
    std::string path;
    std::map<std::string, std::string> fields;  // by lower-case name

    std::string field(const std::string& name) const {
        const auto found = fields.find(name);
        return found == fields.end() ? std::string() : found->second;
    }
};

struct HttpReply {
    std::string status = "200 OK";
    std::vector<std::string> fields{};  // "Name: value"; without the length
    std::string body{};
    bool tellsLength = true;
    std::optional<std::size_t> announced{};  // a length other than the body's
    std::size_t sends = std::string::npos;   // bytes of the body before the connection is cut
    bool stalls = false;                     // it is not cut then, nothing more comes
};

// A file as a good server gives it: with ranges, when the version asked for is the one there is.
HttpReply serveFile(const HttpRequest& request, const std::string& content,
                    const std::string& entityTag);

class HttpServer {
public:
    // Called on threads of the server's own, one for each connection.
    using Handler = std::function<HttpReply(const HttpRequest&)>;

    explicit HttpServer(Handler handler);
    ~HttpServer();

    std::string url(const std::string& path) const;
    std::vector<HttpRequest> requests();
    // From now on requests are answered so.
    void setHandler(Handler handler);
    // Connections that stall are closed.
    void release();
    // Waits until a connection stalls; false when none does in time.
    bool waitForStall();

private:
    void accept();
    void converse(int connection);
    void answer(int connection, const HttpReply& reply);
    std::optional<HttpRequest> readRequest(int connection);

    common::UniqueFd _listener;
    int _port = 0;
    std::mutex _mutex;  // protects what follows
    std::condition_variable _changed;
    Handler _handler;
    std::vector<HttpRequest> _requests;
    std::vector<std::thread> _conversations;
    std::vector<int> _open;
    int _stalled = 0;
    unsigned _releases = 0;
    bool _ends = false;

    std::thread _thread;
};

}  // namespace test
