// Purpose: shows how a mirror run goes and ends, for people or as JSON lines.
// Thread: the run's.
// Failure: none.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "host/commands/output.h"
#include "host/progress/progress.h"

namespace orlith::link {
class MirrorAsset;
class MirrorEvent;
class MirrorProgress;
class MirrorStarted;
class MirrorSummary;
}  // namespace orlith::link

namespace host {

nlohmann::ordered_json jsonOf(const orlith::link::MirrorStarted& started);
// An asset that came, or a failure.
nlohmann::ordered_json jsonOf(const orlith::link::MirrorAsset& asset);
nlohmann::ordered_json jsonOf(const orlith::link::MirrorSummary& summary);

class MirrorReport {
public:
    MirrorReport(const Output& output, Progress& progress) : _output(output), _progress(progress) {}

    void take(const orlith::link::MirrorEvent& event);
    // For a run that ended within a session: the session's assets so far. The output then ends with
    // a summary in any case.
    void end();
    // Of all sessions.
    bool anyFailed() const { return _anyFailed; }

private:
    void start(const orlith::link::MirrorStarted& started);
    void showProgress(const orlith::link::MirrorProgress& step);
    void takeAsset(const orlith::link::MirrorAsset& asset);
    void showSummary(const orlith::link::MirrorSummary& summary);
    void showFailures();

    const Output& _output;
    Progress& _progress;
    bool _anyFailed = false;
    bool _summaryIsLast = false;

    // Of the session that runs.
    struct Session {
        std::int64_t fromRevision = 0;
        bool fetching = false;
        std::uint64_t assets = 0;
        std::uint64_t files = 0;  // of the assets; the others are covers alone
        std::uint64_t bytes = 0;
        std::uint64_t failed = 0;
        std::vector<std::string> failures;  // in words; the first few
    };
    Session _session;
};

}  // namespace host
