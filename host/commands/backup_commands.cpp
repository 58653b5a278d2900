#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "common/hash.h"
#include "common/unique_fd.h"
#include "host/commands/commands.h"
#include "host/commands/device_question.h"
#include "host/commands/interrupts.h"
#include "host/commands/shown_progress.h"
#include "host/progress/progress.h"
#include "host/scan/file_names.h"
#include "host/session/backup_connection.h"
#include "host/session/call_cancellation.h"
#include "host/session/device_channel.h"
#include "host/session/device_directory.h"
#include "host/session/link_error.h"
#include "host/session/replaced_file.h"
#include "link/backup.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using platform::OptionalError;

constexpr std::size_t PieceSize = 1 << 20;  // bytes

platform::Error errorOfErrno(const std::string& file) {
    const int number = errno;
    return platform::Error(platform::POSIXErrorDomain, number,
                           fmt::format("{}: {}", displayText(file), std::strerror(number)));
}

// Takes the pieces of a backup into a file.
class ReceivedBackup {
public:
    ReceivedBackup(const std::string& file, Progress& progress)
        : _file(file), _progress(progress) {}

    OptionalError open() { return _file.open(); }
    OptionalError take(const link::BackupPiece& piece) {
        if (piece.has_begin()) {
            _begin = piece.begin();
            return std::nullopt;
        }
        if (piece.has_end())
            return end(piece.end());
        const std::string& data = piece.data();
        _hash.update({reinterpret_cast<const std::uint8_t*>(data.data()), data.size()});
        _bytes += data.size();
        _progress.countBytes(_bytes, _begin.size());
        return _file.write(data);
    }
    const link::BackupSummary& begin() const { return _begin; }
    std::uint64_t bytes() const { return _bytes; }

private:
    OptionalError end(const link::BackupEnd& end) {
        const common::Hash128 digest = _hash.digest();
        if (end.content_hash() != std::string(digest.begin(), digest.end()))
            return platform::Error(LinkErrorDomain, LinkErrorProtocol,
                                   "the backup was damaged on its way");
        return _file.commit();
    }

    ReplacedFile _file;
    Progress& _progress;
    link::BackupSummary _begin;
    common::XXH3Stream _hash;
    std::uint64_t _bytes = 0;
};

// The pieces of a backup file.
class BackupFile {
public:
    explicit BackupFile(const std::string& path) : _path(path) {}

    OptionalError open() {
        _file.reset(::open(_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        struct stat status {};
        if (!_file || ::fstat(_file.get(), &status) != 0)
            return errorOfErrno(_path);
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        if (!S_ISREG(status.st_mode))
            return errorOfErrno(_path);
        _size = static_cast<std::uint64_t>(status.st_size);
        return std::nullopt;
    }
    // Nothing at the end, and once reading failed.
    void next(std::string& bytes, Progress& progress) {
        bytes.resize(PieceSize);
        ssize_t count = -1;
        do
            count = ::read(_file.get(), bytes.data(), bytes.size());
        while (count < 0 && errno == EINTR);
        if (count < 0)
            _error = errorOfErrno(_path);
        bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        _sent += bytes.size();
        progress.countBytes(_sent, _size);
    }
    const OptionalError& error() const { return _error; }

private:
    const std::string _path;
    common::UniqueFd _file;
    std::uint64_t _size = 0;
    std::uint64_t _sent = 0;
    OptionalError _error;
};

OptionalError sendRestore(const std::string& device, const RestoreOptions& options,
                          link::RestoreReply& reply) {
    BackupFile file(options.from);
    if (!options.from.empty())
        if (OptionalError error = file.open())
            return error;
    OptionalError error;
    const auto connection = connectTo<BackupConnection>(device, &error);
    if (!connection)
        return error;
    ShownProgress progress;
    progress.phase("sending the backup");
    CallCancellation cancellation;
    const Interrupts interrupts([&] { cancellation.cancel(); });
    link::RestoreOpen open;
    open.set_with_backup(!options.from.empty());
    open.set_replace(options.replace);
    const auto next = [&](std::string& bytes) {
        bytes.clear();
        if (!options.from.empty())
            file.next(bytes, progress);
    };
    error = connection->restore(open, next, reply, cancellation);
    progress.finish();
    // What is wrong with the file says more than that the device did not take it.
    return file.error() ? file.error() : error;
}

OptionalError finish(const std::string& device, const link::RestoreReply& sent,
                     link::LastRestoreReply& outcome) {
    ShownProgress progress;
    progress.phase("putting the library in place");
    OptionalError error;
    const auto connection = openAfterRestore(device, sent, &error);
    if (connection)
        error = connection->lastRestore(outcome);
    progress.finish();
    if (!error && outcome.has_failure())
        error = errorOfFailure(outcome.failure());
    return error;
}

void showRestore(const std::string& device, const link::RestoreReply& sent,
                 const link::LastRestoreReply& outcome, const Output& output) {
    if (output.isJson())
        return output.object({{"type", "summary"},
                              {"files", sent.files()},
                              {"bytes", sent.bytes()},
                              {"tracks", outcome.tracks()},
                              {"waiting", outcome.waiting()},
                              {"fetched", outcome.fetched()},
                              {"removed", outcome.removed()},
                              {"playlists", outcome.playlists()},
                              {"library_uid", outcome.library_uid()},
                              {"kept", sent.was_empty() ? nlohmann::ordered_json(nullptr)
                                                        : nlohmann::ordered_json(outcome.kept())}});
    output.line(fmt::format("restored: {} and {}", plural(outcome.tracks(), "track", "tracks"),
                            plural(outcome.playlists(), "playlist", "playlists")));
    if (outcome.fetched() > 0)
        output.line(fmt::format(
            "{} fetched again from where {} came from; `orlith downloads` "
            "shows how far",
            outcome.fetched() == 1 ? "1 file is" : fmt::format("{} files are", outcome.fetched()),
            outcome.fetched() == 1 ? "it" : "they"));
    if (outcome.removed() > 0 || outcome.waiting() > outcome.fetched())
        output.line(fmt::format("{} with the next `orlith sync`",
                                plural(outcome.removed() + outcome.waiting() - outcome.fetched(),
                                       "track comes back", "tracks come back")));
    if (!sent.was_empty())
        output.line(fmt::format("the library as it was is kept in {}",
                                displayText(device + outcome.kept())));
}

}  // namespace

ExitCode runBackup(const CommonOptions& common, const std::string& file) {
    const Output output(common.json);
    OptionalError error;
    const std::string device = existingDevice(common.deviceDirectory, error);
    if (error)
        return outcomeOf(error, output);
    ShownProgress progress;
    progress.phase("backing up");
    ReceivedBackup backup(file, progress);
    error = backup.open();
    const auto connection = error ? nullptr : connectTo<BackupConnection>(device, &error);
    if (connection) {
        CallCancellation cancellation;
        const Interrupts interrupts([&] { cancellation.cancel(); });
        error = connection->create(
            [&](const link::BackupPiece& piece) { return backup.take(piece); }, cancellation);
    }
    progress.finish();
    if (error)
        return outcomeOf(error, output);
    if (common.json)
        output.object({{"type", "summary"},
                       {"file", file},
                       {"files", backup.begin().files()},
                       {"bytes", backup.bytes()},
                       {"library_uid", backup.begin().library_uid()}});
    else
        output.line(fmt::format("{}: {} ({})", displayText(file),
                                plural(backup.begin().files(), "file", "files"),
                                formatBytes(backup.bytes())));
    return ExitCode::Done;
}

ExitCode runRestore(const CommonOptions& common, const RestoreOptions& options) {
    const Output output(common.json);
    OptionalError error;
    // A backup may also make a new device; what is there already has to be there.
    if (options.from.empty() && existingDevice(common.deviceDirectory, error).empty())
        return outcomeOf(error, output);
    link::RestoreReply sent;
    error = sendRestore(common.deviceDirectory, options, sent);
    if (error && error->domain == platform::POSIXErrorDomain && error->code == EEXIST) {
        output.error(*error);
        return ExitCode::DeleteGuard;
    }
    link::LastRestoreReply outcome;
    if (!error)
        error = finish(common.deviceDirectory, sent, outcome);
    if (error)
        return outcomeOf(error, output);
    showRestore(common.deviceDirectory, sent, outcome, output);
    return ExitCode::Done;
}

}  // namespace host
