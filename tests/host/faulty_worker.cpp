// A media worker that behaves as the names of the files tell it to.
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "host/scan/file_names.h"
#include "host/scan/media_record.h"
#include "host/scan/worker_protocol.h"

namespace {

void say(const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count =
            ::send(host::WorkerSocket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            std::_Exit(1);
        sent += static_cast<std::size_t>(count);
    }
}

void answer(const host::MediaRequest& request) {
    const std::string name(host::stemOfPath(request.path));
    if (name.starts_with("crash"))
        std::_Exit(139);
    if (name.starts_with("hang"))
        while (true)
            ::pause();
    if (name.starts_with("babble"))
        return say(std::string(64, '\xff'));
    if (name.starts_with("confuse"))
        return say(host::framedMessage(host::encodeAnswer({{}, "no record"})));
    host::MediaFile file;
    file.tags.title = name;
    file.audioCodec = "mp3";
    say(host::framedMessage(host::encodeAnswer({{}, host::encodeMediaFile(file)})));
}

}  // namespace

int main() {
    say(host::framedMessage(host::WorkerGreeting));
    std::string buffer;
    char piece[4096];
    while (true) {
        const ssize_t got = ::recv(host::WorkerSocket, piece, sizeof piece, 0);
        if (got <= 0)
            return 0;
        buffer.append(piece, static_cast<std::size_t>(got));
        bool tooLong = false;
        while (const auto message = host::takeMessage(buffer, tooLong))
            answer(*host::decodeRequest(*message));
    }
}
