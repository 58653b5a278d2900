#include <gmock/gmock.h>

#include "common/sqlite/database.h"
#include "device/korvane/import/playlist_entries.h"
#include "tests/device/korvane_import/import_fixture.h"

namespace {

using namespace test;

class PlaylistImport : public ImportTest {
protected:
    // The sync ids of a playlist's entries, in order; in brackets where they are not resolved.
    std::string entries(const std::string& name) {
        return text(
            "SELECT group_concat(iif(c.item_pid <> 0, s.sync_id, '[' || c.foreign_sync_id || ']'))"
            " FROM (SELECT * FROM container_item ORDER BY container_id, position) c"
            " LEFT JOIN item_store s ON s.item_pid = c.item_pid AND c.item_pid <> 0"
            " WHERE container_id = (SELECT container_id FROM container WHERE name = '" +
            name + "')");
    }
    // The owner's doing, which the host has heard of.
    void putOwnTrackInto(const std::string& name, std::int64_t syncID, std::size_t place) {
        add({.pid = syncID + 7000, .syncID = syncID, .title = "own"});
        ASSERT_TRUE(library->connections().write([&](common::Database& database) {
            const auto list =
                database.int64("SELECT container_id FROM container WHERE name = ?", name);
            auto held = korvane::playlistEntries(database, list);
            held.insert(held.begin() + static_cast<std::ptrdiff_t>(place),
                        {syncID + 7000, 0, 0, 0});
            return korvane::writePlaylistEntries(database, list, held, [] {});
        }));
        save(0);
    }
};

TEST_F(PlaylistImport, HoldsItsTracksInOrderTwiceWhereTheyStandTwice) {
    HostData data;
    data.addPlaylist(501, "List", {3, 1, 3, 2});
    for (int i = 1; i <= 3; ++i) {
        data.add(i, "t");
    }
    imports(data);
    EXPECT_EQ(entries("List"), "3,1,3,2");
    EXPECT_EQ(number("SELECT sources FROM container"), HostBit);
}

TEST_F(PlaylistImport, AnEntryOfATrackThatIsNotHereKeepsItsPlaceUntilItComes) {
    HostData data;
    data.add(1, "One");
    data.addPlaylist(501, "List", {1, 2, 1});
    imports(data);
    EXPECT_EQ(entries("List"), "1,[2],1");
    const std::int64_t before =
        number("SELECT revision FROM entity_revision WHERE entity_kind = 1");
    HostData later;
    later.add(2, "Two");
    imports(later);
    EXPECT_EQ(entries("List"), "1,2,1");
    EXPECT_EQ(number("SELECT revision FROM entity_revision WHERE entity_kind = 1"), before);
}

TEST_F(PlaylistImport, ChangesFromTheFirstDifferenceOn) {
    HostData data;
    for (int i = 1; i <= 6; ++i) {
        data.add(i, "t");
    }
    data.addPlaylist(501, "List", {1, 2, 3, 4});
    imports(data);
    for (const std::vector<std::int64_t>& wanted :
         {std::vector<std::int64_t>{1, 2, 5, 4, 6}, {6}, {}, {2, 1}, {2, 1, 3}}) {
        data.playlists.clear();
        data.addPlaylist(501, "List", wanted);
        const std::int64_t before = revision();
        imports(data);
        std::string expected;
        for (const std::int64_t id : wanted) {
            expected += (expected.empty() ? "" : ",") + std::to_string(id);
        }
        EXPECT_EQ(entries("List"), expected);
        EXPECT_EQ(revision(), before + 1);
    }
}

TEST_F(PlaylistImport, APlaylistThatHoldsItselfHoldsAnEntryThatIsNeverResolved) {
    HostData data;
    data.addPlaylist(501, "Self", {501});
    imports(data);
    imports(data);
    EXPECT_EQ(entries("Self"), "[501]");
}

TEST_F(PlaylistImport, SmartPlaylistsBringRulesAndNoEntries) {
    HostData data;
    data.add(1, "One");
    qorx::Playlist& smart = data.addPlaylist(501, "Smart", {1});
    smart.set_kind(qorx::Playlist::SMART);
    smart.set_smart_rules(std::string("\x00rules", 6));
    imports(data);
    EXPECT_EQ(number("SELECT kind FROM container"), 1);
    EXPECT_EQ(number("SELECT length(smart_rules) FROM container"), 6);
    EXPECT_EQ(number("SELECT count(*) FROM container_item"), 0);
}

TEST_F(PlaylistImport, TheHostsBuiltInTakesThePlaceOfAnEarlierOneButNotOfTheLibrarysOwn) {
    execute(
        "INSERT INTO container (container_pid, name, built_in_kind, auto_created, kind)"
        " VALUES (900, 'Own', 3, 1, 1)");
    HostData data;
    data.addPlaylist(501, "Recent", {}).set_built_in_kind(3);
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM container"), 2);
    data.playlists.clear();
    data.addPlaylist(777, "Recent anew", {}).set_built_in_kind(3);
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM container"), 2);
    EXPECT_EQ(text("SELECT name FROM container WHERE auto_created = 0"), "Recent anew");
    EXPECT_EQ(text("SELECT name FROM container WHERE auto_created = 1"), "Own");
}

TEST_F(PlaylistImport, WhatTheOwnerChangedSinceTheLastSaveIsNotOverwritten) {
    HostData data;
    data.add(1, "One");
    data.addPlaylist(501, "List", {1});
    imports(data);
    save(1);
    execute("UPDATE container SET name = 'Renamed here', name_changed_ms = 5");
    imports(data);
    EXPECT_EQ(text("SELECT name FROM container"), "Renamed here");
    EXPECT_EQ(text("SELECT origin FROM entity_revision WHERE entity_kind = 1"), "");
    save(1);
    imports(data);
    EXPECT_EQ(text("SELECT name FROM container"), "List");
}

TEST_F(PlaylistImport, WhatTheHostCannotNameKeepsItsPlace) {
    HostData data;
    for (int i = 1; i <= 3; ++i) {
        data.add(i, "t");
    }
    data.addPlaylist(501, "List", {1, 2, 3});
    imports(data);
    // The owner puts tracks of the device's own among the host's: at the front, and behind 2.
    putOwnTrackInto("List", 71, 0);
    putOwnTrackInto("List", 72, 3);
    putOwnTrackInto("List", 73, 4);
    EXPECT_EQ(entries("List"), "71,1,2,72,73,3");
    data.playlists.clear();
    data.addPlaylist(501, "List", {2, 3});
    imports(data);
    EXPECT_EQ(entries("List"), "71,2,72,73,3");
    data.playlists.clear();
    data.addPlaylist(501, "List", {3, 1});
    imports(data);
    EXPECT_EQ(entries("List"), "71,72,73,3,1");
    const std::int64_t before = revision();
    imports(data);
    EXPECT_EQ(revision(), before);
}

}  // namespace
