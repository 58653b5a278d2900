#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <vector>

#include "host/commands/asset_rows.h"
#include "host/commands/commands.h"
#include "host/commands/device_question.h"
#include "host/progress/progress.h"
#include "host/session/mirror_connection.h"
#include "link/peer.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

void showRevision(const link::RevisionReply& reply, const Output& output) {
    if (output.isJson()) {
        for (const link::PeerRevisions& peer : reply.peers())
            output.object(
                {{"type", "peer"},
                 {"library_uid", peer.library_uid()},
                 {"received_revision", std::to_string(peer.received_revision())},
                 {"acknowledged_revision", std::to_string(peer.acknowledged_revision())}});
        return output.object({{"type", "summary"},
                              {"revision", std::to_string(reply.revision())},
                              {"library_uid", reply.library_uid()},
                              {"data_class", reply.data_class()},
                              {"peers", reply.peers_size()}});
    }
    output.line(fmt::format("revision {} of library {}", reply.revision(), reply.library_uid()));
    for (const link::PeerRevisions& peer : reply.peers())
        output.line(fmt::format(
            "met library {}: this device has its changes up to {}, and it has "
            "ours up to {}",
            peer.library_uid(), peer.received_revision(), peer.acknowledged_revision()));
}

}  // namespace

ExitCode runRevision(const CommonOptions& common) {
    const Output output(common.json);
    link::RevisionReply reply;
    const ExitCode code = askDevice<MirrorConnection>(
        common.deviceDirectory, output,
        [&](MirrorConnection& device) { return device.revision(reply); });
    if (code == ExitCode::Done)
        showRevision(reply, output);
    return code;
}

ExitCode runResetChanges(const CommonOptions& common) {
    const Output output(common.json);
    link::ResetChangesReply reply;
    const ExitCode code = askDevice<MirrorConnection>(
        common.deviceDirectory, output,
        [&](MirrorConnection& device) { return device.resetChanges(reply); });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object({{"type", "summary"}, {"revision", std::to_string(reply.revision())}});
    else
        output.line("what other devices had brought in is gone from this one");
    return code;
}

ExitCode runAssets(const CommonOptions& common) {
    const Output output(common.json);
    std::size_t count = 0;
    const ExitCode code =
        askDevice<MirrorConnection>(common.deviceDirectory, output, [&](MirrorConnection& device) {
            return device.listAssets([&](const link::Asset& asset) {
                ++count;
                if (common.json)
                    output.object(jsonOf(asset));
                else
                    output.line(assetLine(asset));
            });
        });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object({{"type", "summary"}, {"assets", count}});
    else
        output.line(count == 0 ? "nothing is missing"
                               : fmt::format("{} missing; `orlith mirror` brings them",
                                             plural(count, "item")));
    return code;
}

}  // namespace host
