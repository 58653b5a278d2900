#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>

#include "host/commands/commands.h"
#include "host/commands/output.h"
#include "host/progress/progress.h"
#include "host/records/qorx_file.h"
#include "host/records/record_json.h"
#include "host/records/record_text.h"
#include "host/scan/file_names.h"
#include "host/session/change_parameters.h"

namespace host {

namespace {

using platform::OptionalError;

QorxListener listenerFor(const Output& output) {
    if (output.isJson()) {
        const auto write = [](std::string_view text) { writeTo(STDOUT_FILENO, text); };
        return {[write](const qorx::Header& header, std::size_t section) {
                    writeHeaderJson(header, section, write);
                },
                [write](const qorx::Record& record) { writeRecordJson(record, write); }};
    }
    return {[&output](const qorx::Header& header, std::size_t) { output.line(headerText(header)); },
            [&output](const qorx::Record& record) { output.line("  " + recordText(record)); }};
}

// Absent when no parameters lie beside the file.
OptionalError findPlaylistBytes(const std::string& file, std::optional<std::uint64_t>& bytes) {
    OptionalError error;
    const auto parameters = readParameters(file, error);
    if (parameters)
        bytes = parameters->playlistBytes();
    else if (error->code == ENOENT)
        error.reset();
    return error;
}

}  // namespace

ExitCode runQorx(const std::string& file, bool json) {
    const Output output(json);
    QorxTotals totals;
    std::optional<std::uint64_t> playlistBytes;
    OptionalError error = findPlaylistBytes(file, playlistBytes);
    if (!error) {
        error = readQorxFile(file, playlistBytes, listenerFor(output), totals);
        if (error)
            error = platform::Error(error->domain, error->code,
                                    fmt::format("{}: {}", displayText(file), error->text()));
    }
    if (error) {
        output.error(*error);
        return exitCodeOf(*error);
    }
    if (json)
        output.object({{"type", "summary"},
                       {"sections", totals.sections},
                       {"tracks", totals.tracks},
                       {"playlists", totals.playlists},
                       {"deletions", totals.deletions},
                       {"bytes", totals.bytes}});
    else
        output.line(fmt::format("{}, {}, {}; {}", plural(totals.tracks, "track"),
                                plural(totals.playlists, "playlist"),
                                plural(totals.deletions, "deletion"), formatBytes(totals.bytes)));
    return ExitCode::Done;
}

}  // namespace host
