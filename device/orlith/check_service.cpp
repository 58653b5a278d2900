#include "device/orlith/check_service.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

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

constexpr char StagingDirectory[] = "/var/mobile/Media/Stagehold/";
constexpr std::string_view PartialFolder = "Partial/";

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

grpc::Status CheckService::Run(grpc::ServerContext*, const link::CheckRequest* request,
                               grpc::ServerWriter<link::CheckEvent>* writer) {
    return guardedCall(_parts.calls, _parts.log, "Check", [&] {
        // Not stopped halfway: a daemon that ends waits for it.
        const SlotHold slot(_parts.slot, ownerOf(*request), [](const std::string&) {});
        const korvane::ActivityLock::Hold hold = _parts.activities.holdForFiles();
        const bool again = check(request->repair(),
                                 [&](const Finding& finding) { writer->Write(eventOf(finding)); });
        link::CheckEvent last;
        link::CheckEnd& end = *last.mutable_end();
        end.set_success(true);
        end.set_again(again);
        end.set_process_id(::getpid());
        if (!again)
            end.set_tracks(korvane::libraryCounts(_parts.library).tracks);
        writer->Write(last);
        if (again)
            _parts.requestStop();
    });
}

bool CheckService::check(bool repairs, const Report& report) {
    checkStaging(repairs, report);
    korvane::CheckRun run{_parts.library, repairs, report};
    korvane::checkLibrary(run);
    return run.needsReopening;
}

void CheckService::checkStaging(bool repairs, const Report& report) {
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
        report({CheckArea::Staging, whole,
                isPartial ? "part of a file that nobody waits for"
                          : "left behind by a session that did not end",
                isPartial ? "it is removed"
                          : "media files go back to their places, the rest is removed",
                repairs});
    }
    if (!repairs)
        return;
    for (const std::string& path : useless)
        files.unlink(path);
    recoverLeftovers(files, _parts.staging, _parts.access, _parts.notices);
}

}  // namespace orlith
