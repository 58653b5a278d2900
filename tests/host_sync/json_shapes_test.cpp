#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "host/commands/commands.h"
#include "host/commands/list_rows.h"
#include "host/commands/output.h"
#include "host/commands/sync_report.h"
#include "host/scan/scanner.h"
#include "host/session/link_error.h"
#include "host/state/state_store.h"
#include "link/orlith.pb.h"

namespace host {
namespace {

namespace link = ::orlith::link;

TEST(JsonShapes, ASummaryHasAllItsNumbersAndTheAnchor) {
    SyncSummary summary;
    summary.sent = 3;
    summary.bytes = 12345678901;
    summary.anchor = "h-4";
    EXPECT_EQ(jsonLine(jsonOf(summary)),
              R"({"type":"summary","sent":3,"unchanged":0,"removed":0,"uploaded":0,"failed":0,)"
              R"("bytes":12345678901,"playlists":0,"disabled":0,"anchor":"h-4"})"
              "\n");
}

TEST(JsonShapes, BytesOfAPathThatAreNoTextAreReplaced) {
    EXPECT_EQ(jsonLine(jsonOf(ItemFailure{"a\xff\nb", "why"})),
              "{\"type\":\"failure\",\"path\":\"a\xEF\xBF\xBD\\nb\",\"reason\":\"why\"}\n");
}

TEST(JsonShapes, EachStepOfAPlanHasItsAction) {
    EXPECT_EQ(jsonLine(jsonOf(PlanStep{PlanStep::Action::Remove, "a.mp3", 5, false})),
              "{\"type\":\"plan\",\"action\":\"remove\",\"path\":\"a.mp3\",\"bytes\":5}\n");
}

TEST(JsonShapes, ATracksIdsAreTextAndAMissingFileIsNull) {
    link::TrackRow row;
    row.set_persistent_id(INT64_MIN);
    row.set_sync_id(7);
    row.set_title("T");
    const nlohmann::ordered_json json = jsonOf(row);
    EXPECT_EQ(json["persistent_id"], "-9223372036854775808");
    EXPECT_EQ(json["sync_id"], "7");
    EXPECT_TRUE(json["path"].is_null());
    EXPECT_TRUE(json["artist"].is_null());
    EXPECT_EQ(json.begin().key(), "type");
    for (const char* key : {"album", "disc_number", "track_number", "media_type", "asset_type",
                            "size", "artwork", "kenning", "chapters", "rating", "play_count"})
        EXPECT_TRUE(json.contains(key)) << key;
}

TEST(JsonShapes, APlaylistKeepsItsOrder) {
    link::PlaylistRow row;
    row.set_name("P");
    row.add_tracks(2);
    row.add_tracks(1);
    row.add_tracks(2);
    EXPECT_EQ(jsonLine(jsonOf(row)),
              R"({"type":"playlist","persistent_id":"0","name":"P","smart":false,"rules":null,)"
              R"("limit":null,"tracks":["2","1","2"]})"
              "\n");
    row.set_smart(true);
    row.set_rules("all");
    row.set_limit("2 by title");
    EXPECT_THAT(jsonLine(jsonOf(row)),
                testing::HasSubstr(R"("smart":true,"rules":"all","limit":"2 by title",)"));
}

TEST(ExitCodes, FollowTheKindOfError) {
    const auto code = [](std::string_view domain, std::int64_t number) {
        return exitCodeOf(platform::Error(domain, number));
    };
    EXPECT_EQ(code(LinkErrorDomain, LinkErrorBusy), ExitCode::Busy);
    EXPECT_EQ(code(StateErrorDomain, StateErrorLocked), ExitCode::Busy);
    EXPECT_EQ(code(LinkErrorDomain, LinkErrorCancelled), ExitCode::Interrupted);
    EXPECT_EQ(code(SyncErrorDomain, SyncErrorDeleteGuard), ExitCode::DeleteGuard);
    EXPECT_EQ(code(SyncErrorDomain, SyncErrorNoSpace), ExitCode::NoSpace);
    EXPECT_EQ(code(platform::POSIXErrorDomain, ENOSPC), ExitCode::NoSpace);
    EXPECT_EQ(code(SyncErrorDomain, SyncErrorNoSuchTrack), ExitCode::NotFound);
    EXPECT_EQ(code(ScanErrorDomain, ScanErrorFolderNotFound), ExitCode::NotFound);
    EXPECT_EQ(code("anything", 1), ExitCode::Failure);
}

int runWith(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "orlith");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int code = runCommandLine(static_cast<int>(arguments.size()), arguments.data());
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    return code;
}

TEST(CommandLine, WrongUsageIsTwo) {
    EXPECT_EQ(runWith({}), 2);
    EXPECT_EQ(runWith({"dance"}), 2);
    EXPECT_EQ(runWith({"sync", "folder"}), 2) << "no device";
    EXPECT_EQ(runWith({"sync", "folder", "--device", "d", "--no-such-option"}), 2);
    EXPECT_EQ(runWith({"rate", "--device", "d", "Title", "6"}), 2);
    EXPECT_EQ(runWith({"sync", "folder", "--device", "d", "--delete-after-upload"}), 2);
}

TEST(CommandLine, HelpIsNoFailure) {
    EXPECT_EQ(runWith({"--help"}), 0);
    EXPECT_EQ(runWith({"sync", "--help"}), 0);
}

TEST(CommandLine, AFolderThatIsNotThereIsTen) {
    EXPECT_EQ(runWith({"sync", "/no/such/folder", "--device", "/no/such/device"}), 10);
}

TEST(Tables, TextIsFittedByColumnsNotBytes) {
    EXPECT_EQ(fitted("abc", 5), "abc  ");
    EXPECT_EQ(fitted("abcdef", 4), "abc…");
    EXPECT_EQ(fitted("日本語テキスト", 6), "日本… ");
}

}  // namespace
}  // namespace host
