#include "host/commands/commands.h"
#include "host/commands/interrupts.h"
#include "host/commands/shown_progress.h"
#include "host/commands/sync_report.h"

namespace host {

namespace {

bool isEmpty(const SyncSummary& summary) {
    return summary.sent + summary.removed + summary.uploaded + summary.failed + summary.playlists ==
           0;
}

}  // namespace

ExitCode runSync(const SyncOptions& options, const CommonOptions& common) {
    const Output output(common.json);
    ShownProgress progress;
    SyncReport report(output, progress);
    SyncRun run(options, report, progress);
    platform::OptionalError error;
    {
        const Interrupts interrupts([&] {
            progress.message("stopping in order; press Ctrl-C again to stop at once");
            run.interrupt();
        });
        error = run.run();
    }
    progress.finish();
    if (error)
        output.error(*error);
    report.summary(run.summary(), options.dryRun || (error && isEmpty(run.summary())));
    if (error)
        return exitCodeOf(*error);
    return run.summary().failed > 0 ? ExitCode::PartlyDone : ExitCode::Done;
}

}  // namespace host
