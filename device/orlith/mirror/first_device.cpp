#include "device/orlith/mirror/first_device.h"

#include <cerrno>

#include "device/orlith/mirror/change_messages.h"
#include "device/orlith/session_error.h"

namespace orlith {

using platform::Error;
using Kind = link::FromFirst::MessageCase;

link::PeerOpened FirstDevice::open(const link::PeerOpen& message) {
    link::FromCompanion question;
    *question.mutable_open() = message;
    return ask(question, Kind::kOpened).opened();
}

link::PeerState FirstDevice::state() {
    link::FromCompanion question;
    question.mutable_state();
    return ask(question, Kind::kState).state();
}

link::PlaylistDeletions FirstDevice::deletions(std::int64_t after) {
    link::FromCompanion question;
    question.mutable_deletions()->set_after(after);
    return ask(question, Kind::kDeletions).deletions();
}

void FirstDevice::changes(const link::ChangesRequest& message,
                          const std::function<bool(const link::ChangeStream&)>& piece) {
    link::FromCompanion question;
    *question.mutable_changes() = message;
    send(question);
    while (!piece(expect(Kind::kChanges).changes())) {
    }
}

void FirstDevice::acknowledge(std::int64_t revision) {
    link::FromCompanion question;
    question.mutable_acknowledge()->set_revision(revision);
    ask(question, Kind::kAcknowledged);
}

void FirstDevice::askForAsset(const link::AssetRequest& request) {
    link::FromCompanion question;
    *question.mutable_asset() = request;
    send(question);
}

link::AssetMessage FirstDevice::nextOfAssets() {
    return std::move(*expect(Kind::kAsset).mutable_asset());
}

void FirstDevice::close(bool success) {
    link::FromCompanion question;
    question.mutable_close()->set_success(success);
    ask(question, Kind::kClosed);
}

void FirstDevice::cancel(const Error& reason) {
    {
        const std::scoped_lock lock(_mutex);
        if (!_cancelled)
            _cancelled = reason;
    }
    _stream.cancel();
}

void FirstDevice::send(const link::FromCompanion& message) {
    // What the other device said last tells why it is gone: it is read before giving up.
    _stream.write(message);
}

link::FromFirst FirstDevice::receive() {
    link::FromFirst message;
    if (!_stream.read(message))
        throwGone();
    if (message.has_failed())
        throw SessionError(errorOf(message.failed().failure()));
    return message;
}

void FirstDevice::throwGone() {
    const std::scoped_lock lock(_mutex);
    throw SessionError(
        _cancelled.value_or(Error(platform::POSIXErrorDomain, ECONNRESET,
                                  "the connection to the other device broke; the next run goes on "
                                  "where this one stopped")));
}

link::FromFirst FirstDevice::ask(const link::FromCompanion& message,
                                 link::FromFirst::MessageCase expected) {
    send(message);
    return expect(expected);
}

link::FromFirst FirstDevice::expect(link::FromFirst::MessageCase expected) {
    link::FromFirst answer = receive();
    if (answer.message_case() != expected)
        throw SessionError(Error(OrlithErrorDomain, OrlithErrorProtocol,
                                 "the other device does not keep to the protocol"));
    return answer;
}

}  // namespace orlith
