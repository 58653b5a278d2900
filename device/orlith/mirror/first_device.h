// The first device as a companion's session talks to it: questions and their answers.
//
// One thread asks and reads; cancel() may be called on any. Every call throws SessionError when the
// other device refuses, ends the session, breaks the protocol or is gone.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "device/orlith/mirror/peer_stream.h"
#include "platform/errors.h"

namespace orlith {

class FirstDevice {
public:
    explicit FirstDevice(CompanionStream& stream) : _stream(stream) {}

    link::PeerOpened open(const link::PeerOpen& message);
    link::PeerState state();
    link::PlaylistDeletions deletions(std::int64_t after);
    // Each piece as it comes; the callback answers true at the last.
    void changes(const link::ChangesRequest& message,
                 const std::function<bool(const link::ChangeStream&)>& piece);
    void acknowledge(std::int64_t revision);
    void askForAsset(const link::AssetRequest& request);
    link::AssetMessage nextOfAssets();
    void close(bool success);

    // Whatever is asked and read from now on fails with this error; the first one stays.
    void cancel(const platform::Error& reason);

private:
    void send(const link::FromCompanion& message);
    link::FromFirst receive();
    link::FromFirst ask(const link::FromCompanion& message, link::FromFirst::MessageCase expected);
    link::FromFirst expect(link::FromFirst::MessageCase expected);
    [[noreturn]] void throwGone();

    CompanionStream& _stream;
    std::mutex _mutex;
    platform::OptionalError _cancelled;  // guarded by _mutex
};

}  // namespace orlith
