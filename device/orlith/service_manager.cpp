#include "device/orlith/service_manager.h"

#ifdef ORLITH_HAS_SYSTEMD
#include <fcntl.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>
#endif

namespace orlith {

#ifdef ORLITH_HAS_SYSTEMD

common::UniqueFd socketFromServiceManager() {
    if (sd_listen_fds(1) != 1 ||
        sd_is_socket_unix(SD_LISTEN_FDS_START, SOCK_STREAM, 1, nullptr, 0) <= 0)
        return {};
    common::UniqueFd socket(SD_LISTEN_FDS_START);
    const int flags = ::fcntl(socket.get(), F_GETFL);
    if (flags < 0 || ::fcntl(socket.get(), F_SETFL, flags | O_NONBLOCK) < 0)
        return {};
    return socket;
}

void tellReady(const std::string& status) {
    sd_notifyf(0, "READY=1\nSTATUS=%s", status.c_str());
}

void tellStatus(const std::string& status) {
    sd_notifyf(0, "STATUS=%s", status.c_str());
}

void tellStopping() {
    sd_notify(0, "STOPPING=1");
}

#else

common::UniqueFd socketFromServiceManager() {
    return {};
}
void tellReady(const std::string&) {}
void tellStatus(const std::string&) {}
void tellStopping() {}

#endif

}  // namespace orlith
