#include "tests/device/korvane_import/import_fixture.h"

#include "common/qorx/writer.h"
#include "common/sqlite/database.h"

namespace test {

HostData::HostData() {
    header.set_purpose(qorx::Header::HOST_DATA);
    header.set_exporter_uid("host-1");
}

qorx::Track& HostData::add(std::int64_t syncID, const std::string& title) {
    qorx::Track& track = tracks.emplace_back();
    track.set_sync_id(syncID);
    track.set_global_id(globalID(syncID));
    track.set_media_type(KV3MediaTypeMusic);
    track.set_title(title);
    return track;
}

qorx::Playlist& HostData::addPlaylist(std::int64_t syncID, const std::string& name,
                                      const std::vector<std::int64_t>& trackSyncIDs) {
    qorx::Playlist& playlist = playlists.emplace_back();
    playlist.set_sync_id(syncID);
    playlist.set_global_id(syncID / 2 + 200'000);
    playlist.set_name(name);
    for (const std::int64_t id : trackSyncIDs) {
        playlist.add_items()->set_sync_id(id);
    }
    return playlist;
}

void HostData::remove(std::int64_t syncID, qorx::Deletion::Entity entity) {
    qorx::Deletion& deletion = deletions.emplace_back();
    deletion.set_entity(entity);
    deletion.set_sync_id(syncID);
}

std::string HostData::bytes() const {
    std::string bytes;
    common::QorxWriter writer([&](std::span<const std::uint8_t> piece) -> platform::OptionalError {
        bytes.append(piece.begin(), piece.end());
        return std::nullopt;
    });
    writer.begin(header);
    for (const qorx::Track& track : tracks) {
        writer.write(track);
    }
    for (const qorx::Playlist& playlist : playlists) {
        writer.write(playlist);
    }
    for (const qorx::Deletion& deletion : deletions) {
        writer.write(deletion);
    }
    writer.end();
    return bytes;
}

void ImportTest::SetUp() {
    LibraryTest::SetUp();
    // Without the playlists that the library makes by itself.
    for (const char* table : {"container", "tombstone", "entity_revision"}) {
        execute(std::string("DELETE FROM ") + table);
    }
    library->setSaver(&saver);
    service = std::make_unique<korvane::ImportService>(library);
}

platform::Dictionary ImportTest::options(bool isReset, const std::string& anchor) {
    return {{std::string(KVImportOperationOptionIsResetSyncKey), isReset ? 1 : 0},
            {std::string(KVImportOperationOptionIsVeskaEnabledKey), false},
            {std::string(KVImportOperationOptionSyncAnchorKey), anchor}};
}

ImportResult ImportTest::importBytes(const std::string& bytes, bool isReset,
                                     const std::string& anchor) {
    writeFile(HostDataPath, bytes);
    service->registerHostDataFile(HostDataPath);
    ImportResult result;
    service->performImportFromSource(KV3SourceHostData, korvane::DefaultDatabasePath, std::nullopt,
                                     std::nullopt, options(isReset, anchor),
                                     [&](bool success, const platform::OptionalError& error) {
                                         ++result.calls;
                                         result.success = success;
                                         result.error = error;
                                     });
    system.queue->runAll();
    service->unregisterHostDataFile();
    return result;
}

ImportResult ImportTest::import(const HostData& data, bool isReset, const std::string& anchor) {
    return importBytes(data.bytes(), isReset, anchor);
}

void ImportTest::imports(const HostData& data, bool isReset, const std::string& anchor) {
    const ImportResult result = import(data, isReset, anchor);
    ASSERT_EQ(result.calls, 1);
    ASSERT_TRUE(result.success) << (result.error ? result.error->description() : "");
    ASSERT_FALSE(result.error);
}

void ImportTest::save(std::int64_t sinceRevision, std::uint32_t torvelID) {
    library->performReadOnlyDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        library->saveTrackMetadataSinceRevision(sinceRevision, torvelID);
        if (sinceRevision != 0) {
            library->savePlaylistsSinceRevision(sinceRevision, torvelID);
        }
        return true;
    });
}

std::string ImportTest::text(std::string_view sql) {
    return library->connections().reading<std::string>([&](common::Database& database) {
        common::Query row = database.query(sql);
        return row.step() ? std::string(row->text(0)) : std::string("(no row)");
    });
}

std::int64_t ImportTest::pidOf(std::int64_t syncID) {
    return number("SELECT item_pid FROM item_store WHERE sync_id = " + std::to_string(syncID));
}

std::int64_t ImportTest::changedRows() {
    std::int64_t rows = 0;
    library->connections().use(
        true, [&](common::Database& database) { rows = database.int64("SELECT total_changes()"); });
    return rows;
}

std::string ImportTest::dump() {
    return dumpOf(*library);
}

}  // namespace test
