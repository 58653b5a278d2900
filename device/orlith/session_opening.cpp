// A session's opening, its preparation and the files that the host leaves for its import.
#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <random>

#include "device/orlith/daemon_log.h"
#include "device/orlith/disabled_kinds.h"
#include "device/orlith/names.h"
#include "device/orlith/recovery.h"
#include "device/orlith/session.h"
#include "device/orlith/session_error.h"
#include "device/orlith/sync_files.h"

namespace orlith {
namespace {

using platform::Error;
using platform::LogLevel;
using platform::OptionalError;

constexpr std::size_t LongestUID = 128;
constexpr std::size_t LongestAnchor = 256;
constexpr std::size_t ChunkSize = 256 << 10;

std::string bounded(const std::string& text, std::size_t longest, const char* what) {
    if (text.size() > longest)
        throw protocolError(fmt::format("{} is longer than {} bytes", what, longest));
    return text;
}

// Never 0, which stands for none.
std::uint32_t randomSessionID() {
    std::uniform_int_distribution<std::uint32_t> id(1, UINT32_MAX);
    std::random_device source;
    return id(source);
}

}  // namespace

void Session::open(const link::OpenSession& message) {
    require(Step::Start, Step::Start, "opening");
    bounded(message.host_uid(), LongestUID, "the host's identity");
    _owner = {printable(message.host_name()), message.process_id(),
              std::chrono::steady_clock::now()};
    std::string holder;
    _holdsSlot = _services.slot.acquire(
        _owner,
        [this](const std::string& reason) {
            fail(Error(OrlithErrorDomain, OrlithErrorStopping, reason));
        },
        holder);
    if (!_holdsSlot)
        return fail(Error(OrlithErrorDomain, OrlithErrorBusy, "the device is busy with " + holder),
                    holder);
    _step = Step::Opened;
    _torvelID = randomSessionID();
    log(LogLevel::Info, "a session began: " + _owner.description());
    post([this] {
        _services.library.sessionBegan();
        recoverLeftovers(_services.files, _services.staging, _services.library, _services.notices);
        throwIf(_services.staging.makeDirectories());
        link::FromDevice answer;
        link::Opened& opened = *answer.mutable_opened();
        opened.set_library_uid(_services.library.libraryUID());
        opened.set_anchor(_services.client.respondsTo(ORClientOperation::currentSyncAnchor)
                              ? _services.client.currentSyncAnchor()
                              : "0");
        opened.set_revision(_services.library.revision());
        opened.set_free_bytes(_services.files.freeSpace(MediaDirectory, nullptr).value_or(0));
        opened.set_torvel_id(_torvelID);
        for (std::string& notice : _services.notices.take())
            opened.add_notices(cleanUTF8(std::move(notice)));
        for (std::string& kind : disabledKindsOf(_services.client))
            opened.add_disabled_kinds(std::move(kind));
        send(answer);
    });
}

void Session::prepare(const link::Prepare& message) {
    require(Step::Opened, Step::Opened, "preparation");
    _step = Step::Prepared;
    bounded(message.host_anchor(), LongestAnchor, "the host's anchor");
    const std::uint32_t torvelID = message.torvel_id() != 0 ? message.torvel_id() : _torvelID;
    post([this, message, torvelID] {
        if (_services.client.respondsTo(ORClientOperation::prepareForSyncWithHostAnchorTorvelID)) {
            OptionalError error;
            _wasPrepared = true;
            if (!_services.client.prepareForSyncWithHostAnchor(
                    message.host_anchor(), [](double) {}, torvelID, message.host_version(), &error))
                throw SessionError(error.value_or(
                    Error(OrlithErrorDomain, OrlithErrorRefused, "the device refused to prepare")));
        }
        throwIf(_services.files.createDirectory(SyncDirectory));
        link::FromDevice answer;
        answer.mutable_prepared()->set_covered_revision(_services.library.coveredRevision());
        send(answer);
        sendSavedChanges(torvelID);
    });
}

// Every stream that preparation saved, in chunks; then an empty chunk that is the last.
void Session::sendSavedChanges(std::uint32_t torvelID) {
    for (const SavedChanges& saved : _services.library.savedChanges(torvelID)) {
        link::FromDevice answer;
        link::SavedChunk& chunk = *answer.mutable_saved();
        chunk.set_kind(saved.isPlaylists ? link::SavedChunk::PLAYLISTS
                                         : link::SavedChunk::METADATA);
        OptionalError error;
        const common::UniqueFd fd = _services.files.openFile(saved.path, O_RDONLY, 0, &error);
        throwIf(error);
        std::string& data = *chunk.mutable_data();
        for (;;) {
            data.resize(ChunkSize);
            const ssize_t count = ::read(fd.get(), data.data(), data.size());
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                throw SessionError(Error::posix(errno));
            if (count == 0)
                break;
            data.resize(static_cast<std::size_t>(count));
            if (!send(answer))
                return;
        }
    }
    link::FromDevice last;
    last.mutable_saved()->set_last(true);
    send(last);
}

void Session::beginSessionFile(const link::SessionFile& message) {
    require(Step::Prepared, Step::Prepared, "a session file");
    const bool isSettings = message.kind() == link::SessionFile::SETTINGS;
    if (isSettings && !isSettingsFileName(message.name()))
        throw protocolError("\"" + printable(message.name()) + "\" is no settings file's name");
    if (++_sessionFiles > MostSessionFiles)
        throw protocolError(fmt::format("more than {} session files", MostSessionFiles));
    const std::uint64_t limit = isSettings ? LargestSettingsFile : LargestHostData;
    if (message.size() > limit)
        throw protocolError(
            fmt::format("a session file of {} bytes; at most {} are taken", message.size(), limit));
    // Opening and preparation clear the places where the file goes.
    _queue.drain();
    OptionalError error;
    std::unique_ptr<IncomingFile> file = IncomingFile::open(
        _services.files, partialSessionFilePath(_sessionFiles), message.size(), 0, error);
    throwIf(error);
    _reception.emplace();
    _reception->file = std::move(file);
    _reception->sessionFile = message;
}

void Session::finishSessionFile(Reception reception) {
    throwIf(reception.file->finish({}));
    const std::shared_ptr<IncomingFile> file = std::move(reception.file);
    post([this, file, message = *reception.sessionFile] {
        throwIf(file->sync());
        const bool isSettings = message.kind() == link::SessionFile::SETTINGS;
        const std::string target =
            isSettings ? SyncDirectory + ("/" + message.name()) : std::string(HostDataPath);
        throwIf(_services.files.renameReplacing(file->path(), target));
        throwIf(_services.files.syncDirectory(SyncDirectory));
        if (!isSettings)
            _services.library.registerHostData(HostDataPath);
        link::FromDevice answer;
        answer.mutable_file_received()->set_name(message.name());
        send(answer);
    });
}

void Session::removeHostData() {
    _services.library.unregisterHostData();
    _services.files.unlink(HostDataPath);
}

void Session::storeKenningConfiguration(const link::KenningConfiguration& message) {
    require(Step::Prepared, Step::Transferring, "recommendation settings");
    post([this, plist = message.plist()] {
        OptionalError error;
        const platform::Data bytes(plist.begin(), plist.end());
        const auto value = _services.operatingSystem.propertyLists().parse(bytes, &error);
        if (!value || !value->isDictionary())
            throw protocolError("recommendation settings that are no property list");
        if (_services.client.respondsTo(ORClientOperation::_processKenningConfigPlist))
            _services.client._processKenningConfigPlist(*value);
        link::FromDevice answer;
        answer.mutable_kenning_configuration_stored();
        send(answer);
    });
}

}  // namespace orlith
