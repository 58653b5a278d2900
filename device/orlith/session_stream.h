// The two-way stream of one session's messages, whatever carries it.
#pragma once

#include "link/orlith.pb.h"

namespace orlith {

class SessionStream {
public:
    virtual ~SessionStream() = default;
    // One thread. False when the host has said its last or is gone.
    virtual bool read(link::FromHost& message) = 0;
    // Any thread, also while another reads. False when the host is gone.
    virtual bool write(const link::FromDevice& message) = 0;
    // Any thread: makes read() answer false soon, without waiting for the host.
    virtual void cancel() = 0;
};

}  // namespace orlith
