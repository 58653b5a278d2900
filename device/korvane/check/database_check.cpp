// The database itself, and those that were set aside.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <memory>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/check/carry_over.h"
#include "device/korvane/check/check_run.h"
#include "device/korvane/check/schema_pages.h"
#include "device/korvane/database_health.h"
#include "device/korvane/library.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

namespace {

constexpr int MostComplaints = 100;
constexpr std::string_view AsideMark = ".damaged-";
constexpr std::string_view CarriedMark = ".carried-";
// What belongs to a database file.
constexpr const char* Companions[] = {"", "-wal", "-shm", ".identity"};

struct Damage {
    std::vector<std::string> complaints;
    bool isOfIndexesAlone = false;
};

bool isOfIndex(const std::string& complaint) {
    return complaint.find("missing from index") != std::string::npos ||
           complaint.starts_with("wrong # of entries in index") ||
           complaint.starts_with("non-unique entry in index");
}

// On a connection of its own: what another has in its memory says nothing of the disk.
Damage findAllDamage(const std::string& realPath) {
    Damage damage;
    try {
        common::DatabaseOptions options;
        options.readOnly = true;
        options.create = false;
        common::Database database(realPath, options);
        auto check = database.query(fmt::format("PRAGMA integrity_check({})", MostComplaints));
        while (check.step())
            if (check->text(0) != "ok")
                damage.complaints.emplace_back(check->text(0));
        damage.isOfIndexesAlone = std::ranges::all_of(damage.complaints, isOfIndex);
        if (damage.complaints.empty())
            if (const auto loss = findDamage(database, false)) {
                damage.complaints.push_back(*loss);
                damage.isOfIndexesAlone = false;
            }
    } catch (const common::SqliteError& error) {
        if (!error.isDamage())
            throw;
        damage.complaints.emplace_back(error.what());
        damage.isOfIndexesAlone = false;
    }
    return damage;
}

std::string textOf(const Damage& damage) {
    std::string text = damage.complaints.front();
    std::ranges::replace(text, '\n', ' ');
    if (damage.complaints.size() > 1)
        text += fmt::format(" (and {} more)", damage.complaints.size() - 1);
    return text;
}

bool rebuildIndexes(CheckRun& run, const std::string& realPath) {
    run.library.connections().use(
        true, [](common::Database& database) { database.executeScript("REINDEX"); });
    return findAllDamage(realPath).complaints.empty();
}

// "<time>" of "<database>.damaged-<time>".
std::string dateOf(std::string_view name) {
    const std::string_view digits = name.substr(name.rfind('-') + 1);
    std::int64_t seconds = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
    return fmt::format("{:%Y-%m-%d %H:%M}", fmt::gmtime(static_cast<std::time_t>(seconds)));
}

// Those beside the library's whose names go on with the mark and a number; paths, sorted.
std::vector<std::string> databasesMarked(device::RootedFileSystem& files, const std::string& path,
                                         std::string_view mark) {
    const std::string directory = path.substr(0, path.rfind('/') + 1);
    const std::string begin = path.substr(directory.size()) + std::string(mark);
    std::vector<std::string> found;
    const auto names = files.contentsOfDirectory(directory, nullptr);
    for (const std::string& name : names.value_or(std::vector<std::string>()))
        if (name.starts_with(begin) &&
            name.find_first_not_of("0123456789", begin.size()) == std::string::npos)
            found.push_back(directory + name);
    std::ranges::sort(found);
    return found;
}

std::unique_ptr<common::Database> openDamaged(const std::string& realPath) {
    common::DatabaseOptions options;
    options.readOnly = true;
    options.create = false;
    auto database = std::make_unique<common::Database>(realPath, options);
    // Reads the whole schema.
    database->int64("SELECT count(*) FROM sqlite_master");
    return database;
}

CarriedOver carryFrom(Library& library, common::Database& damaged) {
    CarriedOver result;
    library.connections().write([&](common::Database& sound) {
        result = carryOver(damaged, sound, library.nowMilliseconds());
        return true;
    });
    return result;
}

CarriedOver carryFrom(Library& library, const std::string& path) {
    const std::string realPath = library.configuration().files.realPath(path);
    std::unique_ptr<common::Database> damaged;
    try {
        damaged = openDamaged(realPath);
    } catch (const common::SqliteError& error) {
        if (!error.isDamage())
            throw;
    }
    if (damaged)
        return carryFrom(library, *damaged);
    const std::string readable = realPath + ".readable";
    copyWithNewSchemaPages(realPath, readable);
    const CarriedOver result = carryFrom(library, *openDamaged(readable));
    removeDatabaseFiles(readable);
    return result;
}

void renameCarried(Library& library, const std::string& path) {
    device::RootedFileSystem& files = library.configuration().files;
    std::string carried = path;
    carried.replace(carried.rfind(AsideMark), AsideMark.size(), CarriedMark);
    for (const char* companion : Companions)
        if (files.fileExists(path + companion))
            files.moveItem(path + companion, carried + companion);
}

std::string textOf(const CarriedOver& carried) {
    return fmt::format(
        "{} tracks and {} playlists are in the library again, {} tracks that it had "
        "got back what their owner did{}",
        carried.tracks, carried.playlists, carried.joined,
        carried.gaps > 0 ? fmt::format("; {} places could not be read, the next sync brings what "
                                       "is missing of their tracks",
                                       carried.gaps)
                         : "");
}

}  // namespace

bool checkDatabase(CheckRun& run) {
    const Configuration& configuration = run.library.configuration();
    const std::string realPath = configuration.files.realPath(configuration.databasePath);
    Damage damage = findAllDamage(realPath);
    // One sign of damage is no verdict.
    if (!damage.complaints.empty())
        damage = findAllDamage(realPath);
    if (damage.complaints.empty())
        return true;
    if (damage.isOfIndexesAlone) {
        const bool isRebuilt = run.repairs && rebuildIndexes(run, realPath);
        run.report({CheckArea::Database, configuration.databasePath,
                    "an index disagrees with its table: " + textOf(damage),
                    "the indexes are built anew", isRebuilt});
        return true;
    }
    const bool isAside =
        run.repairs && !setDatabaseAside(configuration.files, configuration.databasePath,
                                         configuration.system.absoluteTime());
    run.report({CheckArea::Database, configuration.databasePath,
                "the database is damaged: " + textOf(damage),
                "it is set aside, and every row that can still be read is carried into a new one",
                isAside});
    // The next opening makes a new one, and finds the old one aside.
    run.needsReopening = isAside;
    return false;
}

void checkDatabasesAside(CheckRun& run) {
    const Configuration& configuration = run.library.configuration();
    for (const std::string& path :
         databasesMarked(configuration.files, configuration.databasePath, AsideMark)) {
        Finding finding{CheckArea::Database, path,
                        fmt::format("this database was damaged and set aside on {} UTC; what it "
                                    "held is not in the library",
                                    dateOf(path)),
                        "every row that can still be read is carried into the library", false};
        if (run.repairs) {
            try {
                finding.remedy = textOf(carryFrom(run.library, path));
                renameCarried(run.library, path);
                finding.isMended = true;
            } catch (const std::exception& error) {
                finding.remedy = fmt::format(
                    "nothing of it can be read ({}); the next sync brings "
                    "the tracks again",
                    error.what());
            }
        }
        run.report(finding);
    }
}

std::vector<std::string> carriedDatabases(device::RootedFileSystem& files,
                                          const std::string& databasePath) {
    return databasesMarked(files, databasePath, CarriedMark);
}

}  // namespace korvane
