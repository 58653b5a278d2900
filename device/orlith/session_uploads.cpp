// A session's uploads: the device's own files that the host asked for.
#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>

#include "common/hash.h"
#include "device/orlith/asset.h"
#include "device/orlith/names.h"
#include "device/orlith/session.h"
#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::size_t ChunkSize = 256 << 10;

}  // namespace

void Session::sendUpload(const link::UploadRequest& message) {
    require(Step::Transferring, Step::Transferring, "a request for an upload");
    if (_assembly)
        throw protocolError("an asset was not sent to its end");
    post([this, identifier = message.identifier()] {
        const std::shared_ptr<ORAsset> asset = listedUpload(identifier);
        if (!asset)
            return sendUploadFailure(identifier, Error(OrlithErrorDomain, OrlithErrorNotListed,
                                                       "the device offers no such upload"));
        // Every record was made by this daemon.
        sendUploadFile(identifier, static_cast<const Asset&>(*asset).sourcePath());
    });
}

void Session::sendUploadFile(const std::string& identifier, const std::string& path) {
    OptionalError error;
    const common::UniqueFd fd = _services.files.openFile(path, O_RDONLY, 0, &error);
    if (!fd)
        return sendUploadFailure(identifier, error.value_or(Error::posix(EIO)));
    common::XXH3Stream hasher;
    link::FromDevice answer;
    link::UploadChunk& chunk = *answer.mutable_upload_chunk();
    chunk.set_identifier(identifier);
    std::string& data = *chunk.mutable_data();
    for (;;) {
        data.resize(ChunkSize);
        const ssize_t count = ::read(fd.get(), data.data(), data.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return sendUploadFailure(identifier, Error::posix(errno));
        data.resize(static_cast<std::size_t>(count));
        hasher.update({reinterpret_cast<const std::uint8_t*>(data.data()), data.size()});
        if (count == 0) {
            chunk.set_last(true);
            chunk.set_content_hash(hashText(hasher.digest()));
        }
        if (!send(answer) || count == 0)
            return;
    }
}

void Session::sendUploadFailure(const std::string& identifier, const Error& error) {
    link::FromDevice answer;
    link::UploadChunk& chunk = *answer.mutable_upload_chunk();
    chunk.set_identifier(cleanUTF8(identifier));
    chunk.set_last(true);
    fillFailure(error, *chunk.mutable_failure());
    send(answer);
}

void Session::uploadDone(const link::UploadDone& message) {
    require(Step::Transferring, Step::Transferring, "the end of an upload");
    const std::optional<ListedAsset> listed = takeListed(message.identifier(), false, 0);
    if (!listed)
        throw protocolError("the end of an upload that was not offered");
    post([this, asset = listed->asset, success = message.success()] {
        OptionalError error;
        if (!success)
            error = Error(platform::POSIXErrorDomain, EIO, "the host did not get the file");
        _services.client.assetTransferSucceeded(asset, success, error);
        const std::int64_t identifier = parseIdentifier(asset->identifier()).value_or(0);
        link::FromDevice answer;
        link::UploadClosed& closed = *answer.mutable_upload_closed();
        closed.set_identifier(asset->identifier());
        closed.set_deleted(success && isDeletedAfterUpload(*asset) &&
                           !_filer.trackOf(identifier)->existsInLibrary());
        send(answer);
    });
}

std::shared_ptr<ORAsset> Session::listedUpload(const std::string& identifier) {
    const std::scoped_lock lock(_listedMutex);
    const auto [begin, end] = _listed.equal_range(identifier);
    for (auto entry = begin; entry != end; ++entry)
        if (!entry->second.asset->isDownload())
            return entry->second.asset;
    return nullptr;
}

}  // namespace orlith
