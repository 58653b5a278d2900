#include "device/korvane/check/schema_pages.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <set>
#include <vector>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/schema.h"

namespace korvane {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t PageSize = 4096;
using Page = std::array<char, PageSize>;

// Places in the header of the first page, of numbers of four bytes, the highest first.
constexpr std::size_t PageCountPlace = 28;
constexpr std::size_t FreeListPlace = 32;
constexpr std::size_t FreeCountPlace = 36;
constexpr std::size_t ChangeCounterPlace = 24;
constexpr std::size_t CounterOfPageCountPlace = 92;

void putNumber(Page& page, std::size_t place, std::uint32_t number) {
    for (std::size_t i = 0; i < 4; ++i)
        page[place + i] = static_cast<char>(number >> (8 * (3 - i)));
}

struct SchemaPages {
    std::vector<std::pair<std::uint32_t, Page>> pages;  // by number, from 1
};

// In a new library each table and index is one page; all others hold the schema.
SchemaPages pagesOfNewLibrary(const std::string& path) {
    std::set<std::int64_t> roots;
    std::int64_t count = 0;
    {
        common::Database database(path, {});
        bringSchemaUpToDate(database);
        auto rows = database.query("SELECT rootpage FROM sqlite_master WHERE rootpage > 0");
        while (rows.step())
            roots.insert(rows->int64(0));
        count = database.int64("PRAGMA page_count");
        if (database.int64("PRAGMA page_size") != static_cast<std::int64_t>(PageSize))
            throw common::SqliteError(common::SqliteCannotOpen, "the pages are of another size");
    }
    SchemaPages schema;
    std::ifstream file(path, std::ios::binary);
    for (std::uint32_t number = 1; number <= count; ++number) {
        Page page{};
        file.read(page.data(), PageSize);
        if (!roots.contains(number))
            schema.pages.emplace_back(number, page);
    }
    return schema;
}

}  // namespace

void copyWithNewSchemaPages(const std::string& damagedPath, const std::string& copyPath) {
    removeDatabaseFiles(copyPath);
    SchemaPages schema = pagesOfNewLibrary(copyPath);
    removeDatabaseFiles(copyPath);
    fs::copy_file(damagedPath, copyPath);
    if (fs::exists(damagedPath + "-wal"))
        fs::copy_file(damagedPath + "-wal", copyPath + "-wal");
    const auto count = static_cast<std::uint32_t>(fs::file_size(copyPath) / PageSize);
    Page& first = schema.pages.front().second;
    putNumber(first, PageCountPlace, count);
    putNumber(first, FreeListPlace, 0);
    putNumber(first, FreeCountPlace, 0);
    putNumber(first, ChangeCounterPlace, 1);
    putNumber(first, CounterOfPageCountPlace, 1);
    std::fstream file(copyPath, std::ios::binary | std::ios::in | std::ios::out);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    for (const auto& [number, page] : schema.pages) {
        file.seekp(static_cast<std::streamoff>(number - 1) * static_cast<std::streamoff>(PageSize));
        file.write(page.data(), PageSize);
    }
}

void removeDatabaseFiles(const std::string& path) {
    for (const char* companion : {"", "-wal", "-shm"})
        fs::remove(path + companion);
}

}  // namespace korvane
