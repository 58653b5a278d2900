// A two-way stream of one session's messages, whatever carries it.
#pragma once

namespace orlith {

template <typename Incoming, typename Outgoing>
class MessageStream {
public:
    virtual ~MessageStream() = default;
    // One thread. False when the far end has said its last or is gone.
    virtual bool read(Incoming& message) = 0;
    // Any thread, also while another reads; waits while the far end does not take it. False when
    // the far end is gone.
    virtual bool write(const Outgoing& message) = 0;
    // Any thread: read() and write() answer false soon, without waiting for the far end.
    virtual void cancel() = 0;
};

}  // namespace orlith
