#include "device/orlith/check_service.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>

#include "common/sqlite/database.h"
#include "device/korvane/activity_lock.h"
#include "device/korvane/check/check_run.h"
#include "device/korvane/library.h"
#include "device/korvane/listing.h"
#include "device/orlith/call_boundary.h"
#include "device/orlith/names.h"
#include "device/orlith/notices.h"
#include "device/orlith/recovery.h"
#include "device/orlith/slot_hold.h"

namespace orlith {
namespace {

using korvane::CheckArea;
using korvane::Finding;
using SteadyTime = std::chrono::steady_clock::time_point;

constexpr char StagingDirectory[] = "/var/mobile/Media/Stagehold/";
constexpr std::string_view PartialFolder = "Partial/";
constexpr std::chrono::milliseconds ProgressInterval{200};

const char* nameOf(CheckArea area) {
    switch (area) {
        case CheckArea::Database:
            return "database";
        case CheckArea::File:
            return "file";
        case CheckArea::Artwork:
            return "artwork";
        case CheckArea::Staging:
            return "staging";
        case CheckArea::Revision:
            return "revision";
        case CheckArea::Playlist:
            return "playlist";
        case CheckArea::Chapters:
            return "chapters";
        case CheckArea::Kenning:
            return "kenning";
    }
    return "";
}

link::CheckEvent eventOf(const Finding& finding) {
    link::CheckEvent event;
    link::Finding& message = *event.mutable_finding();
    message.set_area(nameOf(finding.area));
    message.set_subject(cleanUTF8(finding.subject));
    message.set_problem(cleanUTF8(finding.problem));
    message.set_remedy(cleanUTF8(finding.remedy));
    message.set_mended(finding.isMended);
    return event;
}

link::CheckEvent eventOf(const korvane::ReadProgress& progress) {
    link::CheckEvent event;
    link::CheckProgress& message = *event.mutable_progress();
    message.set_files(progress.files);
    message.set_bytes(progress.bytes);
    message.set_all_files(progress.allFiles);
    message.set_all_bytes(progress.allBytes);
    return event;
}

SessionOwner ownerOf(const link::CheckRequest& request) {
    return {printable(request.host_name()) + ", which checks the device", request.process_id(),
            std::chrono::steady_clock::now()};
}

// What was cut off serves the next session, as long as a track still waits for it.
bool isAwaited(common::Database& database, std::string_view partialName) {
    std::int64_t identifier = 0;
    const auto parsed =
        std::from_chars(partialName.data(), partialName.data() + partialName.size(), identifier);
    if (parsed.ec != std::errc())
        return false;
    return database.int64(
               "SELECT EXISTS (SELECT 1 FROM item i JOIN item_store s USING (item_id) WHERE "
               "i.base_location_id = 0 AND (s.sync_id = ?1 OR i.item_pid = ?1))",
               identifier) != 0;
}

}  // namespace

grpc::Status CheckService::Run(grpc::ServerContext* context, const link::CheckRequest* request,
                               grpc::ServerWriter<link::CheckEvent>* writer) {
    return guardedCall(_parts.calls, _parts.log, "Check", [&] {
        // Stopped while it reads files only: a daemon that ends waits for the rest.
        const SlotHold slot(_parts.slot, ownerOf(*request), [](const std::string&) {});
        const korvane::ActivityLock::Hold hold = _parts.activities.holdForFiles();
        korvane::CheckRun run{_parts.library, request->repair(),
                              [&](const Finding& finding) { writer->Write(eventOf(finding)); }};
        if (request->full())
            run.onRead = [&, due = SteadyTime()](const korvane::ReadProgress& progress) mutable {
                const SteadyTime now = std::chrono::steady_clock::now();
                if (now < due)
                    return true;
                due = now + ProgressInterval;
                writer->Write(eventOf(progress));
                return !context->IsCancelled();
            };
        checkStaging(run);
        korvane::checkLibrary(run);
        if (run.isStopped)
            return grpc::Status(grpc::StatusCode::CANCELLED, "the check was broken off");
        link::CheckEvent last;
        link::CheckEnd& end = *last.mutable_end();
        end.set_success(true);
        end.set_again(run.needsReopening);
        end.set_process_id(::getpid());
        if (!run.needsReopening)
            end.set_tracks(korvane::libraryCounts(_parts.library).tracks);
        writer->Write(last);
        if (run.needsReopening)
            _parts.requestStop();
        return grpc::Status::OK;
    });
}

void CheckService::checkStaging(const korvane::CheckRun& run) {
    device::RootedFileSystem& files = _parts.library.configuration().files;
    std::vector<std::string> left = files.subpathsOfDirectory(StagingDirectory);
    std::ranges::sort(left);
    std::vector<std::string> useless;
    for (const std::string& path : left) {
        const std::string whole = StagingDirectory + path;
        const auto attributes = files.attributes(whole, nullptr);
        if (!attributes || !attributes->isRegularFile)
            continue;
        const bool isPartial = path.starts_with(PartialFolder);
        if (isPartial &&
            _parts.library.connections().reading<bool>([&](common::Database& database) {
                return isAwaited(database, std::string_view(path).substr(PartialFolder.size()));
            }))
            continue;
        if (isPartial)
            useless.push_back(whole);
        run.report({CheckArea::Staging, whole,
                    isPartial ? "part of a file that nobody waits for"
                              : "left behind by a session that did not end",
                    isPartial ? "it is removed"
                              : "media files go back to their places, the rest is removed",
                    run.repairs});
    }
    if (!run.repairs)
        return;
    for (const std::string& path : useless)
        files.unlink(path);
    recoverLeftovers(files, _parts.staging, _parts.access, _parts.notices);
}

}  // namespace orlith
