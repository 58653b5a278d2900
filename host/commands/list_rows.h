// Purpose: the forms of a device's answers: JSON objects, table lines, plain words.
// Thread: any.
// Failure: none.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace orlith::link {
class CloudReply;
class PlaylistRow;
class StatusReply;
class TrackRow;
}  // namespace orlith::link

namespace host {

struct FolderFailures;

nlohmann::ordered_json jsonOf(const orlith::link::TrackRow& row);
nlohmann::ordered_json jsonOf(const orlith::link::PlaylistRow& row);
nlohmann::ordered_json jsonOf(const orlith::link::StatusReply& status,
                              const orlith::link::CloudReply& cloud);

// A heading and one line a track, columns aligned, and a line with the total. `isNumbered` counts
// the lines from 1.
std::vector<std::string> trackTable(const std::vector<orlith::link::TrackRow>& rows,
                                    bool isNumbered = false);
std::vector<std::string> playlistTable(const std::vector<orlith::link::PlaylistRow>& rows);
// The status names paths below `device`, its directory here.
std::vector<std::string> statusLines(const std::string& device,
                                     const orlith::link::StatusReply& status,
                                     const orlith::link::CloudReply& cloud);
// What the last sync of a folder could not do.
std::vector<nlohmann::ordered_json> jsonOf(const FolderFailures& failures);
std::vector<std::string> failureLines(const FolderFailures& failures);

// `text` cut or filled up to a number of terminal columns.
std::string fitted(const std::string& text, std::size_t columns);

}  // namespace host
