#include <gmock/gmock.h>

#include "host/session/link_error.h"
#include "tests/host_sync/command_runner.h"
#include "tests/host_sync/fake_daemon.h"

namespace host::test {
namespace {

using Request = link::EditPlaylistRequest;
using testing::ElementsAre;
using testing::HasSubstr;

class OwnerCommands : public testing::Test {
protected:
    CommandResult run(std::vector<std::string> words) {
        words.insert(words.end(), {"--device", daemon.directory.path()});
        return runCommand(words);
    }
    // The request that a playlist command becomes.
    Request playlist(std::vector<std::string> words) {
        Request seen;
        daemon.onEditPlaylist = [&](const Request& request, link::EditReply& reply) {
            seen = request;
            reply.set_success(true);
            reply.set_title("P");
        };
        words.insert(words.begin(), "playlist");
        const CommandResult result = run(words);
        EXPECT_EQ(result.code, 0) << result.errors;
        return seen;
    }

    FakeDaemon daemon;
};

TEST_F(OwnerCommands, EditSendsItsFieldsInOrder) {
    link::EditTrackRequest seen;
    daemon.onEditTrack = [&](const link::EditTrackRequest& request, link::EditReply& reply) {
        seen = request;
        reply.set_success(true);
        reply.set_title("New");
        reply.set_revision(INT64_MAX);
    };
    const CommandResult result =
        run({"edit", "A", "title=New", "album-artist=x=y", "comment=", "--json"});
    ASSERT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(seen.track(), "A");
    ASSERT_EQ(seen.fields_size(), 3);
    EXPECT_EQ(seen.fields(0).field(), "title");
    EXPECT_EQ(seen.fields(1).field(), "album-artist");
    EXPECT_EQ(seen.fields(1).value(), "x=y");
    EXPECT_EQ(seen.fields(2).value(), "");
    EXPECT_EQ(result.output, R"({"type":"summary","title":"New","revision":"9223372036854775807"})"
                             "\n");
}

TEST_F(OwnerCommands, WhatIsNoAssignmentIsWrongUsage) {
    EXPECT_EQ(run({"edit", "A", "title"}).code, 2);
    EXPECT_EQ(run({"edit", "A", "=x"}).code, 2);
    EXPECT_EQ(run({"edit", "A"}).code, 2);
}

TEST_F(OwnerCommands, WhatTheDeviceDoesNotHaveIsNotFound) {
    daemon.onEditTrack = [](const auto&, link::EditReply& reply) {
        reply.mutable_failure()->set_domain(std::string(LibraryErrorDomain));
        reply.mutable_failure()->set_code(LibraryErrorNotFound);
        reply.mutable_failure()->set_text("no track is called A");
    };
    const CommandResult result = run({"edit", "A", "title=B"});
    EXPECT_EQ(result.code, 10);
    EXPECT_THAT(result.errors, HasSubstr("no track is called A"));
}

TEST_F(OwnerCommands, PlaylistsAreMadeWithTheirTracks) {
    const Request request = playlist({"create", "P", "a", "b"});
    EXPECT_EQ(request.action(), Request::CREATE);
    EXPECT_EQ(request.playlist(), "P");
    EXPECT_THAT(request.tracks(), ElementsAre("a", "b"));
}

TEST_F(OwnerCommands, SmartPlaylistsAreMadeWithTheirRulesAndTheWordsOfTheirLimit) {
    const Request request =
        playlist({"create", "P", "--smart", "rating > 3", "--limit", "25", "by", "lowest", "year"});
    EXPECT_EQ(request.rules(), "rating > 3");
    EXPECT_EQ(request.limit(), "25 by lowest year");
    EXPECT_EQ(playlist({"create", "P", "--smart", "all"}).limit(), "");
    EXPECT_EQ(run({"playlist", "create", "P", "a", "--smart", "all"}).code, 2);
    EXPECT_EQ(run({"playlist", "create", "P", "--limit", "3"}).code, 2);
    EXPECT_EQ(run({"playlist", "create", "P", "--smart", ""}).code, 2);
}

TEST_F(OwnerCommands, PositionsCountFromOneForPeopleAndFromZeroOnTheLink) {
    EXPECT_EQ(playlist({"add", "P", "a", "--at", "3"}).position(), 2u);
    EXPECT_FALSE(playlist({"add", "P", "a"}).has_position());
    const Request moved = playlist({"move", "P", "3", "1"});
    EXPECT_EQ(moved.action(), Request::MOVE);
    EXPECT_EQ(moved.position(), 2u);
    EXPECT_EQ(moved.new_position(), 0u);
    EXPECT_EQ(playlist({"remove", "P", "--at", "1"}).position(), 0u);
    EXPECT_EQ(run({"playlist", "move", "P", "0", "1"}).code, 2);
}

TEST_F(OwnerCommands, RemovingNeedsTracksOrAPositionAndNotBoth) {
    EXPECT_EQ(playlist({"remove", "P", "a"}).tracks_size(), 1);
    EXPECT_EQ(run({"playlist", "remove", "P"}).code, 2);
    EXPECT_EQ(run({"playlist", "remove", "P", "a", "--at", "1"}).code, 2);
}

TEST_F(OwnerCommands, PlaylistsAreRenamedAndDeleted) {
    const Request renamed = playlist({"rename", "P", "Q"});
    EXPECT_EQ(renamed.action(), Request::RENAME);
    EXPECT_EQ(renamed.name(), "Q");
    EXPECT_EQ(playlist({"delete", "P"}).action(), Request::DELETE);
    EXPECT_EQ(run({"playlist"}).code, 2);
}

TEST_F(OwnerCommands, ADownloadHasANumber) {
    link::DownloadRequest seen;
    daemon.onDownload = [&](const link::DownloadRequest& request, link::DownloadReply& reply) {
        seen = request;
        reply.set_success(true);
        reply.set_download(12);
    };
    const CommandResult result = run({"download", "http://h/a.mp3", "--title", "T", "--item",
                                      "18446744073709551615", "--temporary", "--json"});
    ASSERT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(seen.item(), UINT64_MAX);
    EXPECT_TRUE(seen.temporary());
    EXPECT_EQ(result.output, "{\"type\":\"summary\",\"download\":\"12\"}\n");
    EXPECT_EQ(run({"download", "http://h/a.mp3", "--title", "T", "--track", "U"}).code, 2);
}

TEST_F(OwnerCommands, DownloadsAreListedWithWhyTheyFailed) {
    daemon.onListDownloads = [](const auto&, link::DownloadList& list) {
        link::DownloadRow& row = *list.add_downloads();
        row.set_download(1);
        row.set_title("T");
        row.set_phase("failed");
        row.set_failure("the store is closed");
    };
    const auto lines = run({"downloads", "--json"}).json();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["failure"], "the store is closed");
    EXPECT_TRUE(lines[0]["size"].is_null());
    EXPECT_EQ(lines[1]["downloads"], 1);
    EXPECT_THAT(run({"downloads"}).output, HasSubstr("T: the store is closed"));
}

TEST_F(OwnerCommands, ADownloadIsCancelledByItsNumber) {
    std::int64_t seen = 0;
    daemon.onCancelDownload = [&](const link::CancelDownloadRequest& request,
                                  link::CancelDownloadReply& reply) {
        seen = request.download();
        reply.set_success(true);
    };
    EXPECT_EQ(run({"downloads", "--cancel", "7"}).code, 0);
    EXPECT_EQ(seen, 7);
}

TEST_F(OwnerCommands, TheOwnerSignsInAndOut) {
    bool kenning = false;
    daemon.onCloudSignIn = [&](const link::CloudSignInRequest& request, link::CloudReply& reply) {
        kenning = request.has_kenning_data();
        reply.set_success(true);
        reply.set_signed_in(true);
    };
    daemon.onCloudSignOut = [](const auto&, link::CloudReply& reply) { reply.set_success(true); };
    EXPECT_EQ(run({"cloud", "sign-in", "--with-kenning", "--json"}).output,
              "{\"type\":\"summary\",\"signed_in\":true}\n");
    EXPECT_TRUE(kenning);
    EXPECT_EQ(run({"cloud", "sign-out"}).output, "signed out\n");
}

}  // namespace
}  // namespace host::test
