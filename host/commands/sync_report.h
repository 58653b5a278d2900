// Purpose: shows what a sync plans, does and ends with, for people or as JSON lines.
// Thread: the run's.
// Failure: none.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "host/commands/output.h"
#include "host/progress/progress.h"
#include "host/session/sync_run.h"

namespace host {

class SyncReport : public SyncReporter {
public:
    SyncReport(const Output& output, Progress& progress) : _output(output), _progress(progress) {}

    void plan(const Plan& plan, const FolderState& state) override;
    void disabled(const std::vector<std::string>& kinds, std::size_t files) override;
    void failure(const ItemFailure& failure) override;
    void deviceChange(const std::string& text) override;
    void notice(const std::string& text) override;

    // The failures together and what was done; in words only where something was.
    void summary(const SyncSummary& summary, bool nothingDone);

private:
    const Output& _output;
    Progress& _progress;
    std::vector<ItemFailure> _failures;
};

// The JSON forms, "type" first.
nlohmann::ordered_json jsonOf(const PlanStep& step);
nlohmann::ordered_json jsonOf(const ItemFailure& failure);
nlohmann::ordered_json jsonOf(const SyncSummary& summary);

}  // namespace host
