#include "device/orlith/backup/backup_service.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "common/hash.h"
#include "device/korvane/library.h"
#include "device/korvane/listing.h"
#include "device/orlith/backup/backup_creation.h"
#include "device/orlith/backup/restore_receipt.h"
#include "device/orlith/call_boundary.h"
#include "device/orlith/names.h"
#include "device/orlith/slot_hold.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::size_t LargestPiece = 1 << 20;  // bytes

// The bytes of a restore, as they come.
class ReceivedBytes {
public:
    explicit ReceivedBytes(grpc::ServerReader<link::RestorePiece>& reader) : _reader(reader) {}

    std::size_t read(std::span<std::uint8_t> bytes, OptionalError& error) {
        while (_used == _piece.data().size()) {
            _used = 0;
            _piece.Clear();
            if (!_reader.Read(&_piece))
                return 0;
            if (!_piece.has_data() || _piece.data().size() > LargestPiece) {
                error = protocolError("a piece of a backup that is none").error();
                return 0;
            }
        }
        const std::size_t count = std::min(bytes.size(), _piece.data().size() - _used);
        std::copy_n(_piece.data().begin() + static_cast<std::ptrdiff_t>(_used), count,
                    bytes.begin());
        _used += count;
        return count;
    }

private:
    grpc::ServerReader<link::RestorePiece>& _reader;
    link::RestorePiece _piece;
    std::size_t _used = 0;
};

}  // namespace

grpc::Status BackupService::Create(grpc::ServerContext*, const link::CreateBackupRequest*,
                                   grpc::ServerWriter<link::BackupPiece>* writer) {
    return guardedCall(_parts.calls, _parts.log, "CreateBackup", [&] {
        if (const OptionalError error = create(*writer)) {
            link::BackupPiece last;
            fillFailure(*error, *last.mutable_end()->mutable_failure());
            writer->Write(last);
        }
    });
}

OptionalError BackupService::create(grpc::ServerWriter<link::BackupPiece>& writer) {
    BackupCreation creation({_parts.client, _parts.files, _parts.activities});
    OptionalError error;
    const auto head = creation.prepare(_parts.library.uid(), now(), error);
    if (!head)
        return error;
    link::BackupPiece piece;
    link::BackupSummary& begin = *piece.mutable_begin();
    begin.set_size(head->totalSize());
    begin.set_files(head->files.size());
    begin.set_device_id(head->deviceID);
    begin.set_library_uid(head->libraryUID);
    writer.Write(piece);
    common::XXH3Stream hash;
    BackupWriter backup([&](std::span<const std::uint8_t> bytes) {
        hash.update(bytes);
        piece.set_data(bytes.data(), bytes.size());
        return writer.Write(piece);
    });
    if (OptionalError failure = creation.write(*head, backup))
        return failure;
    const common::Hash128 digest = hash.digest();
    piece.mutable_end()->set_content_hash(digest.data(), digest.size());
    writer.Write(piece);
    return std::nullopt;
}

grpc::Status BackupService::Restore(grpc::ServerContext* context,
                                    grpc::ServerReader<link::RestorePiece>* reader,
                                    link::RestoreReply* reply) {
    return guardedCall(_parts.calls, _parts.log, "Restore", [&] {
        OptionalError error;
        {
            const SlotHold hold(_parts.slot, "a restore", *context);
            error = restore(*reader, *reply);
        }
        fillOutcome(error, *reply);
        // Whoever has the place for a session then is told; this call has to be answered.
        if (!error)
            _parts.requestStop();
    });
}

OptionalError BackupService::restore(grpc::ServerReader<link::RestorePiece>& reader,
                                     link::RestoreReply& reply) {
    link::RestorePiece first;
    if (!reader.Read(&first) || !first.has_open())
        throw protocolError("a restore that does not say of what");
    const bool isEmpty = korvane::libraryCounts(_parts.library).tracks == 0;
    const bool isWhole = !korvane::lacksFiles(_parts.library);
    RestoreReceipt receipt({_parts.files, isEmpty, isWhole, first.open().replace(), now()});
    ReceivedBytes bytes(reader);
    OptionalError error =
        first.open().with_backup()
            ? receipt.receive([&](std::span<std::uint8_t> wanted, OptionalError& failure) {
                  return bytes.read(wanted, failure);
              })
            : receipt.acceptWhatIsThere();
    reply.set_files(receipt.files());
    reply.set_bytes(receipt.bytes());
    reply.set_process_id(static_cast<std::uint32_t>(::getpid()));
    reply.set_was_empty(isEmpty);
    return error;
}

grpc::Status BackupService::LastRestore(grpc::ServerContext*, const link::LastRestoreRequest*,
                                        link::LastRestoreReply* reply) {
    return guardedCall(_parts.calls, _parts.log, "LastRestore", [&] {
        if (!_parts.lastRestore)
            return;
        const FinishedRestore& restore = *_parts.lastRestore;
        reply->set_done(!restore.error);
        if (restore.error)
            fillFailure(*restore.error, *reply->mutable_failure());
        reply->set_tracks(restore.tracks);
        reply->set_waiting(restore.waiting);
        reply->set_fetched(restore.fetched);
        reply->set_removed(restore.removed);
        reply->set_playlists(restore.playlists);
        reply->set_library_uid(restore.libraryUID);
        reply->set_kept(cleanUTF8(restore.kept));
    });
}

double BackupService::now() const {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace orlith
