#include "host/session/sync_session.h"

#include <unistd.h>

#include <chrono>
#include <deque>

#include "host/scan/content_hash.h"
#include "host/session/asset_feeder.h"
#include "host/session/link_error.h"
#include "host/session/part_reader.h"
#include "host/session/session_stream.h"
#include "host/session/upload_file.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using platform::OptionalError;
using Kind = link::FromDevice::MessageCase;

constexpr int PartialQueryBatch = 1000;
// How long the device may take to end a session in order.
constexpr std::chrono::seconds EndDeadline{60};
constexpr std::chrono::seconds CloseDeadline{20};

}  // namespace

struct SyncSession::Impl {
    std::unique_ptr<SessionStream> stream;
    std::atomic<bool> interrupted{false};
    bool opened = false;
    bool ended = false;
    bool insideFile = false;

    bool send(const link::FromHost& message) { return stream->send(message); }
    OptionalError failure();
    OptionalError await(Kind kind, link::FromDevice& message,
                        std::optional<std::chrono::steady_clock::time_point> deadline = {});
    OptionalError sendFile(link::SessionFile::Kind kind, const std::string& name,
                           const AssetPart& content);
    OptionalError receiveSaved(OpenedSession& opened);
};

// Why nothing more can be done in this session.
OptionalError SyncSession::Impl::failure() {
    ended = true;
    if (interrupted)
        return cancelledError();
    return stream->error();
}

// The next message of a kind. Others are passed over: they answer what was given up.
OptionalError SyncSession::Impl::await(
    Kind kind, link::FromDevice& message,
    std::optional<std::chrono::steady_clock::time_point> deadline) {
    while (auto received = stream->receive(deadline)) {
        if (received->message_case() == kind) {
            message = std::move(*received);
            return std::nullopt;
        }
        if (received->has_failed())
            return failure();
    }
    return failure();
}

SyncSession::SyncSession(std::unique_ptr<SessionStream> stream) : _impl(std::make_unique<Impl>()) {
    _impl->stream = std::move(stream);
}

SyncSession::~SyncSession() {
    close();
}

OptionalError SyncSession::open(const SessionOpening& opening, OpenedSession& opened) {
    link::FromHost open;
    open.mutable_open()->set_host_uid(opening.hostUid);
    open.mutable_open()->set_host_name(opening.hostName);
    open.mutable_open()->set_process_id(static_cast<std::uint32_t>(::getpid()));
    open.mutable_open()->set_version(opening.version);
    link::FromHost prepare;
    prepare.mutable_prepare()->set_host_anchor(opening.hostAnchor);
    prepare.mutable_prepare()->set_host_version(opening.version);
    // Both go out at once: one wait instead of two.
    if (!_impl->send(open) || !_impl->send(prepare))
        return _impl->failure();
    _impl->opened = true;
    link::FromDevice message;
    if (auto error = _impl->await(Kind::kOpened, message))
        return error;
    opened.libraryUid = message.opened().library_uid();
    opened.anchor = message.opened().anchor();
    opened.freeBytes = message.opened().free_bytes();
    opened.notices.assign(message.opened().notices().begin(), message.opened().notices().end());
    opened.disabledKinds.assign(message.opened().disabled_kinds().begin(),
                                message.opened().disabled_kinds().end());
    return _impl->receiveSaved(opened);
}

// The order of the saved streams and the answer to the preparation is the device's choice.
OptionalError SyncSession::Impl::receiveSaved(OpenedSession& opened) {
    // Far beyond what owners' changes of the largest library need.
    constexpr std::size_t mostSavedBytes = std::size_t{512} << 20;
    bool prepared = false;
    bool savedAll = false;
    while (!prepared || !savedAll) {
        auto message = stream->receive();
        if (!message || message->has_failed())
            return failure();
        prepared = prepared || message->has_prepared();
        if (!message->has_saved())
            continue;
        std::string& saved = message->saved().kind() == link::SavedChunk::PLAYLISTS
                                 ? opened.savedPlaylists
                                 : opened.savedMetadata;
        if (saved.size() + message->saved().data().size() > mostSavedBytes)
            return platform::Error(LinkErrorDomain, LinkErrorProtocol,
                                   "the device saved more changes than can be taken");
        saved += message->saved().data();
        savedAll = message->saved().last();
    }
    return std::nullopt;
}

OptionalError SyncSession::sendHostData(const std::string& path) {
    AssetPart content;
    content.path = path;
    content.size = fileSize(path);
    return _impl->sendFile(link::SessionFile::HOST_DATA, {}, content);
}

OptionalError SyncSession::sendSettings(const std::string& name, std::string bytes) {
    AssetPart content;
    content.bytes = std::move(bytes);
    return _impl->sendFile(link::SessionFile::SETTINGS, name, content);
}

OptionalError SyncSession::Impl::sendFile(link::SessionFile::Kind kind, const std::string& name,
                                          const AssetPart& content) {
    PartReader reader(content);
    if (std::string reason = reader.open(0); !reason.empty())
        return platform::Error(LinkErrorDomain, LinkErrorProtocol, reason);
    link::FromHost announcement;
    announcement.mutable_file()->set_kind(kind);
    announcement.mutable_file()->set_name(name);
    announcement.mutable_file()->set_size(reader.size());
    if (!send(announcement))
        return failure();
    insideFile = true;
    for (bool last = false; !last;) {
        PartReader::Piece piece = reader.next();
        if (!piece.failure.empty())
            return platform::Error(LinkErrorDomain, LinkErrorProtocol, piece.failure);
        last = piece.last;
        link::FromHost message;
        message.mutable_chunk()->set_data(std::move(piece.data));
        message.mutable_chunk()->set_last(last);
        if (last)
            message.mutable_chunk()->set_content_hash(bytesOfContentHash(reader.hash()));
        if (!send(message))
            return failure();
    }
    insideFile = false;
    link::FromDevice answer;
    return await(Kind::kFileReceived, answer);
}

OptionalError SyncSession::sendKenningConfiguration(std::string plist) {
    link::FromHost message;
    message.mutable_kenning_configuration()->set_plist(std::move(plist));
    link::FromDevice answer;
    if (!_impl->send(message))
        return _impl->failure();
    return _impl->await(Kind::kKenningConfigurationStored, answer);
}

OptionalError SyncSession::reconcile(std::uint32_t syncType, const std::string& newAnchor,
                                     std::string& storedAnchor) {
    link::FromHost message;
    message.mutable_reconcile()->set_sync_type(syncType);
    message.mutable_reconcile()->set_new_anchor(newAnchor);
    link::FromDevice answer;
    if (!_impl->send(message))
        return _impl->failure();
    if (auto error = _impl->await(Kind::kReconciled, answer))
        return error;
    storedAnchor = answer.reconciled().anchor();
    if (answer.reconciled().success())
        return std::nullopt;
    if (_impl->interrupted)
        return cancelledError();
    return errorOfFailure(answer.reconciled().failure());
}

OptionalError SyncSession::askOutstanding(std::vector<OutstandingAsset>& assets) {
    link::FromHost message;
    message.mutable_outstanding();
    if (!_impl->send(message))
        return _impl->failure();
    for (bool last = false; !last;) {
        link::FromDevice answer;
        if (auto error = _impl->await(Kind::kOutstanding, answer))
            return error;
        for (link::Asset& listed : *answer.mutable_outstanding()->mutable_assets()) {
            OutstandingAsset& asset = assets.emplace_back();
            asset.identifier = std::move(*listed.mutable_identifier());
            asset.parts = listed.parts();
            asset.isDownload = listed.is_download();
            asset.deleteAfterUpload = listed.delete_after_upload();
            asset.fileName = std::move(*listed.mutable_file_name());
        }
        last = answer.outstanding().last();
    }
    return std::nullopt;
}

OptionalError SyncSession::askPartial(
    std::vector<OutstandingAsset>& assets,
    const std::function<std::optional<ContentHash>(const OutstandingAsset&, std::uint64_t)>&
        prefixHash) {
    std::vector<OutstandingAsset*> asked;
    for (OutstandingAsset& asset : assets)
        if (asset.isDownload && (asset.parts & AssetPartFile) != 0)
            asked.push_back(&asset);
    for (std::size_t begin = 0; begin < asked.size(); begin += PartialQueryBatch) {
        const std::size_t end = std::min(asked.size(), begin + PartialQueryBatch);
        link::FromHost message;
        for (std::size_t i = begin; i < end; ++i)
            message.mutable_partial()->add_identifiers(asked[i]->identifier);
        link::FromDevice answer;
        if (!_impl->send(message))
            return _impl->failure();
        if (auto error = _impl->await(Kind::kPartial, answer))
            return error;
        const link::PartialReply& reply = answer.partial();
        for (std::size_t i = begin; i < end; ++i) {
            const int place = static_cast<int>(i - begin);
            if (place >= reply.bytes_size() || place >= reply.prefix_hash_size() ||
                reply.bytes(place) == 0)
                continue;
            const auto theirs = contentHashOfBytes(reply.prefix_hash(place));
            if (theirs && prefixHash(*asked[i], reply.bytes(place)) == theirs)
                asked[i]->resumeFrom = reply.bytes(place);
        }
    }
    return std::nullopt;
}

namespace {

// The assets that were sent and not yet answered, in order.
class Unanswered {
public:
    explicit Unanswered(const TransferEvents& events) : _events(events) {}

    bool empty() const { return _waiting.empty(); }

    void add(const OutstandingAsset& asset, FedMessage& end) {
        _waiting.push_back({&asset, false, std::move(end.failure), false, end.fileHash});
    }

    void answer(const link::AssetResult& result) {
        const auto found = std::ranges::find_if(_waiting, [&](const AssetOutcome& waiting) {
            return waiting.asset->identifier == result.identifier() &&
                   waiting.asset->parts == result.parts();
        });
        if (found == _waiting.end())
            return;
        AssetOutcome outcome = std::move(*found);
        _waiting.erase(found);
        outcome.success = result.success() && outcome.reason.empty();
        if (result.has_failure()) {
            const platform::Error error = errorOfFailure(result.failure());
            outcome.noSpace = isNoSpace(error);
            if (outcome.reason.empty())
                outcome.reason = error.text();
        }
        _events.finished(outcome);
    }

private:
    const TransferEvents& _events;
    std::deque<AssetOutcome> _waiting;
};

}  // namespace

OptionalError SyncSession::transfer(const std::vector<OutstandingAsset>& assets,
                                    AssetSource& source, const TransferEvents& events) {
    AssetFeeder feeder(assets, source);
    Unanswered unanswered(events);
    std::uint64_t bytes = 0;
    auto asset = assets.begin();
    while (auto fed = feeder.next()) {
        if (_impl->interrupted)
            return cancelledError();
        bytes += fed->bytes;
        if (!_impl->send(fed->message))
            return _impl->failure();
        _impl->insideFile = fed->insideFile;
        if (fed->bytes != 0)
            events.sent(bytes);
        if (fed->endsAsset)
            unanswered.add(*asset++, *fed);
        while (auto answer = _impl->stream->poll()) {
            if (answer->has_failed())
                return _impl->failure();
            if (answer->has_asset_result())
                unanswered.answer(answer->asset_result());
        }
    }
    while (!unanswered.empty()) {
        link::FromDevice answer;
        if (auto error = _impl->await(Kind::kAssetResult, answer))
            return error;
        unanswered.answer(answer.asset_result());
        if (_impl->interrupted)
            return cancelledError();
    }
    return std::nullopt;
}

OptionalError SyncSession::receiveUpload(const OutstandingAsset& asset,
                                         const std::string& directory, const std::string& fileName,
                                         UploadOutcome& outcome) {
    link::FromHost request;
    request.mutable_upload()->set_identifier(asset.identifier);
    if (!_impl->send(request))
        return _impl->failure();
    UploadFile file(directory, fileName);
    for (bool last = false; !last;) {
        link::FromDevice message;
        if (auto error = _impl->await(Kind::kUploadChunk, message))
            return error;
        const link::UploadChunk& chunk = message.upload_chunk();
        if (chunk.identifier() != asset.identifier)
            continue;
        last = chunk.last();
        if (chunk.has_failure())
            file.fail(errorOfFailure(chunk.failure()).text());
        file.write(chunk.data());
        if (last)
            file.finish(contentHashOfBytes(chunk.content_hash()));
        if (_impl->interrupted)
            return cancelledError();
    }
    outcome.path = file.path();
    outcome.failure = file.failure();
    link::FromHost done;
    done.mutable_upload_done()->set_identifier(asset.identifier);
    done.mutable_upload_done()->set_success(outcome.failure.empty());
    if (!_impl->send(done))
        return _impl->failure();
    link::FromDevice closed;
    if (auto error = _impl->await(Kind::kUploadClosed, closed))
        return error;
    outcome.deleted = closed.upload_closed().deleted();
    return std::nullopt;
}

OptionalError SyncSession::end(bool success, std::string& anchor) {
    link::FromHost message;
    message.mutable_end()->set_success(success);
    if (!_impl->send(message))
        return _impl->failure();
    link::FromDevice answer;
    if (auto error =
            _impl->await(Kind::kEnded, answer, std::chrono::steady_clock::now() + EndDeadline))
        return error;
    anchor = answer.ended().anchor();
    _impl->ended = true;
    return std::nullopt;
}

void SyncSession::close() {
    const auto deadline = std::chrono::steady_clock::now() + CloseDeadline;
    if (_impl->opened && !_impl->ended && !_impl->insideFile) {
        link::FromHost message;
        message.mutable_end()->set_success(false);
        _impl->send(message);
    }
    // Within a file the stream just stops: what has arrived of it serves the next run.
    _impl->ended = true;
    _impl->stream->sayNoMore();
    while (_impl->stream->receive(deadline)) {
    }
}

void SyncSession::interrupt() {
    if (!_impl->interrupted.exchange(true))
        _impl->stream->cancelImport();
}

}  // namespace host
