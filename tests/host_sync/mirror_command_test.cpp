#include <gmock/gmock.h>

#include "host/session/link_error.h"
#include "platform/media_library_properties.h"
#include "tests/host_sync/command_runner.h"
#include "tests/host_sync/fake_daemon.h"

namespace host::test {
namespace {

using testing::HasSubstr;

link::MirrorEvent event(const std::function<void(link::MirrorEvent&)>& fill) {
    link::MirrorEvent made;
    fill(made);
    return made;
}

link::MirrorEvent summary(std::uint64_t assets, std::uint64_t failed) {
    return event([&](link::MirrorEvent& e) {
        e.mutable_summary()->set_assets(assets);
        e.mutable_summary()->set_failed(failed);
        e.mutable_summary()->set_to_revision(INT64_MAX);
    });
}

link::MirrorEvent asset(bool success) {
    return event([&](link::MirrorEvent& e) {
        e.mutable_asset()->set_identifier("7");
        e.mutable_asset()->set_title("T");
        e.mutable_asset()->set_parts(3);
        e.mutable_asset()->set_size(100);
        e.mutable_asset()->set_success(success);
        if (!success)
            e.mutable_asset()->mutable_failure()->set_text("its file is gone");
    });
}

class MirrorCommand : public testing::Test {
protected:
    CommandResult run(const std::vector<std::string>& more) {
        std::vector<std::string> words{"mirror", "--from", first.directory.path(), "--to",
                                       companion.directory.path()};
        words.insert(words.end(), more.begin(), more.end());
        return runCommand(words);
    }

    FakeDaemon first;
    FakeDaemon companion;
};

TEST_F(MirrorCommand, AsksTheCompanionForTheFirstDeviceAndTheKinds) {
    link::MirrorRequest seen;
    companion.onRun = [&](const link::MirrorRequest& request) { seen = request; };
    companion.events = {summary(0, 0)};
    ASSERT_EQ(run({"--kinds", "music,podcast"}).code, 0);
    EXPECT_EQ(seen.from_directory(), std::filesystem::canonical(first.directory.path()).string());
    EXPECT_EQ(seen.media_types(), KV3MediaTypeMusic | KV3MediaTypePodcast);
    EXPECT_FALSE(seen.follow());
}

TEST_F(MirrorCommand, EndsWithTheSummary) {
    companion.events = {asset(true), summary(1, 0)};
    const auto lines = run({"--json"}).json();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["type"], "asset");
    EXPECT_EQ(lines[0]["bytes"], 100);
    EXPECT_EQ(lines[1]["type"], "summary");
    EXPECT_EQ(lines[1]["assets"], 1);
    EXPECT_EQ(lines[1]["to_revision"], "9223372036854775807");
}

TEST_F(MirrorCommand, WhatFailedIsNamedAndTheRunIsPartlyDone) {
    companion.events = {asset(false), summary(0, 1)};
    const CommandResult json = run({"--json"});
    EXPECT_EQ(json.code, 3);
    EXPECT_EQ(json.json()[0]["type"], "failure");
    EXPECT_EQ(json.json()[0]["reason"], "its file is gone");
    EXPECT_THAT(run({}).errors, HasSubstr("T (file and cover): its file is gone"));
}

TEST_F(MirrorCommand, ARunThatBreaksOffEndsWithWhatItDid) {
    companion.events = {asset(true), event([](link::MirrorEvent& e) {
                            e.mutable_failure()->set_domain(std::string(DaemonErrorDomain));
                            e.mutable_failure()->set_code(DaemonErrorBusy);
                            e.mutable_failure()->set_text("a sync is running");
                        })};
    const CommandResult result = run({"--json"});
    EXPECT_EQ(result.code, 11);
    const auto lines = result.json();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1]["message"], "a sync is running");
    EXPECT_EQ(lines[2]["type"], "summary");
    EXPECT_EQ(lines[2]["assets"], 1);
}

TEST_F(MirrorCommand, NothingToDoIsSaid) {
    companion.events = {summary(0, 0)};
    EXPECT_THAT(run({}).output, HasSubstr("nothing to do"));
}

TEST_F(MirrorCommand, WrongUsageIsToldBeforeAnythingHappens) {
    EXPECT_EQ(run({"--kinds", "noise"}).code, 2);
    const std::string same = first.directory.path();
    EXPECT_EQ(runCommand({"mirror", "--from", same, "--to", same + "/."}).code, 2);
    EXPECT_EQ(runCommand({"mirror", "--from", same}).code, 2);
}

TEST_F(MirrorCommand, AFirstDeviceThatIsNotThereIsNotMade) {
    const std::string missing = first.directory / "nowhere";
    const CommandResult result =
        runCommand({"mirror", "--from", missing, "--to", companion.directory.path()});
    EXPECT_EQ(result.code, 10);
    EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(MirrorCommand, TheRevisionIsToldWithThePeers) {
    companion.onRevision = [](const auto&, link::RevisionReply& reply) {
        reply.set_revision(5);
        reply.set_library_uid("U");
        reply.add_peers()->set_received_revision(-1);
    };
    const auto lines =
        runCommand({"revision", "--device", companion.directory.path(), "--json"}).json();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["received_revision"], "-1");
    EXPECT_EQ(lines[1]["revision"], "5");
    EXPECT_EQ(lines[1]["library_uid"], "U");
}

TEST_F(MirrorCommand, WantedAssetsAreListed) {
    companion.assets.resize(2);
    companion.assets[0].add_assets()->set_identifier("1");
    companion.assets[1].add_assets()->set_parts(1);
    const auto lines =
        runCommand({"assets", "--device", companion.directory.path(), "--json"}).json();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1]["parts"][0], "file");
    EXPECT_EQ(lines[2]["assets"], 2);
}

TEST_F(MirrorCommand, AResetThatFailsSaysWhy) {
    companion.onResetChanges = [](const auto&, link::ResetChangesReply& reply) {
        reply.mutable_failure()->set_text("not now");
    };
    const CommandResult result =
        runCommand({"reset-changes", "--device", companion.directory.path()});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors, HasSubstr("not now"));
}

}  // namespace
}  // namespace host::test
