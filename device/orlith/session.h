// One sync session with a host, from its first message to its last.
//
// Two threads: the reader takes the host's messages in order and receives files; the worker makes
// every call of the plug-in, one after another, so that receiving goes on while files are filed.
// Only a cancel goes to the plug-in from the reader, at any time. Answers leave in the order of
// what they answer.
//
// Whatever goes wrong - a message out of order, an exception in the plug-in, the stream breaking -
// ends this session and nothing else: media moved aside is put back, background tasks go on, and
// what was acknowledged stays.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "device/orlith/asset_filer.h"
#include "device/orlith/job_queue.h"
#include "device/orlith/library_access.h"
#include "device/orlith/notices.h"
#include "device/orlith/session_slot.h"
#include "device/orlith/session_stream.h"
#include "device/orlith/staging_area.h"
#include "link/orlith.pb.h"
#include "platform/log.h"
#include "platform/media_library.h"
#include "platform/operating_system.h"
#include "platform/sync_daemon.h"

namespace orlith {

// What a session works on; all of it outlives the session.
struct SessionServices {
    ORClient& client;
    LibraryAccess& library;
    MediaLibraryFramework& mediaLibrary;
    platform::OperatingSystem& operatingSystem;
    platform::LogService& log;
    device::RootedFileSystem& files;
    StagingArea& staging;
    SessionSlot& slot;
    Notices& notices;
    VDDownloadManager* downloadManager;  // may be null
};

class Session {
public:
    Session(const SessionServices& services, SessionStream& stream);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Returns when the session is over and has been cleaned up after; none when it ended in order.
    // Called once.
    platform::OptionalError run();

private:
    // Which messages may come; every step includes those before it.
    enum class Step { Start, Opened, Prepared, Reconciled, Transferring, Ended };

    struct ListedAsset {
        std::shared_ptr<ORAsset> asset;
        std::uint32_t parts = 0;
    };

    // A part or session file whose chunks are coming.
    struct Reception {
        std::unique_ptr<IncomingFile> file;  // null: the rest is read and dropped
        link::Transfer transfer;             // of an asset's part
        std::optional<link::SessionFile> sessionFile;
    };

    // ---- session.cpp: order, threads and endings
    void handle(const link::FromHost& message);
    void require(Step atLeast, Step atMost, const char* what) const;
    bool send(const link::FromDevice& message);
    // Runs a job on the worker unless the session has failed by then.
    void post(std::function<void()> job, std::size_t cost = 0);
    void runGuarded(const std::function<void()>& job);
    void fail(const platform::Error& error, const std::string& owner = {});
    void giveUpWaitingForHost();
    void close();
    void abandon();
    void log(platform::LogLevel level, std::string message);

    // ---- session_opening.cpp: opening, preparation, session files
    void open(const link::OpenSession& message);
    void prepare(const link::Prepare& message);
    void sendSavedChanges(std::uint32_t torvelID);
    void beginSessionFile(const link::SessionFile& message);
    void finishSessionFile(Reception reception);
    void removeHostData();
    void storeKenningConfiguration(const link::KenningConfiguration& message);

    // ---- session_reconcile.cpp: the import, the list of assets and the end
    void reconcile(const link::Reconcile& message);
    void moveMediaAsideForReset();
    void cancelImport();
    void listOutstanding();
    std::vector<std::shared_ptr<ORAsset>> outstandingAssets();
    void sendOutstanding(const std::vector<std::shared_ptr<ORAsset>>& assets);
    void end(bool success);
    void resumeBackgroundTasks();
    void endTransfers(bool success);

    // ---- session_transfers.cpp: receiving assets
    void answerPartialQuery(const link::PartialQuery& message);
    void beginTransfer(const link::Transfer& message);
    void openPart(const link::Transfer& message);
    void receiveChunk(const link::Chunk& message);
    void finishReception();
    void dropReception(const platform::Error& error);
    void keepPart(std::unique_ptr<IncomingFile> file, const link::Transfer& transfer);
    void completeAsset(const link::Transfer& message);
    void transferFailed(const link::TransferFailed& message);
    std::optional<ListedAsset> takeListed(const std::string& identifier, bool isDownload,
                                          std::uint32_t parts);
    bool isListed(const std::string& identifier, std::uint32_t part);
    void answerUnlisted(const std::string& identifier, std::uint32_t parts);
    void sendAssetResult(const std::string& identifier, std::uint32_t parts,
                         const FilingResult& result);

    // ---- session_uploads.cpp: sending the device's own files
    void sendUpload(const link::UploadRequest& message);
    void sendUploadFile(const std::string& identifier, const std::string& path);
    void sendUploadFailure(const std::string& identifier, const platform::Error& error);
    void uploadDone(const link::UploadDone& message);
    std::shared_ptr<ORAsset> listedUpload(const std::string& identifier);

    SessionServices _services;
    SessionStream& _stream;
    AssetFiler _filer;

    // ---- The reader's own.
    Step _step = Step::Start;
    bool _holdsSlot = false;
    SessionOwner _owner;
    std::uint32_t _torvelID = 0;
    std::size_t _sessionFiles = 0;
    std::optional<Reception> _reception;
    std::optional<ReceivedAsset> _assembly;  // the asset whose parts are coming
    std::string _assemblyIdentifier;

    // ---- The worker's own; the reader's after the worker has ended.
    bool _wasPrepared = false;
    bool _reconcileSucceeded = false;
    bool _transfersBegan = false;
    bool _endedInOrder = false;

    // ---- Shared.
    std::mutex _listedMutex;
    std::multimap<std::string, ListedAsset> _listed;  // by identifier; guarded by _listedMutex
    std::mutex _stateMutex;
    std::condition_variable _readerIsDone;
    bool _readerDone = false;             // guarded by _stateMutex
    platform::OptionalError _failure;     // the first; guarded by _stateMutex
    std::atomic<bool> _failed{false};     // _failure is set
    std::atomic<bool> _abandoned{false};  // the host is gone
    std::atomic<bool> _importPending{false};

    JobQueue _queue;  // last: its thread uses everything above
};

}  // namespace orlith
