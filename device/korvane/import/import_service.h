// Purpose: the library's import service.
// Calling thread: any.
// Callback thread: completions run on the service's own queue and may block; one that throws is
//          logged.
// Ownership: an import keeps what it needs alive until it has answered.
// Failure: see KVMediaLibraryServiceErrorCode.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "device/korvane/import/peer_changes_import.h"
#include "platform/media_library.h"

namespace korvane {

class Library;

// Imports of source 6 without track data read the host's data file; the library's mark of what has
// been saved for the host becomes what the last save of the session covered (see
// save/host_saver.h), or what the host says that it has merged, where that is less.
// Imports of source 6 with track data update one track (see metadata_update_import.h).
// Imports of source 2 take another device's changes from the data they are given.
class ImportService final : public KVMediaLibraryService {
public:
    explicit ImportService(std::shared_ptr<Library> library);
    ~ImportService() override;

    // The file (a device path) that imports of source 6 read from now on; one session's.
    void registerHostDataFile(const std::string& path);
    void unregisterHostDataFile();
    // Imports may begin again: a cancel is remembered until here, whether or not it met one.
    void resetCancel();

    // The next import of source 2 brings everything that this peer (its library's uid) has; absent:
    // it does not, after all.
    void expectFullExchange(std::optional<std::string> peerUID);
    // What the last import of source 2 gave; absent: none, or it failed.
    std::optional<ImportRevisions> lastImportRevisions() const;
    // What it changed; nothing when it failed.
    ImportEffects lastImportEffects() const;

    // Why the last import of source 6 failed; absent: it did not, or there was none.
    platform::OptionalError lastHostImportFailure() const;

    // KVMediaLibraryService
    void performImportFromSource(std::int64_t source, const std::string& databasePath,
                                 std::optional<platform::Data> trackData,
                                 std::optional<platform::Data> playlistData,
                                 const platform::Dictionary& options,
                                 Completion completionHandler) override;
    void cancelImportOperation(std::int64_t source,
                               std::function<void()> completionHandler) override;

private:
    struct State;
    struct Request;
    const std::shared_ptr<State> _state;
};

}  // namespace korvane
