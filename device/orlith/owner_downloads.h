// Between what the owner asks to be fetched and the download service.
//
// Any thread.
#pragma once

#include <optional>

#include "device/downloads/download_service.h"

namespace korvane {
class Library;
}

namespace orlith {

namespace link {
class DownloadRequest;
class DownloadRow;
}  // namespace link

// Without a number from a store the address stands for the item, so that asking again is asking for
// the same. Absent, with an error, when the track that is named is not there.
std::optional<downloads::DownloadRequest> downloadOf(korvane::Library& library,
                                                     const link::DownloadRequest& request,
                                                     platform::OptionalError& error);

void fillRow(const downloads::DownloadStatus& download, link::DownloadRow& row);

}  // namespace orlith
