#include "device/korvane/identifiers.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <limits>
#include <system_error>

#include "common/sqlite/database.h"

namespace korvane {

namespace {

std::uint64_t randomBits() {
    std::uint64_t bits = 0;
    if (::getentropy(&bits, sizeof bits) != 0)
        throw std::system_error(errno, std::generic_category(), "no random numbers");
    return bits;
}

bool isTaken(common::Database& database, std::int64_t id) {
    return database.int64(
               "SELECT EXISTS (SELECT 1 FROM item WHERE item_pid = ?1)"
               " OR EXISTS (SELECT 1 FROM container WHERE container_pid = ?1)"
               " OR EXISTS (SELECT 1 FROM item_store WHERE sync_id = ?1 AND sync_id <> 0)"
               " OR EXISTS (SELECT 1 FROM container WHERE sync_id = ?1 AND sync_id <> 0)"
               " OR EXISTS (SELECT 1 FROM entity_revision WHERE entity_kind = 0 AND pid = ?1)"
               " OR EXISTS (SELECT 1 FROM entity_revision WHERE entity_kind = 1 AND pid = ?1)"
               " OR EXISTS (SELECT 1 FROM removed_memory WHERE item_pid = ?1)",
               id) != 0;
}

}  // namespace

std::int64_t randomIdentifier() {
    std::uint64_t bits = 0;
    while (bits == 0)
        bits = randomBits();
    return static_cast<std::int64_t>(bits);
}

std::int64_t newPersistentID(common::Database& database) {
    for (;;) {
        const auto id = static_cast<std::int64_t>(
            randomBits() & static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
        if (id != 0 && !isTaken(database, id))
            return id;
    }
}

std::string randomUID() {
    return fmt::format("{:016X}{:016X}", randomBits(), randomBits());
}

}  // namespace korvane
