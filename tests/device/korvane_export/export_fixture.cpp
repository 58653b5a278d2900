#include "tests/device/korvane_export/export_fixture.h"

#include "common/qorx/reader.h"
#include "common/sqlite/database.h"

namespace test {

platform::OptionalError LimitedStream::write(std::span<const std::uint8_t> piece) {
    if (bytes.size() + piece.size() > _limit)
        return platform::Error("Test", FailureCode);
    bytes.insert(bytes.end(), piece.begin(), piece.end());
    pieces.push_back(piece.size());
    return std::nullopt;
}

Exported readBack(const platform::Data& bytes) {
    Exported exported;
    common::QorxReader reader(bytes);
    google::protobuf::Arena arena;
    while (const qorx::Record* record = reader.next(arena)) {
        if (record->has_track())
            exported.tracks.push_back(record->track());
        else if (record->has_playlist())
            exported.playlists.push_back(record->playlist());
        else
            exported.deletions.push_back(record->deletion());
    }
    EXPECT_FALSE(reader.error()) << reader.error()->description();
    if (reader.header())
        exported.header = *reader.header();
    return exported;
}

bool isWhole(const platform::Data& bytes) {
    common::QorxReader reader(bytes);
    return common::verifyQorx(reader, nullptr).has_value();
}

void PrintTo(const Change& change, std::ostream* out) {
    *out << change.pid << " at " << change.revision << (change.isDeletion ? " deleted" : "");
}

std::vector<Change> ExportTest::changes(std::int64_t afterRevision, std::int64_t trackingCode,
                                        const platform::Value& mediaTypes) {
    std::vector<Change> found;
    library->enumeratePersistentIDsAfterRevisionForMediaTypes(
        afterRevision, trackingCode, KV3RevisionTypeAll, mediaTypes,
        [&](std::int64_t pid, std::int64_t revision, std::int64_t kind, std::int64_t, bool&) {
            found.push_back({pid, revision, kind != 0});
        });
    return found;
}

std::uint64_t ExportTest::count(std::int64_t afterRevision, std::int64_t trackingCode) {
    return library->countOfChangedPersistentIdsAfterRevision(afterRevision, trackingCode,
                                                             KV3RevisionTypeAll);
}

std::shared_ptr<KV3QORXExportSession> ExportTest::session() {
    return std::make_shared<korvane::ExportSession>(library, stream);
}

Exported ExportTest::exportAll(std::int64_t afterRevision) {
    stream = std::make_shared<LimitedStream>();
    const auto writing = session();
    EXPECT_TRUE(writing->begin());
    for (const Change& change : changes(afterRevision, KV3RevisionTrackingCodeContainer))
        EXPECT_FALSE(change.isDeletion ? writing->exportPlaylistDeleted(change.pid)
                                       : writing->exportPlaylist(change.pid));
    for (const Change& change : changes(afterRevision))
        EXPECT_FALSE(change.isDeletion ? writing->exportTrackDeleted(change.pid)
                                       : writing->exportTrack(change.pid));
    EXPECT_TRUE(writing->end());
    return readBack(stream->bytes);
}

qorx::Track ExportTest::exportOne(std::int64_t pid) {
    stream = std::make_shared<LimitedStream>();
    const auto writing = session();
    EXPECT_TRUE(writing->begin());
    EXPECT_FALSE(writing->exportTrack(pid));
    EXPECT_TRUE(writing->end());
    const Exported exported = readBack(stream->bytes);
    EXPECT_EQ(exported.tracks.size(), 1u);
    return exported.tracks.empty() ? qorx::Track() : exported.tracks.front();
}

void ExportTest::addTracks(std::int64_t count) {
    ASSERT_TRUE(library->connections().write([&](common::Database& database) {
        for (std::int64_t number = 1; number <= count; ++number)
            addTrack(database, {.pid = number * 1000,
                                .syncID = number,
                                .title = "Title " + std::to_string(number),
                                .artist = "Artist",
                                .album = "Album " + std::to_string(number / 12)});
        return true;
    }));
}

void ExportTest::deleteTrack(std::int64_t pid) {
    ASSERT_TRUE(library->connections().write([&](common::Database& database) {
        database.execute("UPDATE change_state SET exports_deletions = 1, deletion_ms = 5000");
        database.execute("DELETE FROM item WHERE item_pid = ?", pid);
        database.execute("UPDATE change_state SET exports_deletions = 0, deletion_ms = 0");
        return true;
    }));
}

void ExportTest::addPlaylist(std::int64_t pid, const std::string& name, int builtInKind) {
    ASSERT_TRUE(library->connections().write([&](common::Database& database) {
        database.execute(
            "INSERT INTO container (container_pid, name, built_in_kind, sync_id, global_id) "
            "VALUES (?1, ?2, ?3, ?1 * 2, ?1 * 3)",
            pid, name, builtInKind);
        return true;
    }));
}

void ExportTest::deletePlaylist(std::int64_t pid) {
    ASSERT_TRUE(library->connections().write([&](common::Database& database) {
        database.execute("UPDATE change_state SET exports_deletions = 1, deletion_ms = 6000");
        database.execute("DELETE FROM container WHERE container_pid = ?", pid);
        database.execute("UPDATE change_state SET exports_deletions = 0, deletion_ms = 0");
        return true;
    }));
}

}  // namespace test
