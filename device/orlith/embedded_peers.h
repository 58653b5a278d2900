// What was exchanged with other devices, in the embedded library.
//
// Any thread.
#pragma once

#include "device/korvane/import/import_service.h"
#include "device/korvane/library.h"
#include "device/orlith/mirror/peer_library.h"

namespace orlith {

class EmbeddedPeers final : public PeerLibrary {
public:
    // Both outlive this.
    EmbeddedPeers(korvane::Library& library, korvane::ImportService& imports)
        : _library(library), _imports(imports) {}

    std::vector<PeerRecord> peers() override;
    PeerRecord peer(const std::string& uid) override;
    platform::OptionalError recordReceived(const std::string& uid, std::int64_t revision,
                                           std::uint32_t mediaTypes) override;
    platform::OptionalError recordAcknowledged(const std::string& uid,
                                               std::int64_t revision) override;
    void setExportTarget(const std::string& uid) override;
    std::vector<std::int64_t> lineUpPlaylistDeletions(std::int64_t after,
                                                      platform::OptionalError* error) override;
    void expectFullExchange(const std::string& uid) override;
    std::optional<ImportRevisions> lastImportRevisions() override;
    ImportEffects lastImportEffects() override;
    std::optional<std::int64_t> trackAtPeer(const std::string& uid, std::int64_t syncID) override;
    std::string picturePath(const std::string& token) override;
    std::string hashOfFile(std::int64_t trackPID) override;

private:
    korvane::Library& _library;
    korvane::ImportService& _imports;
};

}  // namespace orlith
