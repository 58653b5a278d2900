#include "device/korvane/sort_orders.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <unordered_map>

#include "common/sqlite/database.h"

namespace korvane {

namespace {

// Places lie between 0 and this, both excluded.
constexpr std::int64_t EndOfOrders = std::int64_t{1} << 62;
// Tracks that are placed at a time.
constexpr int BatchSize = 50'000;

bool isLowerAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x80 && (byte < 'A' || byte > 'Z');
    });
}

// The key and place before and after `key`; the ends of the range where there is none.
struct Neighbours {
    std::int64_t below = 0;
    std::int64_t above = EndOfOrders;
    std::optional<std::string> next;
};

Neighbours neighboursOf(common::Database& database, const std::string& key) {
    Neighbours found;
    found.below = database.int64(
        "SELECT sort_order FROM sort_map WHERE sort_key < ? ORDER BY sort_key DESC LIMIT 1", key);
    auto above = database.query(
        "SELECT sort_order, sort_key FROM sort_map WHERE sort_key >= ? ORDER BY sort_key LIMIT 1",
        key);
    if (above.step()) {
        found.above = above->int64(0);
        found.next = above->text(1);
    }
    return found;
}

// Spreads all keys evenly over the range, and takes the tracks along.
void renumber(common::Database& database) {
    database.executeScript(
        "CREATE TEMP TABLE renumbered (old_order INTEGER PRIMARY KEY, new_order INTEGER)");
    const auto count = database.int64("SELECT count(*) FROM sort_map");
    const std::int64_t step = EndOfOrders / (count + 1);
    {
        std::int64_t order = 0;
        auto keys = database.query("SELECT sort_order FROM sort_map ORDER BY sort_key");
        while (keys.step())
            database.execute("INSERT INTO temp.renumbered VALUES (?, ?)", keys->int64(0),
                             order += step);
    }
    // By way of negative numbers, since places are unique at every moment.
    database.executeScript(
        "UPDATE sort_map SET sort_order = -(SELECT new_order FROM temp.renumbered WHERE old_order "
        "= sort_order);"
        "UPDATE sort_map SET sort_order = -sort_order;"
        "UPDATE item SET album_artist_order = ifnull((SELECT new_order FROM temp.renumbered WHERE "
        "old_order = album_artist_order), 0), album_order = ifnull((SELECT new_order FROM "
        "temp.renumbered WHERE old_order = album_order), 0) WHERE album_order <> 0;"
        "DROP TABLE temp.renumbered");
}

struct UnplacedItem {
    std::int64_t itemID = 0;
    std::size_t albumArtistKey = 0;  // places in the batch's keys
    std::size_t albumKey = 0;
};

// Folds each name once.
class KeyTable {
public:
    std::size_t indexOf(std::string_view name) {
        const auto [entry, isNew] = _indexes.try_emplace(std::string(name), _keys.size());
        if (isNew)
            _keys.push_back(sortKey(name));
        return entry->second;
    }
    const std::vector<std::string>& keys() const { return _keys; }

private:
    std::unordered_map<std::string, std::size_t> _indexes;
    std::vector<std::string> _keys;
};

std::vector<UnplacedItem> nextUnplacedItems(common::Database& database, KeyTable& keys) {
    std::vector<UnplacedItem> items;
    auto rows = database.query(
        "SELECT i.item_id, coalesce(nullif(e.sort_album_artist, ''), aa.name, "
        "nullif(e.sort_artist, ''), ar.name), coalesce(nullif(e.sort_album, ''), al.name) FROM "
        "item "
        "i INDEXED BY item_unplaced JOIN item_extra e ON e.item_id = i.item_id LEFT JOIN "
        "album_artist aa ON aa.album_artist_pid = i.album_artist_pid LEFT JOIN item_artist ar ON "
        "ar.item_artist_pid = i.item_artist_pid LEFT JOIN album al ON al.album_pid = i.album_pid "
        "WHERE i.album_order = 0 ORDER BY i.item_id LIMIT ?",
        BatchSize);
    while (rows.step())
        items.push_back({rows->int64(0), keys.indexOf(rows->text(1)), keys.indexOf(rows->text(2))});
    return items;
}

}  // namespace

std::string sortKey(std::string_view name) {
    if (isLowerAscii(name))
        return std::string(name);
    utf8proc_uint8_t* raw = nullptr;
    const auto length = utf8proc_map(
        reinterpret_cast<const utf8proc_uint8_t*>(name.data()),
        static_cast<utf8proc_ssize_t>(name.size()), &raw,
        static_cast<utf8proc_option_t>(UTF8PROC_CASEFOLD | UTF8PROC_COMPOSE | UTF8PROC_STABLE));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> folded(raw, &std::free);
    if (length < 0)
        return std::string(name);
    return {reinterpret_cast<const char*>(folded.get()), static_cast<std::size_t>(length)};
}

bool ensureSortOrders(common::Database& database, std::vector<std::string> keys) {
    std::ranges::sort(keys);
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    bool wasRenumbered = false;
    for (std::size_t first = 0; first < keys.size();) {
        const Neighbours around = neighboursOf(database, keys[first]);
        // As many as fall between the same two.
        std::size_t end = first;
        while (end < keys.size() && (!around.next || keys[end] < *around.next))
            ++end;
        if (end == first) {  // the key itself has a place
            ++first;
            continue;
        }
        const std::int64_t step =
            (around.above - around.below) / (static_cast<std::int64_t>(end - first) + 1);
        if (step == 0) {
            renumber(database);
            wasRenumbered = true;
            continue;
        }
        for (std::int64_t order = around.below; first < end; ++first)
            database.execute("INSERT INTO sort_map (sort_key, sort_order) VALUES (?, ?)",
                             keys[first], order += step);
    }
    return wasRenumbered;
}

std::int64_t sortOrder(common::Database& database, const std::string& key) {
    return database.int64("SELECT sort_order FROM sort_map WHERE sort_key = ?", key);
}

void placeUnplacedItems(common::Database& database) {
    for (;;) {
        KeyTable keys;
        const auto items = nextUnplacedItems(database, keys);
        if (items.empty())
            return;
        ensureSortOrders(database, keys.keys());
        std::vector<std::int64_t> orders;
        orders.reserve(keys.keys().size());
        for (const std::string& key : keys.keys())
            orders.push_back(sortOrder(database, key));
        for (const UnplacedItem& item : items)
            database.execute(
                "UPDATE item SET album_artist_order = ?, album_order = ? WHERE item_id = ?",
                orders[item.albumArtistKey], orders[item.albumKey], item.itemID);
    }
}

}  // namespace korvane
