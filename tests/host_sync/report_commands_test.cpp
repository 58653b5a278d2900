#include <gmock/gmock.h>

#include "host/commands/metrics_chart.h"
#include "host/session/link_error.h"
#include "link/reports.pb.h"
#include "tests/host_sync/command_runner.h"
#include "tests/host_sync/fake_daemon.h"

namespace host::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

link::TypeMetrics metricsOf(const std::string& type, std::uint64_t size,
                            std::optional<std::uint64_t> count,
                            std::optional<std::uint64_t> purgeable = std::nullopt) {
    link::TypeMetrics metrics;
    metrics.set_asset_type(type);
    metrics.set_physical_size(size);
    if (count)
        metrics.set_count(*count);
    if (purgeable)
        metrics.set_purgeable_size(*purgeable);
    return metrics;
}

std::vector<std::string> chart(const std::vector<link::TypeMetrics>& types) {
    link::MetricsReply reply;
    for (const link::TypeMetrics& type : types)
        *reply.add_types() = type;
    return metricsChart(reply);
}

TEST(MetricsChart, BarsAreInProportionAndTheLargestKindIsFirst) {
    constexpr std::uint64_t MiB = 1 << 20;
    EXPECT_THAT(
        chart({metricsOf("Movie", 8 * MiB, 1), metricsOf("Music", 32 * MiB, 1204, 8 * MiB),
               metricsOf("TesselUVideo", 1, 12)}),
        ElementsAre("Music           ######################--------    32.0 MiB  1204 tracks",
                    "Movie           ########                           8.0 MiB     1 track",
                    "TesselUVideo    #                                      1 B    12 tracks",
                    "all                                               40.0 MiB  1217 tracks",
                    "-: temporary downloads, 8.0 MiB, which may be removed at any time"));
}

TEST(MetricsChart, TemporaryDownloadsAloneHaveNoCount) {
    EXPECT_THAT(chart({metricsOf("Music", 4096, std::nullopt, 4096)}),
                ElementsAre("Music           ------------------------------     4.0 KiB",
                            "all                                                4.0 KiB  0 tracks",
                            "-: temporary downloads, 4.0 KiB, which may be removed at any time"));
}

TEST(MetricsChart, FitsIntoEightyColumnsWhateverTheNumbers) {
    for (const std::string& line :
         chart({metricsOf(std::string(200, 'x'), 1023ull << 50, 99'999'999, 1),
                metricsOf("a", 0, 0), metricsOf("b", 1, 1, 1)}))
        EXPECT_LE(line.size(), 80u) << line;
}

TEST(MetricsChart, WhatStaysAndWhatMayGoAreBothSeen) {
    const std::string line = chart({metricsOf("Music", 1'000'000, 1, 999'999)}).front();
    EXPECT_THAT(line, HasSubstr("#-"));
    EXPECT_THAT(chart({metricsOf("Music", 1'000'000, 1, 1)}).front(), HasSubstr("#-"));
}

TEST(MetricsChart, WithoutMediaItSaysSo) {
    EXPECT_THAT(chart({}), ElementsAre("no media on the device"));
}

class ReportCommands : public testing::Test {
protected:
    CommandResult run(std::vector<std::string> words) {
        words.insert(words.begin() + 1, {"--device", daemon.directory.path()});
        return runCommand(words);
    }
    FakeDaemon daemon;
};

TEST_F(ReportCommands, MetricsInJsonLeaveOutWhatIsAbsent) {
    daemon.onMetrics = [](const auto&, link::MetricsReply& reply) {
        *reply.add_types() = metricsOf("Music", UINT64_MAX, 2);
        *reply.add_types() = metricsOf("Movie", 7, std::nullopt, 7);
    };
    const CommandResult result = run({"metrics", "--json"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(
        result.output,
        R"({"type":"metrics","asset_type":"Music","_PhysicalSize":18446744073709551615,"_Count":2})"
        "\n"
        R"({"type":"metrics","asset_type":"Movie","_PhysicalSize":7,"_PurgeableSize":7})"
        "\n"
        R"({"type":"summary","asset_types":2})"
        "\n");
}

TEST_F(ReportCommands, PathsAndNamesAreListedOrSaidToBeNone) {
    EXPECT_EQ(run({"backup-paths"}).code, 1);
    daemon.onBackupPaths = [](const auto&, link::BackupPathsReply& reply) {
        reply.add_paths("/var/a");
    };
    EXPECT_EQ(run({"backup-paths"}).output, "/var/a\n");
    EXPECT_EQ(run({"backup-paths", "--json"}).output,
              "{\"type\":\"path\",\"path\":\"/var/a\"}\n{\"type\":\"summary\",\"paths\":1}\n");
    daemon.onAccountNames = [](const auto&, link::AccountNamesReply&) {};
    EXPECT_EQ(run({"accounts"}).output,
              "nothing was bought with an account whose name the device knows\n");
    EXPECT_EQ(run({"accounts", "--json"}).output, "{\"type\":\"summary\",\"accounts\":0}\n");
}

TEST_F(ReportCommands, DisabledTypesAreThoseThatTheDeviceNames) {
    daemon.onDisabledTypes = [](const auto&, link::DisabledTypesReply& reply) {
        reply.set_disables(true);
        reply.add_asset_types("MusicVideo");
        reply.add_asset_types("Music");
    };
    EXPECT_EQ(run({"disabled-types"}).output, "Music\nMusicVideo\n");
    daemon.onDisabledTypes = [](const auto&, link::DisabledTypesReply&) {};
    EXPECT_EQ(run({"disabled-types"}).output, "none: the host may send every kind of media\n");
}

TEST_F(ReportCommands, ABusyDeviceIsNotCleared) {
    daemon.onClear = [](const auto&, link::ReportDone& reply) {
        reply.mutable_failure()->set_domain(std::string(DaemonErrorDomain));
        reply.mutable_failure()->set_code(DaemonErrorBusy);
        reply.mutable_failure()->set_text("the device is busy with kitchen");
    };
    const CommandResult result = run({"clear"});
    EXPECT_EQ(result.code, 11);
    EXPECT_THAT(result.errors, HasSubstr("kitchen"));
    daemon.onClear = [](const auto&, link::ReportDone& reply) { reply.set_success(true); };
    EXPECT_EQ(run({"clear", "--json"}).output, "{\"type\":\"summary\",\"cleared\":true}\n");
}

TEST_F(ReportCommands, AnUpdateSendsItsFieldsAsTheyWereGiven) {
    link::UpdateMetadataRequest seen;
    daemon.onUpdate = [&](const link::UpdateMetadataRequest& request,
                          link::UpdateMetadataReply& reply) {
        seen = request;
        reply.set_success(true);
        reply.set_title("A");
        reply.set_anchor("h-1+1");
        reply.set_revision(5);
    };
    const CommandResult result = run({"update", "A", "title=\xff", "comment=", "x=y=z", "--json"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(result.output, R"({"type":"summary","title":"A","revision":"5","anchor":"h-1+1"})"
                             "\n");
    ASSERT_EQ(seen.fields_size(), 3);
    EXPECT_EQ(seen.fields(0).value(), "\xff");
    EXPECT_EQ(seen.fields(1).value(), "");
    EXPECT_EQ(seen.fields(2).value(), "y=z");
    EXPECT_EQ(run({"update", "A"}).code, 2);
    EXPECT_EQ(run({"update", "A", "title"}).code, 2);
}

TEST_F(ReportCommands, AccountsAreAddedRemovedAndListed) {
    std::vector<std::string> seen;
    const auto note = [&seen](const char* what) {
        return [&seen, what](const link::Account& request, link::ReportDone& reply) {
            seen.push_back(std::string(what) + " " + std::to_string(request.account()) + " " +
                           request.name());
            reply.set_success(true);
        };
    };
    daemon.onAddAccount = note("add");
    daemon.onRemoveAccount = note("remove");
    daemon.onListAccounts = [](const auto&, link::AccountList& reply) {
        link::Account& account = *reply.add_accounts();
        account.set_account(INT64_MAX);
        account.set_name("me");
    };
    EXPECT_EQ(run({"account", "add", "5", "me"}).code, 0);
    EXPECT_EQ(run({"account", "remove", "5"}).code, 0);
    EXPECT_THAT(seen, ElementsAre("add 5 me", "remove 5 "));
    EXPECT_EQ(run({"account", "list", "--json"}).output,
              "{\"type\":\"account\",\"account\":\"9223372036854775807\",\"name\":\"me\"}\n"
              "{\"type\":\"summary\",\"accounts\":1}\n");
    EXPECT_EQ(run({"account", "add", "x", "me"}).code, 2);
    EXPECT_EQ(run({"account"}).code, 2);
}

}  // namespace
}  // namespace host::test
