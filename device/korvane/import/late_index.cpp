#include "device/korvane/import/late_index.h"

#include "common/sqlite/database.h"

namespace korvane {

namespace {

// Fewer are found a place for as quickly.
constexpr std::size_t ManyTracks = 10'000;

}  // namespace

LateIndex::LateIndex(common::Database& database, bool hadNoTracks, std::size_t newTracks)
    : _database(database) {
    if (!hadNoTracks || newTracks < ManyTracks) {
        return;
    }
    common::Query definition = database.query(
        "SELECT sql FROM sqlite_schema WHERE type = 'index' AND name = 'item_extra_global_id'");
    if (definition.step()) {
        _definition = definition->text(0);
        definition->reset();
        database.execute("DROP INDEX item_extra_global_id");
    }
}

void LateIndex::build() {
    if (!_definition.empty()) {
        _database.executeScript(_definition);
        _definition.clear();
    }
}

}  // namespace korvane
