// Random sequences of imports, owner's edits and removals against a model in memory.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>

#include "tests/device/korvane_import/import_fixture.h"

namespace {

using namespace test;

struct ModelTrack {
    std::string title;
    std::string album;
    int rating = 0;
    std::int64_t ratingChanged = 0;
    std::map<std::string, int> plays;

    bool operator==(const ModelTrack&) const = default;
};

std::ostream& operator<<(std::ostream& out, const ModelTrack& track) {
    out << track.title << "/" << track.album << " rated " << track.rating << "@"
        << track.ratingChanged;
    for (const auto& [origin, count] : track.plays) {
        out << " " << origin << "=" << count;
    }
    return out;
}

using Model = std::map<std::int64_t, ModelTrack>;  // by sync id

class ImportModelFixture : public ImportTest {
public:
    void TestBody() override {}
    ImportModelFixture() { SetUp(); }
    // As a library that never held anything.
    void forgetAll() {
        imports(HostData(), true);
        execute("DELETE FROM removed_memory");
        execute("DELETE FROM removed_play_statistics");
    }

    void step(Model& present, Model& remembered) {
        HostData data;
        const bool isReset = *rc::gen::weightedElement<bool>({{5, false}, {1, true}});
        const auto named = *rc::gen::inRange(0, 256);  // a bit for each of the eight sync ids
        Model next = isReset ? Model() : present;
        for (int id = 1; id <= 8; ++id) {
            if ((named >> (id - 1) & 1) == 0) {
                continue;
            }
            next[id] = importTrack(data, id, present, remembered);
            remembered.erase(id);
        }
        if (isReset) {
            for (const auto& [id, track] : present) {
                if (!next.contains(id)) {
                    remembered[id] = track;
                }
            }
        } else if (!present.empty() && *rc::gen::arbitrary<bool>()) {
            const int id = *rc::gen::inRange(1, 9);
            data.remove(id);
            if (next.contains(id) && (named >> (id - 1) & 1) == 0) {
                remembered[id] = next[id];
                next.erase(id);
            }
        }
        const std::int64_t before = revision();
        imports(data, isReset);
        present = next;
        RC_ASSERT(actual() == present);
        RC_ASSERT(revision() >= before);
        // Again: nothing.
        const std::int64_t rows = changedRows();
        const std::int64_t after = revision();
        imports(data, isReset);
        RC_ASSERT(changedRows() == rows);
        RC_ASSERT(revision() == after);
        checkConsistency();
    }

private:
    // Adds the record and returns what the library is to hold.
    static ModelTrack importTrack(HostData& data, int id, const Model& present,
                                  const Model& remembered) {
        ModelTrack track;
        if (const auto old = present.find(id); old != present.end()) {
            track = old->second;
        } else if (const auto gone = remembered.find(id); gone != remembered.end()) {
            track = gone->second;
        }
        qorx::Track& record = data.add(id, "t" + std::to_string(*rc::gen::inRange(0, 3)));
        record.set_album("a" + std::to_string(*rc::gen::inRange(0, 3)));
        track.title = record.title();
        track.album = record.album();
        if (*rc::gen::arbitrary<bool>()) {
            const int rating = *rc::gen::inRange(0, 101);
            const int when = *rc::gen::inRange(1, 5);
            record.mutable_rating()->set_value(static_cast<unsigned>(rating));
            record.mutable_rating()->set_changed_ms(when);
            if (std::pair<std::int64_t, int>(when, rating) >
                std::pair(track.ratingChanged, track.rating)) {
                track.rating = rating;
                track.ratingChanged = when;
            }
        }
        for (const char* origin : {"x", "y"}) {
            if (*rc::gen::arbitrary<bool>()) {
                const int count = *rc::gen::inRange(1, 9);
                qorx::PlayStatistics& plays = *record.add_plays();
                plays.set_origin_uid(origin);
                plays.set_play_count(static_cast<unsigned>(count));
                track.plays[origin] = std::max(track.plays[origin], count);
            }
        }
        return track;
    }

    Model actual() {
        Model model;
        library->connections().read([&](common::Database& database) {
            common::Query rows = database.query(
                "SELECT s.sync_id, e.title, a.name, t.user_rating, t.rating_changed_ms FROM item i"
                " JOIN item_extra e USING (item_id) JOIN item_store s USING (item_id)"
                " JOIN item_stats t USING (item_id) JOIN album a USING (album_pid)");
            while (rows.step()) {
                model[rows->int64(0)] = {std::string(rows->text(1)),
                                         std::string(rows->text(2)),
                                         static_cast<int>(rows->int64(3)),
                                         rows->int64(4),
                                         {}};
            }
            common::Query plays = database.query(
                "SELECT s.sync_id, p.origin_uid, p.play_count FROM play_statistics p"
                " JOIN item_store s USING (item_pid)");
            while (plays.step()) {
                model[plays->int64(0)].plays[std::string(plays->text(1))] =
                    static_cast<int>(plays->int64(2));
            }
            return true;
        });
        return model;
    }

    void checkConsistency() {
        RC_ASSERT(number("SELECT count(*) FROM item WHERE album_order = 0") == 0);
        RC_ASSERT(number("SELECT items FROM row_count") == number("SELECT count(*) FROM item"));
        RC_ASSERT(number("SELECT count(*) FROM album WHERE album_pid NOT IN"
                         " (SELECT album_pid FROM item)") == 0);
        RC_ASSERT(number("SELECT count(*) FROM item_stats s WHERE play_count <>"
                         " (SELECT ifnull(sum(play_count), 0) FROM play_statistics p"
                         "  WHERE p.item_pid = s.item_pid)") == 0);
        RC_ASSERT(text("SELECT origin FROM change_state").empty());
    }
};

RC_GTEST_PROP(ImportModel, RandomSequencesAgreeWithTheModel, ()) {
    static ImportModelFixture library;
    library.forgetAll();
    Model present, remembered;
    const int steps = *rc::gen::inRange(1, 8);
    for (int i = 0; i < steps; ++i) {
        library.step(present, remembered);
    }
}

}  // namespace
