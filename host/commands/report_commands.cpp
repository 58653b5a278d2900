#include "host/commands/report_commands.h"

#include <fmt/format.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <set>

#include "host/commands/device_question.h"
#include "host/commands/metrics_chart.h"
#include "host/scan/file_names.h"
#include "host/session/reports_connection.h"
#include "link/reports.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using Json = nlohmann::ordered_json;
using platform::OptionalError;

Json jsonOf(const link::TypeMetrics& type) {
    Json row{{"type", "metrics"}, {"asset_type", type.asset_type()}};
    if (type.has_physical_size())
        row["_PhysicalSize"] = type.physical_size();
    if (type.has_count())
        row["_Count"] = type.count();
    if (type.has_purgeable_size())
        row["_PurgeableSize"] = type.purgeable_size();
    return row;
}

// Answers that are texts alone: `rows` fills them in. In JSON each is an object of the type, its
// text under `key`, and the summary counts them; without any there is a line that says so.
ExitCode showTexts(
    const CommonOptions& common, const char* type, const char* key, const char* counter,
    const char* none,
    const std::function<OptionalError(ReportsConnection&, std::vector<std::string>&)>& rows) {
    const Output output(common.json);
    std::vector<std::string> texts;
    const ExitCode code = askDevice<ReportsConnection>(
        common.deviceDirectory, output,
        [&](ReportsConnection& device) { return rows(device, texts); });
    if (code != ExitCode::Done)
        return code;
    for (const std::string& text : texts) {
        if (common.json)
            output.object({{"type", type}, {key, text}});
        else
            output.line(displayText(text));
    }
    if (common.json)
        output.object({{"type", "summary"}, {counter, texts.size()}});
    else if (texts.empty())
        output.line(none);
    return code;
}

// Something that is done or not, told in one line or as the summary.
ExitCode change(const CommonOptions& common, const std::string& done, const Json& summary,
                const std::function<OptionalError(ReportsConnection&)>& question) {
    const Output output(common.json);
    const ExitCode code = askDevice<ReportsConnection>(common.deviceDirectory, output, question);
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object(summary);
    else
        output.line(done);
    return code;
}

link::UpdateMetadataRequest requestOf(const std::string& track,
                                      const std::vector<std::string>& assignments) {
    link::UpdateMetadataRequest request;
    request.set_track(track);
    for (const std::string& assignment : assignments) {
        const std::size_t equals = assignment.find('=');
        link::UpdatedField& field = *request.add_fields();
        field.set_field(assignment.substr(0, equals));
        field.set_value(assignment.substr(equals + 1));
    }
    return request;
}

}  // namespace

ExitCode runBackupPaths(const CommonOptions& common) {
    return showTexts(common, "path", "path", "paths", "nothing beside the library itself",
                     [](ReportsConnection& device, std::vector<std::string>& paths) {
                         return device.backupPaths(paths);
                     });
}

ExitCode runMetrics(const CommonOptions& common) {
    const Output output(common.json);
    link::MetricsReply metrics;
    const ExitCode code = askDevice<ReportsConnection>(
        common.deviceDirectory, output,
        [&](ReportsConnection& device) { return device.metrics(metrics); });
    if (code != ExitCode::Done)
        return code;
    if (!common.json) {
        for (const std::string& line : metricsChart(metrics))
            output.line(line);
        return code;
    }
    for (const link::TypeMetrics& type : metrics.types())
        output.object(jsonOf(type));
    output.object({{"type", "summary"}, {"asset_types", metrics.types_size()}});
    return code;
}

ExitCode runAccountNames(const CommonOptions& common) {
    return showTexts(common, "account", "name", "accounts",
                     "nothing was bought with an account whose name the device knows",
                     [](ReportsConnection& device, std::vector<std::string>& names) {
                         return device.accountNames(names);
                     });
}

ExitCode runDisabledTypes(const CommonOptions& common) {
    return showTexts(common, "disabled", "asset_type", "disabled_types",
                     "none: the host may send every kind of media",
                     [](ReportsConnection& device, std::vector<std::string>& texts) {
                         std::optional<std::set<std::string>> types;
                         OptionalError error = device.disabledTypes(types);
                         if (types)
                             texts.assign(types->begin(), types->end());
                         return error;
                     });
}

ExitCode runClear(const CommonOptions& common) {
    return change(common, "the next sync begins from nothing",
                  {{"type", "summary"}, {"cleared", true}},
                  [](ReportsConnection& device) { return device.clearSyncData(); });
}

ExitCode runUpdate(const CommonOptions& common, const std::string& track,
                   const std::vector<std::string>& assignments) {
    const Output output(common.json);
    link::UpdateMetadataReply reply;
    const ExitCode code = askDevice<ReportsConnection>(
        common.deviceDirectory, output, [&](ReportsConnection& device) {
            return device.updateMetadata(requestOf(track, assignments), reply);
        });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object({{"type", "summary"},
                       {"title", reply.title()},
                       {"revision", std::to_string(reply.revision())},
                       {"anchor", reply.anchor()}});
    else
        output.line(
            fmt::format("{}: updated", displayText(reply.title().empty() ? track : reply.title())));
    return code;
}

ExitCode runListAccounts(const CommonOptions& common) {
    const Output output(common.json);
    link::AccountList list;
    const ExitCode code = askDevice<ReportsConnection>(
        common.deviceDirectory, output,
        [&](ReportsConnection& device) { return device.listAccounts(list); });
    if (code != ExitCode::Done)
        return code;
    for (const link::Account& account : list.accounts()) {
        if (common.json)
            output.object({{"type", "account"},
                           {"account", std::to_string(account.account())},
                           {"name", account.name()}});
        else
            output.line(fmt::format("{:<12} {}", account.account(), displayText(account.name())));
    }
    if (common.json)
        output.object({{"type", "summary"}, {"accounts", list.accounts_size()}});
    else if (list.accounts().empty())
        output.line("no accounts");
    return code;
}

ExitCode runAddAccount(const CommonOptions& common, std::int64_t account, const std::string& name) {
    return change(common, fmt::format("account {} is {}", account, displayText(name)),
                  {{"type", "summary"}, {"account", std::to_string(account)}},
                  [&](ReportsConnection& device) { return device.addAccount(account, name); });
}

ExitCode runRemoveAccount(const CommonOptions& common, std::int64_t account) {
    return change(common, fmt::format("account {} is forgotten", account),
                  {{"type", "summary"}, {"account", std::to_string(account)}},
                  [&](ReportsConnection& device) { return device.removeAccount(account); });
}

}  // namespace host
