// Purpose: the tracks of a damaged library: their rows, as far as they can be read, and their way
// into
//          a sound one.
// Calling thread: that of both connections.
// Failure: as carry_over.h says.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "device/korvane/check/carry_over.h"
#include "device/korvane/import/names.h"
#include "device/korvane/import/new_ids.h"
#include "platform/values.h"

namespace korvane {

class CarriedTracks {
public:
    CarriedTracks(common::Database& damaged, common::Database& sound);

    void carry(CarriedOver& result);
    // The sound library's id of a track that the damaged one had; 0 when it is not there.
    std::int64_t pidOf(std::int64_t damagedPID) const;

private:
    // The five tables of a track, `item` first.
    static constexpr std::size_t TableCount = 5;
    using Row = std::vector<platform::Value>;  // in the order of the table's columns
    struct Table {
        const char* name;
        std::vector<std::string> columns;  // without item_id
        std::string insert;
        std::size_t place(const char* column) const;
    };
    struct Track {
        std::int64_t pid = 0;
        std::array<std::optional<Row>, TableCount> rows;
    };
    struct AlbumName {
        std::string name;
        std::int64_t albumArtistPID = 0;
    };

    void readRows(CarriedOver& result);
    void readNames(CarriedOver& result);
    const platform::Value& value(const Track& track, std::size_t table, const char* column) const;
    std::int64_t number(const Track& track, std::size_t table, const char* column) const;
    std::int64_t match(const Track& track);
    void insert(Track& track);
    void insertItem(Track& track);
    void insertRow(std::size_t table, std::int64_t itemID, const Track& track);
    void join(const Track& track, std::int64_t pid);
    void carryPlays(CarriedOver& result);
    std::string nameIn(const std::unordered_map<std::int64_t, std::string>& names,
                       std::int64_t pid) const;

    common::Database& _damaged;
    common::Database& _sound;
    const std::vector<std::int64_t> _nothingReserved;
    NewIDs _newIDs;
    Names _names;
    std::array<Table, TableCount> _tables;
    std::map<std::int64_t, Track> _tracks;  // by the damaged library's item_id
    std::unordered_map<std::int64_t, std::string> _artists;
    std::unordered_map<std::int64_t, std::string> _albumArtists;
    std::unordered_map<std::int64_t, AlbumName> _albums;
    std::unordered_map<std::int64_t, std::int64_t> _pids;  // the damaged library's, the sound one's
};

}  // namespace korvane
