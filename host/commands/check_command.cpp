#include <fmt/format.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "host/commands/commands.h"
#include "host/commands/device_question.h"
#include "host/commands/interrupts.h"
#include "host/commands/output.h"
#include "host/commands/shown_progress.h"
#include "host/progress/progress.h"
#include "host/scan/file_names.h"
#include "host/session/call_cancellation.h"
#include "host/session/check_connection.h"
#include "link/check.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using platform::OptionalError;

// A repair may have the device opened anew, once for its database and once for its identity.
constexpr int MostRounds = 4;
constexpr std::chrono::seconds DaemonLeaves{20};
constexpr std::chrono::milliseconds PollInterval{20};

// Tells each finding once, however many rounds it takes.
class CheckReport {
public:
    CheckReport(const Output& output, const CheckOptions& options)
        : _output(output), _options(options) {}

    void take(const link::CheckEvent& event) {
        if (event.has_finding())
            take(event.finding());
        if (event.has_progress())
            take(event.progress());
    }

    // Before anything else is written on the screen.
    void endProgress() { _progress.finish(); }

    ExitCode finish(std::uint64_t tracks) {
        const std::size_t left = _found - _mended;
        if (_output.isJson())
            _output.object({{"type", "summary"},
                            {"tracks", tracks},
                            {"found", _found},
                            {"mended", _mended},
                            {"left", left}});
        else if (_found == 0)
            _output.line(
                fmt::format("all agrees: {} with their files{}, pictures, playlists and "
                            "revisions",
                            plural(tracks, "track"), _options.full ? " byte for byte" : ""));
        else if (!_options.repairs)
            _output.line(fmt::format("{} that {} not agree; --repair mends what can be mended",
                                     plural(_found, "thing"), _found == 1 ? "does" : "do"));
        else
            _output.line(fmt::format("{} that did not agree: {} mended, {} left",
                                     plural(_found, "thing"), _mended, left));
        return left == 0 ? ExitCode::Done : ExitCode::PartlyDone;
    }

private:
    void take(const link::Finding& finding) {
        _progress.finish();
        ++_found;
        _mended += finding.mended();
        if (_output.isJson())
            return _output.object({{"type", "finding"},
                                   {"area", finding.area()},
                                   {"subject", finding.subject()},
                                   {"problem", finding.problem()},
                                   {"remedy", finding.remedy()},
                                   {"mended", finding.mended()}});
        _output.line(fmt::format("{}: {}: {}", finding.area(), displayText(finding.subject()),
                                 displayText(finding.problem())));
        _output.line(fmt::format("    {}: {}",
                                 finding.mended()   ? "mended"
                                 : _options.repairs ? "not mended"
                                                    : "--repair",
                                 displayText(finding.remedy())));
    }

    void take(const link::CheckProgress& read) {
        if (!_isReading)
            _progress.startTransfer("reading", static_cast<std::size_t>(read.all_files()),
                                    read.all_bytes());
        _isReading = true;
        _progress.transferred(static_cast<std::size_t>(read.files()), read.bytes());
    }

    const Output& _output;
    const CheckOptions& _options;
    ShownProgress _progress;
    bool _isReading = false;
    std::size_t _found = 0;
    std::size_t _mended = 0;
};

// Of the daemon, which is started anew for the next round.
void waitForEnd(pid_t process) {
    const auto deadline = std::chrono::steady_clock::now() + DaemonLeaves;
    while (process > 0 && ::kill(process, 0) == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(PollInterval);
}

link::CheckRequest requestOf(const CheckOptions& options) {
    char name[256] = {};
    link::CheckRequest request;
    request.set_repair(options.repairs);
    request.set_full(options.full);
    request.set_host_name(::gethostname(name, sizeof name - 1) == 0 ? name : "host");
    request.set_process_id(static_cast<std::uint32_t>(::getpid()));
    return request;
}

}  // namespace

ExitCode runCheck(const CommonOptions& common, const CheckOptions& options) {
    const Output output(common.json);
    CallCancellation cancellation;
    const Interrupts interrupts([&] { cancellation.cancel(); });
    CheckReport report(output, options);
    link::CheckEnd end;
    for (int round = 0; round < MostRounds; ++round) {
        const ExitCode code = askDevice<CheckConnection>(
            common.deviceDirectory, output, [&](CheckConnection& device) {
                const OptionalError error = device.run(
                    requestOf(options), [&](const link::CheckEvent& event) { report.take(event); },
                    end, cancellation);
                report.endProgress();
                return error;
            });
        if (code != ExitCode::Done)
            return code;
        if (!end.again())
            break;
        waitForEnd(static_cast<pid_t>(end.process_id()));
    }
    return report.finish(end.tracks());
}

}  // namespace host
