#include "host/commands/sync_report.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "host/scan/file_names.h"

namespace host {

namespace {

const char* nameOf(PlanStep::Action action) {
    switch (action) {
        case PlanStep::Action::Add:
            return "add";
        case PlanStep::Action::Update:
            return "update";
        case PlanStep::Action::Remove:
            return "remove";
        case PlanStep::Action::Playlist:
            return "playlist";
    }
    return "";
}

std::string totals(const Plan& plan) {
    std::string text =
        fmt::format("{} to add, {} to update ({} to send), {} to remove, {}, {} unchanged",
                    plan.count(PlanStep::Action::Add), plan.count(PlanStep::Action::Update),
                    formatBytes(plan.bytesToSend), plan.count(PlanStep::Action::Remove),
                    plural(plan.count(PlanStep::Action::Playlist), "playlist"), plan.unchanged);
    if (plan.recommendationUpdates > 0)
        text += fmt::format("; new recommendation data for {}",
                            plural(plan.recommendationUpdates, "track"));
    return text;
}

}  // namespace

nlohmann::ordered_json jsonOf(const PlanStep& step) {
    return {{"type", "plan"},
            {"action", nameOf(step.action)},
            {"path", step.path},
            {"bytes", step.bytes}};
}

nlohmann::ordered_json jsonOf(const ItemFailure& failure) {
    return {{"type", "failure"}, {"path", failure.path}, {"reason", failure.reason}};
}

nlohmann::ordered_json jsonOf(const SyncSummary& summary) {
    return {{"type", "summary"},
            {"sent", summary.sent},
            {"unchanged", summary.unchanged},
            {"removed", summary.removed},
            {"uploaded", summary.uploaded},
            {"failed", summary.failed},
            {"bytes", summary.bytes},
            {"playlists", summary.playlists},
            {"disabled", summary.disabled},
            {"anchor", summary.anchor}};
}

void SyncReport::plan(const Plan& plan, const FolderState& state) {
    _progress.finish();
    if (_output.isJson()) {
        for (const PlanStep& step : plan.steps)
            _output.object(jsonOf(step));
        return;
    }
    for (const PlanStep& step : plan.steps)
        _output.line(step.bytes > 0
                         ? fmt::format("{:<8}  {}  ({})", nameOf(step.action),
                                       displayText(step.path), formatBytes(step.bytes))
                         : fmt::format("{:<8}  {}", nameOf(step.action), displayText(step.path)));
    for (const std::size_t place : plan.withheld)
        _output.line(fmt::format("withheld  {}  (removed on the device; --send-removed sends it)",
                                 displayText(state.files[place].media.stamp.path)));
    _output.line(totals(plan));
    if (plan.keptThoughMissing > 0)
        _output.line(fmt::format(
            "{} of the device {} no longer in the folder and kept there "
            "(--delete removes them)",
            plural(plan.keptThoughMissing, "track"), plan.keptThoughMissing == 1 ? "is" : "are"));
}

void SyncReport::disabled(const std::vector<std::string>& kinds, std::size_t files) {
    if (_output.isJson())
        return _output.object({{"type", "disabled"}, {"kinds", kinds}, {"files", files}});
    _progress.message(
        fmt::format("not sent: {} of kinds that the device has disabled ({}), as its cloud library "
                    "brings them; `orlith cloud sign-out` lets them come from here again",
                    plural(files, "file"), fmt::join(kinds, ", ")));
}

void SyncReport::failure(const ItemFailure& failure) {
    _failures.push_back(failure);
    if (_output.isJson())
        _output.object(jsonOf(failure));
}

namespace {

bool isUpToDate(const SyncSummary& summary) {
    return summary.sent + summary.removed + summary.uploaded + summary.failed + summary.playlists ==
           0;
}

}  // namespace

void SyncReport::deviceChange(const std::string& text) {
    _progress.message("the device changed: " + text);
}

void SyncReport::notice(const std::string& text) {
    _progress.message(text);
}

void SyncReport::summary(const SyncSummary& summary, bool nothingDone) {
    _progress.finish();
    if (!_failures.empty()) {
        writeTo(2, fmt::format("{} that cannot be synced:\n", plural(_failures.size(), "item")));
        for (const ItemFailure& failure : _failures)
            writeTo(2, fmt::format("  {}: {}\n", displayText(failure.path),
                                   displayText(failure.reason)));
    }
    if (_output.isJson())
        return _output.object(jsonOf(summary));
    if (nothingDone)
        return;
    if (isUpToDate(summary))
        return _output.line(
            fmt::format("nothing to do: {} up to date", plural(summary.unchanged, "file")));
    _output.line(fmt::format(
        "sent {} ({}), {} unchanged, {} removed, {}{}{}", plural(summary.sent, "file"),
        formatBytes(summary.bytes), summary.unchanged, summary.removed,
        plural(summary.playlists, "playlist"),
        summary.uploaded > 0 ? fmt::format(", {} received", summary.uploaded) : std::string(),
        summary.failed > 0 ? fmt::format(", {} failed", summary.failed) : std::string()));
}

}  // namespace host
