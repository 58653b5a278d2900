#include "host/commands/mirror_report.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/commands/asset_rows.h"
#include "host/scan/file_names.h"
#include "link/peer.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

// A large library whose first device is gone has as many failures as files.
constexpr std::size_t MostFailuresInWords = 1000;

const char* nameOf(link::MirrorProgress::Phase phase) {
    switch (phase) {
        case link::MirrorProgress::FETCHING_CHANGES:
            return "fetching changes";
        case link::MirrorProgress::APPLYING_CHANGES:
            return "applying changes";
        case link::MirrorProgress::LISTING_ASSETS:
            return "listing what is missing";
        case link::MirrorProgress::FETCHING_ASSETS:
            return "fetching";
        case link::MirrorProgress::FINISHING:
            return "finishing";
        default:
            return "preparing";
    }
}

bool changedNothing(const link::MirrorSummary& summary) {
    return summary.playlists_changed() + summary.tracks_changed() + summary.tracks_deleted() +
               summary.playlists_deleted() + summary.assets() + summary.failed() ==
           0;
}

// "3 tracks and 1 playlist", without what there is none of; "" for nothing.
std::string pair(std::uint64_t first, const char* firstNoun, std::uint64_t second,
                 const char* secondNoun) {
    std::vector<std::string> parts;
    if (first > 0)
        parts.push_back(plural(first, firstNoun));
    if (second > 0)
        parts.push_back(plural(second, secondNoun));
    return fmt::format("{}", fmt::join(parts, " and "));
}

// `files`: how many of the assets are files and not covers alone.
std::string textOf(const link::MirrorSummary& summary, std::uint64_t files) {
    if (changedNothing(summary))
        return fmt::format("nothing to do: up to date with revision {}", summary.to_revision());
    std::vector<std::string> parts;
    const auto changes =
        pair(summary.tracks_changed(), "track", summary.playlists_changed(), "playlist");
    if (!changes.empty())
        parts.push_back(changes + " changed");
    const auto deletions =
        pair(summary.tracks_deleted(), "track", summary.playlists_deleted(), "playlist");
    if (!deletions.empty())
        parts.push_back(deletions + " deleted");
    const auto fetched = pair(files, "file", summary.assets() - files, "cover");
    if (!fetched.empty())
        parts.push_back(fmt::format("{} fetched ({})", fetched, formatBytes(summary.bytes())));
    if (summary.failed() > 0)
        parts.push_back(fmt::format("{} failed", summary.failed()));
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string failureText(const link::MirrorAsset& asset) {
    return fmt::format("{} ({}): {}",
                       displayText(asset.title().empty() ? asset.identifier() : asset.title()),
                       partsText(asset.parts()),
                       displayText(asset.failure().text().empty() ? "no reason was given"
                                                                  : asset.failure().text()));
}

}  // namespace

nlohmann::ordered_json jsonOf(const link::MirrorStarted& started) {
    return {{"type", "started"},
            {"library_uid", started.library_uid()},
            {"name", started.name()},
            {"from_revision", std::to_string(started.from_revision())},
            {"to_revision", std::to_string(started.to_revision())},
            {"full", started.full()}};
}

nlohmann::ordered_json jsonOf(const link::MirrorAsset& asset) {
    nlohmann::ordered_json json = {{"type", asset.success() ? "asset" : "failure"},
                                   {"identifier", asset.identifier()},
                                   {"title", asset.title()},
                                   {"parts", partsJson(asset.parts())}};
    if (asset.success()) {
        json["bytes"] = asset.size();
    } else {
        json["reason"] = asset.failure().text();
        json["recoverable"] = asset.recoverable();
    }
    return json;
}

nlohmann::ordered_json jsonOf(const link::MirrorSummary& summary) {
    return {{"type", "summary"},
            {"playlists_changed", summary.playlists_changed()},
            {"tracks_changed", summary.tracks_changed()},
            {"tracks_deleted", summary.tracks_deleted()},
            {"playlists_deleted", summary.playlists_deleted()},
            {"assets", summary.assets()},
            {"failed", summary.failed()},
            {"bytes", summary.bytes()},
            {"from_revision", std::to_string(summary.from_revision())},
            {"to_revision", std::to_string(summary.to_revision())},
            {"full", summary.full()}};
}

void MirrorReport::take(const link::MirrorEvent& event) {
    if (!event.has_progress())
        _summaryIsLast = false;
    switch (event.event_case()) {
        case link::MirrorEvent::kStarted:
            return start(event.started());
        case link::MirrorEvent::kProgress:
            return showProgress(event.progress());
        case link::MirrorEvent::kAsset:
            return takeAsset(event.asset());
        case link::MirrorEvent::kWaiting:
            _progress.phase("waiting: " + displayText(event.waiting().reason()));
            if (_output.isJson())
                _output.object({{"type", "waiting"}, {"reason", event.waiting().reason()}});
            return;
        case link::MirrorEvent::kSummary:
            return showSummary(event.summary());
        default:
            return;  // of a newer daemon
    }
}

void MirrorReport::end() {
    _progress.finish();
    showFailures();
    if (_summaryIsLast || (!_output.isJson() && _session.assets == 0))
        return;
    link::MirrorSummary soFar;
    soFar.set_assets(_session.assets);
    soFar.set_failed(_session.failed);
    soFar.set_bytes(_session.bytes);
    soFar.set_from_revision(_session.fromRevision);
    soFar.set_to_revision(_session.fromRevision);
    if (_output.isJson())
        _output.object(jsonOf(soFar));
    else
        _output.line(textOf(soFar, _session.files) + "; the next run goes on from here");
}

void MirrorReport::start(const link::MirrorStarted& started) {
    _session = {};
    _session.fromRevision = started.from_revision();
    if (_output.isJson())
        _output.object(jsonOf(started));
    else if (started.full())
        _progress.message("the whole library is compared");
}

void MirrorReport::showProgress(const link::MirrorProgress& step) {
    if (step.phase() != link::MirrorProgress::FETCHING_ASSETS) {
        _progress.phase(nameOf(step.phase()));
        if (step.phase() == link::MirrorProgress::FETCHING_CHANGES)
            _progress.countBytes(step.done(), step.total());
        else
            _progress.count(static_cast<std::int64_t>(step.done()),
                            static_cast<std::int64_t>(step.total()));
        return;
    }
    if (!_session.fetching)
        _progress.startTransfer(nameOf(step.phase()), step.total(), 0);
    _session.fetching = true;
    _progress.transferred(step.done(), step.bytes());
}

void MirrorReport::takeAsset(const link::MirrorAsset& asset) {
    if (asset.success()) {
        ++_session.assets;
        _session.files += (asset.parts() & link::Transfer::FILE) != 0;
        _session.bytes += asset.size();
    } else {
        ++_session.failed;
        _anyFailed = true;
        if (_session.failures.size() < MostFailuresInWords)
            _session.failures.push_back(failureText(asset));
    }
    if (_output.isJson())
        _output.object(jsonOf(asset));
}

void MirrorReport::showSummary(const link::MirrorSummary& summary) {
    _progress.finish();
    showFailures();
    _anyFailed = _anyFailed || summary.failed() > 0;
    const std::string text = textOf(summary, std::min(_session.files, summary.assets()));
    _session = {};
    _session.fromRevision = summary.to_revision();
    _summaryIsLast = true;
    if (_output.isJson())
        _output.object(jsonOf(summary));
    else
        _output.line(text);
}

void MirrorReport::showFailures() {
    if (_session.failures.empty())
        return;
    writeTo(STDERR_FILENO, fmt::format("{} that did not come:\n", plural(_session.failed, "item")));
    for (const std::string& failure : _session.failures)
        writeTo(STDERR_FILENO, fmt::format("  {}\n", failure));
    _session.failures.clear();
}

}  // namespace host
