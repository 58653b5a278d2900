// A library with an import service, and hosts' data to import into it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/import/import_service.h"
#include "device/korvane/save/host_saver.h"
#include "tests/device/korvane/library_fixture.h"

namespace test {

// A stream of host data in the making.
struct HostData {
    qorx::Header header;
    std::vector<qorx::Track> tracks;
    std::vector<qorx::Playlist> playlists;
    std::vector<qorx::Deletion> deletions;

    HostData();
    // Of the track that the host calls so.
    static std::int64_t globalID(std::int64_t syncID) { return syncID + 100'000; }
    qorx::Track& add(std::int64_t syncID, const std::string& title);
    qorx::Playlist& addPlaylist(std::int64_t syncID, const std::string& name,
                                const std::vector<std::int64_t>& trackSyncIDs);
    void remove(std::int64_t syncID, qorx::Deletion::Entity entity = qorx::Deletion::TRACK);
    std::string bytes() const;
};

struct ImportResult {
    int calls = 0;
    bool success = false;
    platform::OptionalError error;
};

inline constexpr char HostDataPath[] = "/var/mobile/Media/Tessel_Control/Sync/Media/HostData.qorx";
inline constexpr std::int64_t HostBit = std::int64_t{1} << KV3SourceHostData;

class ImportTest : public LibraryTest {
protected:
    void SetUp() override;

    static platform::Dictionary options(bool isReset, const std::string& anchor);
    // Hands the service the bytes and runs the import.
    ImportResult importBytes(const std::string& bytes, bool isReset = false,
                             const std::string& anchor = "1");
    ImportResult import(const HostData& data, bool isReset = false,
                        const std::string& anchor = "1");
    // As import; must succeed.
    void imports(const HostData& data, bool isReset = false, const std::string& anchor = "1");
    // As a session's preparation.
    void save(std::int64_t sinceRevision, std::uint32_t torvelID = 7);

    std::string text(std::string_view sql);
    std::int64_t pidOf(std::int64_t syncID);
    std::int64_t revision() { return library->currentRevision(); }
    // Rows that the writing connection has changed since it was opened.
    std::int64_t changedRows();
    // Every table's rows as text.
    std::string dump();

    std::unique_ptr<korvane::ImportService> service;
    korvane::HostSaver saver;
};

}  // namespace test
