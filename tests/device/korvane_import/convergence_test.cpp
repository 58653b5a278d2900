// Random histories on real libraries: whatever happens in whatever order, devices that have
// exchanged agree, come to rest, and have lost nothing that nobody removed.
// RC_PARAMS in the environment asks for more: "seed=7 max_success=5000 max_size=200".
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <functional>
#include <set>

#include "common/sqlite/database.h"
#include "device/korvane/owner_edits.h"
#include "device/korvane/save/record_keeping.h"
#include "tests/device/korvane_import/exchange_fixture.h"

namespace {

using namespace test;

enum class Act {
    SetTitle,
    SetAlbum,
    Rate,
    Play,
    Bookmark,
    DeleteTrack,
    CreatePlaylist,
    RenamePlaylist,
    AddToPlaylist,
    RemoveFromPlaylist,
    MoveInPlaylist,
    RemovePlaylist,
    HostSync,
    HostRemoves,
    Exchange,
    Reset,
    BackUp,
    Restore,
    Reopen,
};

struct Step {
    Act act = Act::Exchange;
    int device = 0;
    int which = 0;  // a track, a playlist or another device
    int value = 0;
    int seconds = 0;  // the clock may stand still
};

std::ostream& operator<<(std::ostream& out, const Step& step) {
    constexpr const char* Names[] = {"title",  "album",   "rate",    "play",         "bookmark",
                                     "delete", "create",  "rename",  "add",          "take out",
                                     "move",   "remove",  "host",    "host removes", "pull",
                                     "reset",  "back up", "restore", "reopen"};
    return out << Names[static_cast<int>(step.act)] << " on " << step.device << " of " << step.which
               << " with " << step.value << " after " << step.seconds << "s";
}

rc::Gen<Step> anyStep(int devices) {
    return rc::gen::construct<Step>(rc::gen::weightedElement<Act>({{4, Act::SetTitle},
                                                                   {3, Act::SetAlbum},
                                                                   {3, Act::Rate},
                                                                   {3, Act::Play},
                                                                   {1, Act::Bookmark},
                                                                   {3, Act::DeleteTrack},
                                                                   {3, Act::CreatePlaylist},
                                                                   {2, Act::RenamePlaylist},
                                                                   {5, Act::AddToPlaylist},
                                                                   {2, Act::RemoveFromPlaylist},
                                                                   {2, Act::MoveInPlaylist},
                                                                   {2, Act::RemovePlaylist},
                                                                   {4, Act::HostSync},
                                                                   {1, Act::HostRemoves},
                                                                   {9, Act::Exchange},
                                                                   {1, Act::Reset},
                                                                   {1, Act::BackUp},
                                                                   {1, Act::Restore},
                                                                   {1, Act::Reopen}}),
                                    rc::gen::inRange(0, devices), rc::gen::inRange(0, 6),
                                    rc::gen::inRange(0, 6), rc::gen::inRange(0, 3));
}

// The global ids of tracks and playlists. Apart from each other, so one set holds both.
using GlobalIDs = std::set<std::int64_t>;

GlobalIDs entriesOf(TestDevice& device) {
    GlobalIDs found;
    device.library().connections().use(false, [&](common::Database& database) {
        common::Query rows = database.query(
            "SELECT global_id FROM item_extra UNION ALL SELECT global_id FROM container WHERE "
            "built_in_kind = 0");
        while (rows.step()) {
            found.insert(rows->int64(0));
        }
    });
    return found;
}

class World {
public:
    explicit World(int devices) {
        for (int i = 0; i < devices; ++i) {
            _devices.push_back(std::make_unique<TestDevice>());
        }
    }

    void run(const Step& step) {
        for (auto& device : _devices) {
            device->system().now += step.seconds;
        }
        TestDevice& device = at(step.device);
        const std::int64_t before = device.revision();
        act(step, device);
        RC_ASSERT(step.act == Act::Restore || device.revision() >= before);
        _seen.merge(entriesOf(device));
    }

    // Around the ring and back, until every device has what the farthest one had.
    void finish() {
        const int rounds = roundsToRest();
        for (int round = 0; round < rounds; ++round) {
            exchangeAll();
        }
        for (std::size_t i = 1; i < _devices.size(); ++i) {
            RC_ASSERT(_devices[i]->state() == _devices[0]->state());
        }
        RC_ASSERT(exchangeAll() == std::size_t{0});
        for (auto& device : _devices) {
            check(*device);
        }
        GlobalIDs expected;
        std::ranges::set_difference(_seen, _mayBeGone, std::inserter(expected, expected.end()));
        RC_ASSERT(std::ranges::includes(entriesOf(*_devices[0]), expected));
    }

private:
    // What came to the farthest device goes all the way back. Who begins anew hears of no deletions
    // before the second round. Two that know each other agree after an exchange each way.
    int roundsToRest() {
        const bool knowEachOther = !_devices[0]->needsEverythingOf(*_devices[1]) &&
                                   !_devices[1]->needsEverythingOf(*_devices[0]);
        return _devices.size() == 2 && knowEachOther ? 1 : static_cast<int>(_devices.size()) + 1;
    }

    // A device loses what it has of others', or what it has done since: what is nowhere else is
    // gone.
    void lose(TestDevice& device, const std::function<void()>& event) {
        GlobalIDs lost = entriesOf(device);
        event();
        for (auto& other : _devices) {
            for (const std::int64_t kept : entriesOf(*other)) {
                lost.erase(kept);
            }
        }
        _mayBeGone.merge(lost);
    }

    TestDevice& at(int index) {
        return *_devices[static_cast<std::size_t>(index) % _devices.size()];
    }

    std::size_t exchangeAll() {
        std::size_t records = 0;
        for (std::size_t i = 0; i < _devices.size(); ++i) {
            TestDevice& one = *_devices[i];
            TestDevice& next = *_devices[(i + 1) % _devices.size()];
            records += next.pullFrom(one);
            records += one.pullFrom(next);
        }
        return records;
    }

    static std::int64_t any(TestDevice& device, const std::string& table, const std::string& column,
                            int which) {
        return device.number("SELECT " + column + " FROM " + table + " ORDER BY 1 LIMIT 1 OFFSET " +
                             std::to_string(which));
    }

    void act(const Step& step, TestDevice& device) {
        korvane::Library& library = device.library();
        platform::OptionalError ignored;
        const std::int64_t track = any(device, "item", "item_pid", step.which);
        const std::int64_t playlist =
            any(device, "container WHERE built_in_kind = 0", "container_pid", step.which % 3);
        const std::string word(1, static_cast<char>('a' + step.value));
        const auto place = static_cast<std::size_t>(step.value);
        switch (step.act) {
            case Act::SetTitle:
                korvane::setTrackFields(library, track,
                                        std::vector<korvane::FieldEdit>{{"title", word}});
                break;
            case Act::SetAlbum:
                korvane::setTrackFields(
                    library, track,
                    std::vector<korvane::FieldEdit>{
                        {step.value % 2 == 0 ? "album" : "album-artist", word}});
                break;
            case Act::Rate:
                korvane::rateTrack(library, track, static_cast<std::uint32_t>(step.value % 6));
                break;
            case Act::Play:
                korvane::recordPlay(library, track);
                break;
            case Act::Bookmark:
                korvane::setBookmark(library, track, static_cast<std::uint64_t>(step.value));
                break;
            case Act::DeleteTrack:
                _mayBeGone.insert(device.number(
                    "SELECT global_id FROM item_extra WHERE item_pid = " + std::to_string(track)));
                korvane::deleteTrackAsOwner(library, track);
                break;
            case Act::CreatePlaylist:
                korvane::createPlaylist(library, word, ignored);
                break;
            case Act::RenamePlaylist:
                korvane::renamePlaylist(library, playlist, word);
                break;
            case Act::AddToPlaylist:
                korvane::addToPlaylist(library, playlist, {track});
                break;
            case Act::RemoveFromPlaylist:
                korvane::removeFromPlaylist(library, playlist, place);
                break;
            case Act::MoveInPlaylist:
                korvane::moveInPlaylist(library, playlist, place,
                                        static_cast<std::size_t>(step.which));
                break;
            case Act::RemovePlaylist:
                _mayBeGone.insert(
                    device.number("SELECT global_id FROM container WHERE container_pid = " +
                                  std::to_string(playlist)));
                korvane::removePlaylist(library, playlist);
                break;
            case Act::HostSync:
                device.syncWith(hostData(step));
                break;
            case Act::HostRemoves: {
                HostData data;
                data.remove(step.which + 1);
                _mayBeGone.insert(HostData::globalID(step.which + 1));
                device.syncWith(data);
                break;
            }
            case Act::Exchange:
                if (&at(step.which) != &device) {
                    device.pullFrom(at(step.which));
                }
                break;
            case Act::Reset:
                lose(device, [&] { device.library().removeSource(KV3SourceSync); });
                break;
            case Act::BackUp:
                device.backUp();
                break;
            case Act::Restore:
                if (device.hasBackup()) {
                    lose(device, [&] { device.restoreBackup(); });
                }
                break;
            case Act::Reopen:
                device.reopen();
                break;
        }
    }

    // One host: the same collection for every device, which grows and is edited there.
    HostData hostData(const Step& step) {
        HostData data;
        for (int id = 1; id <= 2 + step.which % 4; ++id) {
            data.add(id, id == step.value ? "host " + std::to_string(step.which) : "track")
                .set_album("album");
        }
        return data;
    }

    static void check(TestDevice& device) {
        RC_ASSERT(device.number("SELECT count(*) FROM (SELECT 1 FROM item_extra GROUP BY global_id "
                                "HAVING count(*) > 1)") == 0);
        RC_ASSERT(device.number("SELECT count(*) FROM (SELECT 1 FROM item_store WHERE sync_id <> 0 "
                                "GROUP BY sync_id HAVING count(*) > 1)") == 0);
        RC_ASSERT(device.number("SELECT count(*) FROM item WHERE item_pid IN (SELECT sync_id FROM "
                                "item_store)") == 0);
        RC_ASSERT(device.number("SELECT items FROM row_count") ==
                  device.number("SELECT count(*) FROM item"));
        RC_ASSERT(device.number("SELECT count(*) FROM album WHERE album_pid NOT IN (SELECT "
                                "album_pid FROM item)") == 0);
        RC_ASSERT(device.number("SELECT count(*) FROM item WHERE album_order = 0") == 0);
        RC_ASSERT(device.number("SELECT count(*) FROM item WHERE item_pid NOT IN (SELECT pid FROM "
                                "entity_revision WHERE deleted = 0)") == 0);
        RC_ASSERT(device.number("SELECT count(*) FROM field_change JOIN item USING (item_pid) "
                                "WHERE changed_ms <= metadata_changed_ms") == 0);
        RC_ASSERT(device.text("SELECT origin FROM change_state").empty());
        RC_ASSERT(device.library()
                      .connections()
                      .reading<std::vector<std::int64_t>>(korvane::tracksWithStaleRecords)
                      .empty());
    }

    std::vector<std::unique_ptr<TestDevice>> _devices;
    GlobalIDs _seen;       // on any device, at any time
    GlobalIDs _mayBeGone;  // removed by somebody, or lost with the only device that had it
};

void history(int devices) {
    const auto steps = *rc::gen::container<std::vector<Step>>(anyStep(devices));
    World world(devices);
    for (const Step& step : steps) {
        world.run(step);
    }
    world.finish();
}

RC_GTEST_PROP(Convergence, TwoDevicesAgreeWhateverHappened, ()) {
    history(2);
}

RC_GTEST_PROP(Convergence, ThreeDevicesInARingAgreeWhateverHappened, ()) {
    history(3);
}

}  // namespace
