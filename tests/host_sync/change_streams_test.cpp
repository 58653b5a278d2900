#include <gmock/gmock.h>

#include <fstream>

#include "common/qorx/writer.h"
#include "host/scan/content_hash.h"
#include "host/session/change_parameters.h"
#include "tests/host_sync/command_runner.h"
#include "tests/host_sync/fake_daemon.h"

namespace host::test {
namespace {

using platform::Dictionary;
using platform::Value;
using testing::HasSubstr;

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// A stream of so many tracks, or of a playlist and a deletion.
std::string qorx(int tracks) {
    std::string bytes;
    common::QorxWriter writer([&](std::span<const std::uint8_t> piece) -> platform::OptionalError {
        bytes.append(piece.begin(), piece.end());
        return std::nullopt;
    });
    writer.begin({});
    for (int i = 1; i <= tracks; ++i) {
        qorx::Track track;
        track.set_persistent_id(INT64_MIN + i);
        track.set_title("T\xff");
        track.set_host_path("a/b");
        track.set_content_hash("\x01\xff");
        track.mutable_rating()->set_value(60);
        track.set_title("Title");
        writer.write(track);
    }
    if (tracks == 0) {
        qorx::Playlist playlist;
        playlist.set_name("P");
        playlist.add_items()->set_persistent_id(1);
        playlist.add_items()->set_global_id(2);
        writer.write(playlist);
        qorx::Deletion deletion;
        deletion.set_entity(qorx::Deletion::PLAYLIST);
        writer.write(deletion);
    }
    writer.end();
    return bytes;
}

class ChangeStreams : public testing::Test {
protected:
    void offer(const std::string& data, const Dictionary& parameters) {
        platform::OptionalError error;
        daemon.exported.resize(3);
        daemon.exported[0].set_params(*propertyListOfDictionary(parameters, error));
        daemon.exported[1].set_data(data);
        link::ChangesEnd& end = *daemon.exported[2].mutable_end();
        end.set_size(data.size());
        end.set_content_hash(bytesOfContentHash(contentHashOfText(data)));
        end.set_revision(77);
    }
    CommandResult run(std::vector<std::string> words) {
        words.insert(words.end(), {"--device", daemon.directory.path()});
        return runCommand(words);
    }
    CommandResult exportTo(const std::string& file) {
        return run({"export", "--after", "5", "--output", file, "--json"});
    }

    ::test::TemporaryDirectory directory;
    const std::string file = directory / "c.qorx";
    FakeDaemon daemon;
};

const Dictionary Sample{
    {"FormatType", "QORX"},
    {"PlaylistDataLen", 3},
    {"SyncItemCount", std::uint64_t{UINT64_MAX}},
    {"PlaylistSyncSettings", Dictionary{{"a", platform::Array{true, 1.5, platform::Data{0, 255}}},
                                        {"when", platform::Date{2.5}}}}};

TEST_F(ChangeStreams, AnExportIsFiledWithItsParametersAndImportedAsItWas) {
    const std::string data(600'000, 'x');
    offer(data, Sample);
    const CommandResult exported = exportTo(file);
    ASSERT_EQ(exported.code, 0) << exported.errors;
    EXPECT_EQ(exported.json().back()["to_revision"], "77");
    EXPECT_EQ(exported.json().back()["bytes"], 600'000);
    EXPECT_EQ(contentOf(file), data);

    std::vector<link::ChangeStream> seen;
    daemon.onImport = [&](const auto& messages, link::ImportReply& reply) {
        seen = messages;
        reply.set_success(true);
        reply.set_revision(9);
    };
    const CommandResult imported = run({"import", file, "--json"});
    ASSERT_EQ(imported.code, 0) << imported.errors;
    EXPECT_EQ(imported.json().back()["revision"], "9");
    ASSERT_EQ(seen.size(), 5u);
    platform::OptionalError error;
    EXPECT_EQ(*dictionaryOfPropertyList(seen.front().params(), error), Sample);
    EXPECT_EQ(seen[1].data() + seen[2].data() + seen[3].data(), data);
    EXPECT_EQ(seen.back().end().SerializeAsString(), daemon.exported[2].end().SerializeAsString());
}

TEST_F(ChangeStreams, ADamagedExportLeavesWhatWasThere) {
    write(file, "old");
    offer("data", Sample);
    daemon.exported[2].mutable_end()->set_size(5);
    EXPECT_EQ(exportTo(file).code, 1);
    daemon.exported.pop_back();
    EXPECT_EQ(exportTo(file).code, 1) << "no end";
    EXPECT_EQ(contentOf(file), "old");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);
}

TEST_F(ChangeStreams, WhatTheDeviceCouldNotExportIsTold) {
    offer("data", Sample);
    daemon.exported[2].mutable_end()->mutable_failure()->set_text("the library is damaged");
    EXPECT_THAT(exportTo(file).errors, HasSubstr("the library is damaged"));
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(ChangeStreams, AFileThatWasCutOrChangedIsRefused) {
    offer("some data", Sample);
    ASSERT_EQ(exportTo(file).code, 0);
    bool sawFailure = false;
    daemon.onImport = [&](const auto& messages, link::ImportReply& reply) {
        sawFailure = messages.back().end().has_failure();
        reply.set_success(true);
    };
    for (const std::string changed : {"some", "some dat4", "some data and more", ""}) {
        write(file, changed);
        const CommandResult result = run({"import", file});
        EXPECT_EQ(result.code, 1) << changed;
        EXPECT_THAT(result.errors, HasSubstr("damaged"));
        EXPECT_TRUE(sawFailure);
    }
}

TEST_F(ChangeStreams, WithoutItsFilesAnImportIsNotFound) {
    write(file, "data");
    EXPECT_EQ(run({"import", file}).code, 10);
    write(file + ".json", R"({"PlaylistDataLen":0})");
    std::filesystem::remove(file);
    EXPECT_EQ(run({"import", file}).code, 10);
}

TEST(ChangeParameters, WhatIsNoneIsRefused) {
    platform::OptionalError error;
    for (const char* text :
         {"", "[]", "{", R"({"a":null})", R"({"a":{"$data":"0g"}})", R"({"Stream":1})",
          R"({"Stream":{"size":-1,"content_hash":"","revision":"1"}})"}) {
        EXPECT_FALSE(parametersOfJson(text, error)) << text;
        EXPECT_TRUE(error);
    }
    std::string deep = "1";
    for (int i = 0; i < 100; ++i)
        deep = "[" + deep + "]";
    EXPECT_FALSE(parametersOfJson("{\"a\":" + deep + "}", error));
    EXPECT_TRUE(parametersOfJson("{}", error));
    EXPECT_FALSE(error);
}

class QorxCommand : public ChangeStreams {};

TEST_F(QorxCommand, ShowsTheRecordsOfSectionsOneAfterAnother) {
    write(file, qorx(0) + qorx(2));
    const CommandResult result = runCommand({"qorx", file, "--json"});
    ASSERT_EQ(result.code, 0) << result.errors;
    const auto lines = result.json();
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(lines[0]["section"], 1);
    EXPECT_EQ(lines[1]["items"][1]["global_id"], "2");
    EXPECT_EQ(lines[2]["entity"], "playlist");
    EXPECT_EQ(lines[4]["persistent_id"], "-9223372036854775807");
    EXPECT_EQ(lines[4]["content_hash"], "01ff");
    EXPECT_EQ(lines[4]["host_path"], "a/b");
    EXPECT_EQ(lines[4]["rating"]["value"], 60);
    EXPECT_EQ(lines[6]["type"], "summary");
    EXPECT_EQ(lines[6]["sections"], 2);
    EXPECT_EQ(lines[6]["tracks"], 2);
    EXPECT_THAT(runCommand({"qorx", file}).output, HasSubstr("P, 2 tracks"));
}

TEST_F(QorxCommand, ComparesTheSectionsWithTheirParameters) {
    const std::string playlists = qorx(0);
    write(file, playlists + qorx(1));
    write(file + ".json", "{\"PlaylistDataLen\":" + std::to_string(playlists.size()) + "}");
    EXPECT_EQ(runCommand({"qorx", file}).code, 0);
    write(file + ".json", R"({"PlaylistDataLen":7})");
    EXPECT_EQ(runCommand({"qorx", file}).code, 1);
    write(file + ".json", R"({"PlaylistDataLen":70000})");
    EXPECT_EQ(runCommand({"qorx", file}).code, 1);
}

TEST_F(QorxCommand, RefusesADamagedFileWithThePlaceAndShowsNothing) {
    const std::string playlists = qorx(0);
    const std::string whole = playlists + qorx(1);
    for (const std::size_t size :
         {std::size_t{3}, playlists.size() - 1, playlists.size() + 1, whole.size() - 1}) {
        write(file, whole.substr(0, size));
        const CommandResult result = runCommand({"qorx", file});
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors, HasSubstr("(byte "));
    }
    std::string changed = whole;
    changed[changed.size() - 12] ^= 1;
    write(file, changed);
    EXPECT_EQ(runCommand({"qorx", file}).code, 1);
}

TEST_F(QorxCommand, AnEmptyFileIsAStreamOnlyWithParametersThatSaySo) {
    write(file, "");
    EXPECT_EQ(runCommand({"qorx", file}).code, 1);
    write(file + ".json", R"({"PlaylistDataLen":0})");
    EXPECT_EQ(runCommand({"qorx", file}).code, 0);
    EXPECT_EQ(runCommand({"qorx", directory / "none"}).code, 10);
}

}  // namespace
}  // namespace host::test
