#include <grpcpp/channel.h>

#include <filesystem>

#include "host/commands/commands.h"
#include "host/commands/interrupts.h"
#include "host/commands/mirror_report.h"
#include "host/commands/shown_progress.h"
#include "host/session/call_cancellation.h"
#include "host/session/device_channel.h"
#include "host/session/device_directory.h"
#include "host/session/mirror_connection.h"
#include "link/peer.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using platform::OptionalError;

bool isSame(const std::string& one, const std::string& other) {
    std::error_code ignored;
    return std::filesystem::equivalent(one, other, ignored);
}

// The first device's daemon is started here, so that what is wrong with it is told plainly.
OptionalError mirror(const MirrorOptions& options, MirrorReport& report,
                     CallCancellation& cancellation) {
    OptionalError error;
    link::MirrorRequest request;
    request.set_from_directory(existingDevice(options.from, error));
    request.set_media_types(options.mediaTypes);
    request.set_follow(options.follow);
    if (error)
        return error;
    const auto first = openDeviceChannel(request.from_directory(), &error);
    if (!first)
        return error;
    const auto companion = connectTo<MirrorConnection>(options.to, &error);
    if (!companion)
        return error;
    return companion->run(
        request, [&](const link::MirrorEvent& event) { report.take(event); }, cancellation);
}

}  // namespace

ExitCode runMirror(const MirrorOptions& options) {
    if (isSame(options.from, options.to)) {
        complain("--from and --to are the same device");
        return ExitCode::Usage;
    }
    const Output output(options.json);
    ShownProgress progress;
    MirrorReport report(output, progress);
    CallCancellation cancellation;
    OptionalError error;
    {
        const Interrupts interrupts([&] {
            progress.message("stopping in order; press Ctrl-C again to stop at once");
            cancellation.cancel();
        });
        error = mirror(options, report, cancellation);
    }
    progress.finish();
    // To follow ends with Ctrl-C; that is no error.
    const bool asAsked = options.follow && cancellation.isCancelled();
    if (error && !asAsked)
        output.error(*error);
    report.end();
    if (error)
        return exitCodeOf(*error);
    return report.anyFailed() ? ExitCode::PartlyDone : ExitCode::Done;
}

}  // namespace host
