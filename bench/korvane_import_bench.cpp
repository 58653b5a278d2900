// Importing a host's data beside bare prepared inserts of the same rows, and importing it again.
// Prints figures a track and ratios: korvane_import_bench [TRACKS] [ROUNDS]
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <vector>

#include "common/qorx/writer.h"
#include "common/sqlite/database.h"
#include "common/sqlite/transaction.h"
#include "device/korvane/connections.h"
#include "device/korvane/import/host_data_import.h"
#include "device/korvane/import/import_cancellation.h"
#include "device/korvane/schema.h"
#include "device/system/rooted_file_system.h"

namespace {

constexpr char DataPath[] = "/data.qorx";
constexpr int WriterCacheKiB = 64 * 1024;

// Of this process's processor time, so that other work on the machine does not count.
double seconds(const std::function<void()>& work) {
    const auto start = std::clock();
    work();
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

qorx::Track track(int index, std::int64_t syncID) {
    qorx::Track track;
    track.set_sync_id(syncID);
    track.set_global_id(syncID ^ 0x5555);
    track.set_media_type(8);
    track.set_title(fmt::format("Title of track {}", index));
    track.set_artist(fmt::format("Artist {}", index / 40));
    track.set_album(fmt::format("Album {}", index / 12));
    track.set_album_artist(fmt::format("Artist {}", index / 40));
    track.set_genre(fmt::format("Genre {}", index % 20));
    track.set_year(static_cast<std::uint32_t>(1960 + index % 60));
    track.set_track_number(static_cast<std::uint32_t>(index % 12 + 1));
    track.set_total_time_ms(200'000);
    track.set_total_size(4'000'000);
    track.set_file_extension("mp3");
    track.set_content_hash(std::string(16, static_cast<char>(index)));
    track.set_host_path(fmt::format("Artist {}/Album {}/{}.mp3", index / 40, index / 12, index));
    track.set_artwork_token(fmt::format("token-{}", index / 12));
    track.set_date_added(1'600'000'000 + index);
    return track;
}

void writeHostData(const std::string& realPath, int count) {
    std::mt19937_64 random(1);
    std::vector<std::int64_t> ids(static_cast<std::size_t>(count));
    for (std::int64_t& id : ids) {
        id = static_cast<std::int64_t>(random() >> 1);
    }
    std::ranges::sort(ids);
    std::ofstream file(realPath, std::ios::binary);
    common::QorxWriter writer([&](std::span<const std::uint8_t> bytes) -> platform::OptionalError {
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        return std::nullopt;
    });
    qorx::Header header;
    header.set_purpose(qorx::Header::HOST_DATA);
    header.set_exporter_uid("bench");
    writer.begin(header);
    for (int i = 0; i < count; ++i) {
        writer.write(track(i, ids[static_cast<std::size_t>(i)]));
    }
    writer.end();
}

// Every row of the imported library, inserted into an empty one without triggers, tracks in the
// order of arrival.
double bareInserts(const std::string& from, const std::string& to) {
    { common::Database(to, {}).executeScript(korvane::firstSchemaTables()); }
    common::Database source(from, {.readOnly = true, .cacheKiB = WriterCacheKiB});
    common::Database target(to, {.cacheKiB = WriterCacheKiB});
    struct Rows {
        std::string insert;
        int columns = 0;
        std::vector<std::vector<platform::Value>> values;
    };
    std::vector<Rows> tables;
    for (const char* name :
         {"item", "item_extra", "item_store", "item_stats", "item_artwork", "entity_revision",
          "album", "album_artist", "item_artist", "sort_map"}) {
        Rows& table = tables.emplace_back();
        auto rows = source.query(fmt::format("SELECT * FROM {}", name));
        std::string names, marks;
        std::vector<int> kept;
        for (int column = 0; column < rows->columnCount(); ++column) {
            if (rows->columnName(column) != "best_artwork_token") {
                names += (kept.empty() ? "" : ", ") + rows->columnName(column);
                marks += kept.empty() ? "?" : ", ?";
                kept.push_back(column);
            }
        }
        table.insert = fmt::format("INSERT INTO {} ({}) VALUES ({})", name, names, marks);
        while (rows.step()) {
            auto& values = table.values.emplace_back();
            for (const int column : kept) {
                values.push_back(rows->value(column));
            }
        }
    }
    return seconds([&] {
        common::Transaction transaction(target, common::TransactionKind::Write);
        for (const Rows& table : tables) {
            auto insert = target.prepare(table.insert);
            for (const auto& values : table.values) {
                int index = 0;
                for (const platform::Value& value : values) {
                    insert->bind(++index, value, common::BindLifetime::Borrowed);
                }
                insert.run();
            }
        }
        transaction.commit();
    });
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 100'000;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 3;
    const auto root = std::filesystem::temp_directory_path() / "korvane-import-bench";
    std::vector<double> first, bare, again;
    for (int round = 0; round < rounds; ++round) {
        std::filesystem::remove_all(root);
        device::RootedFileSystem files(root.native());
        writeHostData(files.realPath(DataPath), count);
        const std::string library = files.realPath("/library");
        {
            common::Database database(library, {});
            korvane::bringSchemaUpToDate(database);
        }
        korvane::Connections connections({.realPath = library});
        korvane::ImportCancellation cancellation;
        korvane::HostDataImportOptions options;
        options.anchor = "1";
        const auto import = [&] {
            const auto error = korvane::importHostData(
                connections, [&] { return files.openInputStream(DataPath); }, options,
                cancellation);
            if (error) {
                fmt::print(stderr, "{}\n", error->description());
                std::exit(1);
            }
        };
        first.push_back(seconds(import));
        again.push_back(seconds(import));
        bare.push_back(bareInserts(library, files.realPath("/bare")));
    }
    std::filesystem::remove_all(root);
    const auto median = [](std::vector<double> values) {
        std::ranges::sort(values);
        return values[values.size() / 2];
    };
    const double perTrack = 1e6 / count;
    fmt::print(
        "{} tracks, median of {}: import {:.2f} us, bare inserts {:.2f} us, again {:.2f} us a "
        "track; import/bare {:.2f}, again/import {:.2f}\n",
        count, rounds, median(first) * perTrack, median(bare) * perTrack, median(again) * perTrack,
        median(first) / median(bare), median(again) / median(first));
    return 0;
}
