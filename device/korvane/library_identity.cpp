#include "device/korvane/library_identity.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <charconv>
#include <sstream>

#include "common/sqlite/database.h"
#include "common/sqlite/transaction.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/identifiers.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

namespace {

std::string recordPath(const std::string& databasePath) {
    return databasePath + ".identity";
}

// Long enough for four lines.
constexpr std::uint64_t MaximumRecordBytes = 4096;

// The old uid stays with the original: what peers and the host have acknowledged was said to it.
void forgetExchanges(common::Database& database) {
    deleteDatabaseProperty(database, SyncAnchorProperty);
    deleteDatabaseProperty(database, LastSyncedRevisionProperty);
    database.execute("UPDATE peer SET acknowledged_revision = 0, received_revision = 0");
}

}  // namespace

std::optional<IdentityRecord> readIdentityRecord(device::RootedFileSystem& files,
                                                 const std::string& databasePath) {
    const auto bytes = files.readFile(recordPath(databasePath), MaximumRecordBytes, nullptr);
    if (!bytes)
        return std::nullopt;
    std::istringstream lines(std::string(bytes->begin(), bytes->end()));
    IdentityRecord record;
    std::string revision, end;
    if (!std::getline(lines, record.libraryUID) || !std::getline(lines, record.fileIdentity) ||
        !std::getline(lines, revision) || !std::getline(lines, end))
        return std::nullopt;
    const auto parsed =
        std::from_chars(revision.data(), revision.data() + revision.size(), record.revision);
    if (parsed.ec != std::errc())
        return std::nullopt;
    record.closedInOrder = end == "closed";
    return record;
}

platform::OptionalError writeIdentityRecord(device::RootedFileSystem& files,
                                            const std::string& databasePath,
                                            const IdentityRecord& record) {
    const std::string text = fmt::format("{}\n{}\n{}\n{}\n", record.libraryUID, record.fileIdentity,
                                         record.revision, record.closedInOrder ? "closed" : "open");
    return files.writeFileDurably(
        recordPath(databasePath),
        {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

std::string fileIdentity(const std::string& realPath) {
    struct statx attributes {};
    if (::statx(AT_FDCWD, realPath.c_str(), 0, STATX_INO | STATX_BTIME, &attributes) != 0)
        return {};
    const bool hasBirth = (attributes.stx_mask & STATX_BTIME) != 0;
    return fmt::format("{}:{}.{}", attributes.stx_ino, hasBirth ? attributes.stx_btime.tv_sec : 0,
                       hasBirth ? attributes.stx_btime.tv_nsec : 0);
}

void disownFile(common::Database& database) {
    if (database.int64("SELECT count(*) FROM sqlite_schema WHERE name = 'library_identity'") != 0)
        database.execute("UPDATE library_identity SET file_identity = ''");
}

std::int64_t revisionCounter(common::Database& database) {
    return database.int64("SELECT seq FROM sqlite_sequence WHERE name = 'entity_revision'");
}

std::string settleLibraryUID(common::Database& database, const std::string& file,
                             const std::optional<IdentityRecord>& beside) {
    std::string uid, ownFile;
    if (auto row = database.query("SELECT library_uid, file_identity FROM library_identity");
        row.step()) {
        uid = row->text(0);
        ownFile = row->text(1);
    }
    // What lies beside is of the last opening: it knew another uid when an older copy has been put
    // back twice, and a later revision when once.
    const bool isRestored =
        beside && (beside->libraryUID != uid || beside->revision > revisionCounter(database));
    if (!uid.empty() && ownFile == file && !isRestored)
        return uid;

    common::Transaction transaction(database, common::TransactionKind::Write);
    if (!uid.empty())
        forgetExchanges(database);
    uid = randomUID();
    database.execute(
        "INSERT OR REPLACE INTO library_identity (id, library_uid, file_identity) VALUES (0, ?, ?)",
        uid, file);
    transaction.commit();
    return uid;
}

}  // namespace korvane
