// What stands in the library's tables: playlists' entries, chapters, recommendation data, the
// records that are kept.
#include <fmt/format.h>

#include "common/chapters/chapters.h"
#include "common/kenning/similarities.h"
#include "common/sqlite/database.h"
#include "device/korvane/check/check_run.h"
#include "device/korvane/library.h"
#include "device/korvane/save/record_keeping.h"

namespace korvane {

namespace {

class RecordsCheck {
public:
    RecordsCheck(CheckRun& run, common::Database& database) : _run(run), _database(database) {}

    void check() {
        checkEntries();
        checkChapters();
        checkOrphanedKenning();
        checkSimilarities();
        checkKeptRecords();
    }

private:
    void report(CheckArea area, const std::string& subject, const std::string& problem,
                const std::string& remedy) {
        _run.report({area, subject, problem, remedy, _run.repairs});
    }
    void repair(std::string_view sql) {
        if (_run.repairs)
            _database.execute(sql);
    }

    void checkEntries() {
        constexpr char Dangling[] =
            "item_pid <> 0 AND NOT EXISTS (SELECT 1 FROM item i WHERE i.item_pid = "
            "container_item.item_pid)";
        auto rows = _database.query(
            fmt::format("SELECT c.name, count(*) FROM container_item JOIN container c USING "
                        "(container_id) WHERE {} GROUP BY container_id",
                        Dangling));
        bool isAny = false;
        while (rows.step()) {
            isAny = true;
            report(CheckArea::Playlist, std::string(rows->text(0)),
                   fmt::format("{} of its entries name tracks that are not in the library",
                               rows->int64(1)),
                   "the entries keep their places, and find their tracks when these come");
        }
        if (isAny)
            repair(
                fmt::format("UPDATE container_item SET foreign_pid = item_pid, item_pid = 0 "
                            "WHERE {}",
                            Dangling));
    }

    void checkChapters() {
        std::vector<std::int64_t> damaged;
        auto rows = _database.query(
            "SELECT item_pid, title, chapter_data FROM item_extra WHERE chapter_data IS NOT NULL");
        while (rows.step())
            if (!common::decodeChapters(rows->blob(2))) {
                damaged.push_back(rows->int64(0));
                report(CheckArea::Chapters, std::string(rows->text(1)),
                       "its table of chapters is damaged",
                       "the table is taken away; a sync with --reset brings it again, with the "
                       "chapters' pictures");
            }
        for (const std::int64_t pid : damaged)
            if (_run.repairs) {
                _database.execute("UPDATE item_extra SET chapter_data = NULL WHERE item_pid = ?",
                                  pid);
                setCoversAside(_run.library, pid);
            }
    }

    // Those of tracks that have left serve them when they return, as after a restore, or go in the
    // background.
    void checkOrphanedKenning() {
        for (const char* table : {"kenning_metadata", "kenning_similarities"}) {
            const std::string orphaned = fmt::format(
                "FROM {0} WHERE NOT EXISTS (SELECT 1 FROM item_extra e WHERE e.kenning_id = "
                "{0}.kenning_id) AND kenning_id NOT IN (SELECT global_id FROM removed_memory)",
                table);
            const std::int64_t count = _database.int64("SELECT count(*) " + orphaned);
            if (count == 0)
                continue;
            report(CheckArea::Kenning, table,
                   fmt::format("{} recommendation record{} of no track in the library", count,
                               count == 1 ? " is" : "s are"),
                   "they are removed");
            repair("DELETE " + orphaned);
        }
    }

    // Both blobs go: with its checksum gone a track asks for its data.
    void checkSimilarities() {
        // Another version's bytes are not ours to judge.
        if (_database.int64("SELECT EXISTS (SELECT 1 FROM kenning_config WHERE version IS NOT NULL "
                            "AND version <> ?)",
                            common::KenningVersion) != 0)
            return;
        std::vector<std::int64_t> damaged;
        auto rows = _database.query(
            "SELECT ks.kenning_id, ks.data, (SELECT title FROM item_extra e WHERE e.kenning_id = "
            "ks.kenning_id LIMIT 1) FROM kenning_similarities ks");
        while (rows.step())
            if (!common::decodeKenningSimilarities(rows->blob(1))) {
                damaged.push_back(rows->int64(0));
                report(CheckArea::Kenning, std::string(rows->text(2)),
                       "its recommendation data are damaged",
                       "they are removed, and the next sync brings them again");
            }
        for (const std::int64_t id : damaged)
            if (_run.repairs) {
                _database.execute("DELETE FROM kenning_similarities WHERE kenning_id = ?", id);
                _database.execute("DELETE FROM kenning_metadata WHERE kenning_id = ?", id);
            }
    }

    void checkKeptRecords() {
        for (const std::int64_t pid : tracksWithStaleRecords(_database)) {
            auto title = _database.query("SELECT title FROM item_extra WHERE item_pid = ?", pid);
            report(CheckArea::Database, std::string(title.step() ? title->text(0) : ""),
                   "what other devices would be told of it is not what the library holds",
                   "they are told what the library holds");
            if (_run.repairs)
                _database.execute(
                    "UPDATE entity_revision SET record = NULL WHERE entity_kind = 0 AND pid = ?",
                    pid);
        }
    }

    CheckRun& _run;
    common::Database& _database;
};

}  // namespace

void checkRecords(CheckRun& run) {
    const auto check = [&](common::Database& database) {
        RecordsCheck(run, database).check();
        return true;
    };
    if (run.repairs)
        run.library.connections().write(check);
    else
        run.library.connections().read(check);
}

}  // namespace korvane
