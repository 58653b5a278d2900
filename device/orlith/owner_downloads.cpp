#include "device/orlith/owner_downloads.h"

#include <algorithm>
#include <array>
#include <bit>

#include "common/hash.h"
#include "device/downloads/address.h"
#include "device/downloads/media_name.h"
#include "device/korvane/owner_edits.h"
#include "device/orlith/names.h"
#include "link/owner.pb.h"
#include "platform/store_downloads.h"

namespace orlith {
namespace {

// Whose purchases they are when no store told.
constexpr std::int64_t OwnAccount = 1;

// Positive, and the same for the same address.
std::int64_t itemOfAddress(const std::string& url) {
    return static_cast<std::int64_t>(common::xxh3Short(url) >> 1 | 1);
}

std::string_view kindOf(const std::string& url) {
    constexpr std::array Films =
        std::to_array<std::string_view>({"m4v", "mkv", "mov", "mp4", "webm"});
    const std::string extension =
        downloads::nameExtension(downloads::mediaFileName("", downloads::pathOfUrl(url), ""));
    if (extension == "m4b")
        return VDDownloadKindAudiobook;
    return std::ranges::find(Films, extension) != Films.end() ? VDDownloadKindMovie
                                                              : VDDownloadKindMusic;
}

}  // namespace

std::optional<downloads::DownloadRequest> downloadOf(korvane::Library& library,
                                                     const link::DownloadRequest& request,
                                                     platform::OptionalError& error) {
    downloads::DownloadRequest wanted;
    wanted.url = request.url();
    wanted.title = request.title();
    // The store's numbers fill 64 bits; the library keeps the same bits.
    wanted.storeItem = request.item() != 0 ? std::bit_cast<std::int64_t>(request.item())
                                           : itemOfAddress(request.url());
    wanted.storeAccount =
        request.account() != 0 ? std::bit_cast<std::int64_t>(request.account()) : OwnAccount;
    wanted.isTemporary = request.temporary();
    wanted.kind = kindOf(request.url());
    if (request.track().empty())
        return wanted;
    const auto track = korvane::findTrack(library, request.track(), error);
    if (!track)
        return std::nullopt;
    wanted.libraryItem = track->persistentID;
    wanted.title = track->title;
    return wanted;
}

void fillRow(const downloads::DownloadStatus& download, link::DownloadRow& row) {
    row.set_download(download.number);
    row.set_title(cleanUTF8(download.title));
    row.set_phase(download.phase);
    row.set_url(cleanUTF8(download.source));
    row.set_bytes(download.bytes);
    row.set_size(download.total.value_or(0));
    row.set_track(download.libraryItem);
    row.set_failure(cleanUTF8(download.error));
}

}  // namespace orlith
