#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "host/commands/commands.h"
#include "host/commands/device_question.h"
#include "host/commands/interrupts.h"
#include "host/commands/shown_progress.h"
#include "host/progress/progress.h"
#include "host/scan/file_names.h"
#include "host/session/call_cancellation.h"
#include "host/session/change_messages.h"
#include "host/session/mirror_connection.h"
#include "host/session/replaced_file.h"
#include "link/peer.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using platform::OptionalError;

link::ExportRequest requestOf(const ExportOptions& options) {
    link::ExportRequest request;
    request.set_after(options.after);
    request.set_up_to(options.upTo);
    request.set_sync_type(options.syncType);
    return request;
}

platform::Error errorOfErrno(const std::string& what) {
    const int number = errno;
    return platform::Error(platform::POSIXErrorDomain, number,
                           fmt::format("{}: {}", what, std::strerror(number)));
}

// What an export has in hand.
struct Export {
    const ExportOptions& options;
    MirrorConnection& device;
    CallCancellation& cancellation;
    Progress& progress;

    OptionalError receive(ChangeReceiver& receiver) const {
        progress.phase("receiving changes");
        return device.exportChanges(
            requestOf(options),
            [&](const link::ChangeStream& piece) {
                OptionalError error = receiver.take(piece);
                progress.countBytes(receiver.bytes(), 0);
                return error;
            },
            cancellation);
    }

    OptionalError toStandardOutput() const {
        ChangeReceiver receiver([](std::string_view bytes) -> OptionalError {
            if (writeTo(STDOUT_FILENO, bytes))
                return std::nullopt;
            return errorOfErrno("the standard output");
        });
        OptionalError error = receive(receiver);
        progress.finish();
        if (!error)
            writeTo(STDERR_FILENO, jsonOfParameters(receiver.parameters()));
        return error;
    }

    // The parameters take their place first: a stream that does not fit them is refused.
    OptionalError toFile(ChangeParameters& parameters) const {
        ReplacedFile stream(options.output);
        ReplacedFile beside(parametersPath(options.output));
        if (auto error = stream.open())
            return error;
        if (auto error = beside.open())
            return error;
        ChangeReceiver receiver([&](std::string_view bytes) { return stream.write(bytes); });
        if (auto error = receive(receiver))
            return error;
        parameters = receiver.parameters();
        if (auto error = beside.write(jsonOfParameters(parameters)))
            return error;
        if (auto error = beside.commit())
            return error;
        return stream.commit();
    }
};

void showExport(const ExportOptions& options, const ChangeParameters& parameters,
                const Output& output) {
    const std::uint64_t items = parameters.items();
    const StreamFacts facts = parameters.stream.value_or(StreamFacts());
    if (output.isJson())
        output.object({{"type", "summary"},
                       {"file", options.output},
                       {"items", items},
                       {"playlist_bytes", parameters.playlistBytes()},
                       {"bytes", facts.size},
                       {"from_revision", std::to_string(options.after)},
                       {"to_revision", std::to_string(facts.revision)}});
    else
        output.line(fmt::format("{}: {} ({}), up to revision {}", displayText(options.output),
                                plural(items, "entry", "entries"), formatBytes(facts.size),
                                facts.revision));
}

bool mayExport(const CommonOptions& common, const ExportOptions& options) {
    if (!options.output.empty())
        return true;
    if (common.json)
        complain("--json needs --output: the standard output is taken by the changes");
    else if (::isatty(STDOUT_FILENO) == 1)
        complain("changes are no text for a terminal; name a file with --output");
    else
        return true;
    return false;
}

}  // namespace

ExitCode runExport(const CommonOptions& common, const ExportOptions& options) {
    if (!mayExport(common, options))
        return ExitCode::Usage;
    const Output output(common.json);
    ShownProgress progress;
    CallCancellation cancellation;
    const Interrupts interrupts([&] { cancellation.cancel(); });
    ChangeParameters parameters;
    const ExitCode code =
        askDevice<MirrorConnection>(common.deviceDirectory, output, [&](MirrorConnection& device) {
            const Export run{options, device, cancellation, progress};
            const OptionalError error =
                options.output.empty() ? run.toStandardOutput() : run.toFile(parameters);
            progress.finish();
            return error;
        });
    if (code == ExitCode::Done && !options.output.empty())
        showExport(options, parameters, output);
    return code;
}

ExitCode runImport(const CommonOptions& common, const std::string& file) {
    const Output output(common.json);
    // Told before it is noticed that its parameters are missing too.
    if (::access(file.c_str(), R_OK) != 0)
        return outcomeOf(errorOfErrno(displayText(file)), output);
    OptionalError error;
    auto parameters = readParameters(file, error);
    if (!parameters)
        return outcomeOf(error, output);
    const std::uint64_t items = parameters->items();
    ChangeSender sender(std::move(*parameters));
    if (sender.open(file))
        return outcomeOf(sender.error(), output);
    CallCancellation cancellation;
    const Interrupts interrupts([&] { cancellation.cancel(); });
    link::ImportReply reply;
    const ExitCode code = askNewDevice<MirrorConnection>(
        common.deviceDirectory, output, [&](MirrorConnection& device) {
            const OptionalError refused = device.importChanges(
                [&](link::ChangeStream& piece) { return sender.next(piece); }, reply, cancellation);
            // What is wrong with the file says more than that the device did not take it.
            return sender.error() ? sender.error() : refused;
        });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object({{"type", "summary"},
                       {"items", items},
                       {"bytes", sender.bytes()},
                       {"revision", std::to_string(reply.revision())}});
    else
        output.line(fmt::format("{} taken in; the library is at revision {}",
                                plural(items, "entry", "entries"), reply.revision()));
    return code;
}

}  // namespace host
