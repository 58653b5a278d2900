#include "host/state/failed_items.h"

#include <algorithm>
#include <filesystem>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "host/state/schema.h"

namespace host {

namespace {

namespace fs = std::filesystem;

std::string textOf(std::span<const std::uint8_t> blob) {
    return {blob.begin(), blob.end()};
}

FolderFailures readFailures(const std::string& path, const std::string& libraryUid) {
    common::DatabaseOptions options;
    options.readOnly = true;
    options.create = false;
    common::Database database(path, options);
    FolderFailures failures;
    const std::int64_t version = database.int64("PRAGMA user_version");
    if (version < static_cast<int>(StateVersion::FailedItems) ||
        version > static_cast<int>(StateVersion::Current))
        return failures;
    common::Query folder = database.query("SELECT value FROM host WHERE key = 'folder'");
    if (!folder.step())
        return failures;
    failures.folder = textOf(folder->blob(0));
    common::Query rows = database.query(
        "SELECT path, reason, next_step FROM failed_items JOIN devices USING (device) "
        "WHERE uid = ? ORDER BY place",
        libraryUid);
    while (rows.step()) {
        FailedItem item{textOf(rows->blob(0)), std::string(rows->text(1)),
                        std::string(rows->text(2))};
        std::error_code ignored;
        if (fs::symlink_status(fs::path(failures.folder) / item.path, ignored).type() !=
            fs::file_type::not_found)
            failures.items.push_back(std::move(item));
    }
    return failures;
}

}  // namespace

std::vector<FolderFailures> failuresOfDevice(const std::string& stateDirectory,
                                             const std::string& libraryUid) {
    std::vector<FolderFailures> found;
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(stateDirectory, ignored)) {
        if (entry.path().extension() != ".sqlite")
            continue;
        try {
            FolderFailures failures = readFailures(entry.path().string(), libraryUid);
            if (!failures.items.empty())
                found.push_back(std::move(failures));
        } catch (const common::SqliteError&) {
            // The next sync of that folder says what is wrong with its state.
        }
    }
    std::ranges::sort(found, {}, &FolderFailures::folder);
    return found;
}

}  // namespace host
