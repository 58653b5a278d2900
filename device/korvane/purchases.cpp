#include "device/korvane/purchases.h"

#include <span>

#include "common/random_id.h"
#include "common/sqlite/database.h"
#include "device/korvane/identifiers.h"
#include "device/korvane/library.h"
#include "device/korvane/owner_edit.h"
#include "device/korvane/schema.h"
#include "device/korvane/smart_refill.h"
#include "device/korvane/track_deletion.h"
#include "device/korvane/track_location.h"

namespace korvane {
namespace {

using platform::Error;
using platform::OptionalError;

// Entries that are the owner's alone, and wait for their first file.
constexpr char IsUnfinished[] =
    "SELECT EXISTS (SELECT 1 FROM item i JOIN item_store s ON s.item_id = i.item_id WHERE "
    "i.item_pid = ? AND i.sources = ? AND i.base_location_id = 0 AND i.needs_restore = 0 AND "
    "s.sync_id = 0 AND ifnull(s.veska_id, 0) = 0)";

bool isUnfinished(common::Database& database, std::int64_t trackPID) {
    return database.int64(IsUnfinished, trackPID, OwnerSourceBit) != 0;
}

std::optional<PurchasedTrack> find(common::Database& database, const Purchase& purchase) {
    auto row =
        purchase.track != 0
            ? database.query("SELECT item_pid, base_location_id FROM item WHERE item_pid = ?",
                             purchase.track)
            : database.query(
                  "SELECT i.item_pid, i.base_location_id FROM item_store s JOIN "
                  "item i ON i.item_id = s.item_id WHERE s.store_item_id = ? "
                  "ORDER BY i.item_id LIMIT 1",
                  purchase.storeItem);
    if (!row.step())
        return std::nullopt;
    const std::int64_t location = row->int64(1);
    return PurchasedTrack{row->int64(0), false, location != 0 && location != CloudAssetsLocation};
}

PurchasedTrack make(common::Database& database, const Library& library, const Purchase& purchase) {
    constexpr std::int64_t MillisecondsPerSecond = 1000;
    const std::int64_t pid = newPersistentID(database);
    const std::int64_t now = library.nowMilliseconds();
    database.execute(
        "INSERT INTO item (item_pid, media_type, sources, date_added, added_ms, "
        "metadata_changed_ms) VALUES (?1, ?2, ?3, ?4, ?5, ?5)",
        pid, static_cast<std::int64_t>(purchase.mediaType), OwnerSourceBit,
        now / MillisecondsPerSecond, now);
    const std::int64_t row = database.lastInsertedRow();
    database.execute(
        "INSERT INTO item_extra (item_id, item_pid, title, global_id, file_extension) VALUES (?, "
        "?, nullif(?, ''), ?, ?)",
        row, pid, purchase.title, common::randomPositiveId(), purchase.fileExtension);
    database.execute(
        "INSERT INTO item_store (item_id, item_pid, account_id, store_item_id, "
        "is_temporary_cloud_download) VALUES (?, ?, ?, ?, ?)",
        row, pid, purchase.storeAccount, purchase.storeItem, purchase.isTemporary ? 1 : 0);
    database.execute("INSERT INTO item_stats (item_id, item_pid) VALUES (?, ?)", row, pid);
    database.execute("INSERT INTO item_artwork (item_id, item_pid) VALUES (?, ?)", row, pid);
    return {pid, true, false};
}

}  // namespace

std::optional<PurchasedTrack> findOrMakePurchase(Library& library, const Purchase& purchase,
                                                 OptionalError& error) {
    std::optional<PurchasedTrack> track;
    error = editAsOwner(library, [&](common::Database& database) -> OptionalError {
        track = find(database, purchase);
        if (!track && purchase.track != 0)
            return notFound("the track is no longer in the library");
        if (!track)
            track = make(database, library, purchase);
        else if (!track->hasFile)
            database.execute(
                "UPDATE item_store SET is_temporary_cloud_download = ?2 WHERE item_pid = ?1 AND "
                "is_temporary_cloud_download <> ?2",
                track->persistentID, purchase.isTemporary ? 1 : 0);
        return std::nullopt;
    });
    return error ? std::nullopt : track;
}

OptionalError recordPurchasedFile(Library& library, std::int64_t trackPID,
                                  const PurchasedFile& file) {
    return editAsOwner(library, [&](common::Database& database) -> OptionalError {
        if (database.int64("SELECT count(*) FROM item WHERE item_pid = ?", trackPID) == 0)
            return Error(LibraryErrorDomain, LibraryErrorRefused,
                         "The track is no longer in the library.");
        SmartRefill playlists(database, trackPID, library.nowMilliseconds() / 1000);
        if (!file.title.empty() && isUnfinished(database, trackPID))
            database.execute("UPDATE item_extra SET title = ? WHERE item_pid = ?", file.title,
                             trackPID);
        database.execute("UPDATE item_extra SET file_extension = ? WHERE item_pid = ?",
                         file.fileExtension, trackPID);
        database.execute(
            "UPDATE item SET sources = sources | ?2, needs_restore = 0 WHERE item_pid = ?1",
            trackPID, OwnerSourceBit);
        if (!file.source.empty())
            database.execute(
                "INSERT OR REPLACE INTO purchase (item_pid, source, kind) VALUES (?, ?, ?)",
                trackPID, file.source, file.kind);
        recordLocation(database, library.configuration().files, trackPID, file.path);
        if (database.int64("SELECT base_location_id FROM item WHERE item_pid = ?", trackPID) == 0)
            return Error(LibraryErrorDomain, LibraryErrorRefused,
                         "The track's file is not where it was put.");
        playlists.run();
        return std::nullopt;
    });
}

std::vector<LostFile> filesToFetchAgain(Library& library) {
    std::vector<LostFile> files;
    library.read("filesToFetchAgain", [&](common::Database& database) {
        auto rows = database.query(
            "SELECT i.item_pid, s.store_item_id, s.account_id, s.is_temporary_cloud_download, "
            "p.source, p.kind FROM item i JOIN item_store s ON s.item_id = i.item_id JOIN purchase "
            "p ON p.item_pid = i.item_pid WHERE i.needs_restore <> 0 AND i.base_location_id = 0 "
            "ORDER BY i.item_id");
        while (rows.step())
            files.push_back({rows->int64(0), rows->int64(1), rows->int64(2), rows->int64(3) != 0,
                             std::string(rows->text(4)), std::string(rows->text(5))});
        return true;
    });
    return files;
}

std::uint64_t countOfLostFiles(Library& library) {
    std::int64_t count = 0;
    library.read("countOfLostFiles", [&](common::Database& database) {
        count = database.int64("SELECT count(*) FROM item WHERE needs_restore <> 0");
        return true;
    });
    return static_cast<std::uint64_t>(count);
}

std::optional<std::string> giveUpRestore(Library& library, std::int64_t trackPID) {
    std::optional<std::string> title;
    const auto error = editAsOwner(library, [&](common::Database& database) -> OptionalError {
        auto row = database.query(
            "SELECT e.title FROM item i JOIN item_extra e ON e.item_id = i.item_id WHERE "
            "i.item_pid = ? AND i.needs_restore <> 0",
            trackPID);
        if (!row.step())
            return std::nullopt;
        title = std::string(row->text(0));
        database.execute("UPDATE item SET needs_restore = 0 WHERE item_pid = ?", trackPID);
        removeTrackSources(database, OwnerSourceBit, std::span(&trackPID, 1));
        return std::nullopt;
    });
    if (error)
        library.log().error("giveUpRestore", error->text());
    return error ? std::nullopt : title;
}

OptionalError removeUnfinishedPurchase(Library& library, std::int64_t trackPID) {
    return editAsOwner(library, [&](common::Database& database) -> OptionalError {
        if (isUnfinished(database, trackPID))
            deleteTrack(database, trackPID, DeletionReach::everywhere(library.nowMilliseconds()));
        return std::nullopt;
    });
}

}  // namespace korvane
