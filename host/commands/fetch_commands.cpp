#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "host/commands/commands.h"
#include "host/commands/device_question.h"
#include "host/progress/progress.h"
#include "host/scan/file_names.h"
#include "host/session/device_connection.h"
#include "link/owner.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using Json = nlohmann::ordered_json;

link::DownloadRequest requestOf(const DownloadOptions& options) {
    link::DownloadRequest request;
    request.set_url(options.url);
    request.set_title(options.title);
    request.set_track(options.track);
    request.set_item(options.item);
    request.set_account(options.account);
    request.set_temporary(options.temporary);
    return request;
}

Json jsonOf(const link::DownloadRow& row) {
    return {{"type", "download"},
            {"download", std::to_string(row.download())},
            {"title", row.title()},
            {"phase", row.phase()},
            {"url", row.url()},
            {"bytes", row.bytes()},
            {"size", row.size() == 0 ? Json(nullptr) : Json(row.size())},
            {"track", std::to_string(row.track())},
            {"failure", row.failure().empty() ? Json(nullptr) : Json(row.failure())}};
}

std::string lineOf(const link::DownloadRow& row) {
    std::string text = fmt::format("{:>14}  {:<12} {}", row.download(), displayText(row.phase()),
                                   displayText(row.title().empty() ? row.url() : row.title()));
    if (row.size() > 0)
        text += fmt::format(", {} of {} ({} %)", formatBytes(row.bytes()), formatBytes(row.size()),
                            row.bytes() * 100 / row.size());
    else if (row.bytes() > 0)
        text += ", " + formatBytes(row.bytes());
    if (!row.failure().empty())
        text += ": " + displayText(row.failure());
    return text;
}

ExitCode askCloud(
    const CommonOptions& common,
    const std::function<platform::OptionalError(DeviceConnection&, link::CloudReply&)>& question) {
    const Output output(common.json);
    link::CloudReply reply;
    const ExitCode code = askDevice<DeviceConnection>(
        common.deviceDirectory, output,
        [&](DeviceConnection& device) { return question(device, reply); });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object({{"type", "summary"}, {"signed_in", reply.signed_in()}});
    else
        output.line(reply.signed_in() ? "signed in" : "signed out");
    return code;
}

}  // namespace

ExitCode runDownload(const CommonOptions& common, const DownloadOptions& options) {
    const Output output(common.json);
    link::DownloadReply reply;
    const ExitCode code = askDevice<DeviceConnection>(
        common.deviceDirectory, output,
        [&](DeviceConnection& device) { return device.download(requestOf(options), reply); });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object({{"type", "summary"}, {"download", std::to_string(reply.download())}});
    else
        output.line(fmt::format("download {} has begun; `orlith downloads` shows how far it is",
                                reply.download()));
    return code;
}

ExitCode runListDownloads(const CommonOptions& common) {
    const Output output(common.json);
    std::size_t count = 0;
    const ExitCode code =
        askDevice<DeviceConnection>(common.deviceDirectory, output, [&](DeviceConnection& device) {
            return device.listDownloads([&](const link::DownloadRow& row) {
                ++count;
                if (common.json)
                    output.object(jsonOf(row));
                else
                    output.line(lineOf(row));
            });
        });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object({{"type", "summary"}, {"downloads", count}});
    else if (count == 0)
        output.line("no downloads");
    return code;
}

ExitCode runCancelDownload(const CommonOptions& common, std::int64_t download) {
    const Output output(common.json);
    const ExitCode code = askDevice<DeviceConnection>(
        common.deviceDirectory, output,
        [&](DeviceConnection& device) { return device.cancelDownload(download); });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object({{"type", "summary"}, {"cancelled", std::to_string(download)}});
    else
        output.line(fmt::format("download {} is cancelled", download));
    return code;
}

ExitCode runCloudSignIn(const CommonOptions& common, bool hasKenningData) {
    return askCloud(common, [&](DeviceConnection& device, link::CloudReply& reply) {
        return device.signInToCloud(hasKenningData, reply);
    });
}

ExitCode runCloudSignOut(const CommonOptions& common) {
    return askCloud(common, [](DeviceConnection& device, link::CloudReply& reply) {
        return device.signOutOfCloud(reply);
    });
}

}  // namespace host
