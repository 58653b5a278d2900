// The staging area: where the daemon puts what it receives until the plug-in has taken it.
//
//   Stagehold/Media/Artwork/<identifier>        covers, and chapters' "<identifier>-<ms>"
//                                               or a chapter's artwork cache id
//   Stagehold/Media/Delivered/<name>            what was pulled, for as long as the plug-in files
//   it Stagehold/Media/Kenning/<Kenning id> Stagehold/Partial/<identifier>-<part>       what is
//   still arriving, or was cut off Stagehold/tmp/                              media that a reset
//   sync moved aside
//
// Every file has its place by identifier and part, so a track's file and its cover never meet.
// Any thread. Names are checked by whoever takes them from a host; a name that is none has no file.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "device/system/rooted_file_system.h"
#include "platform/sync_daemon.h"

namespace orlith {

inline constexpr char MediaDirectory[] = "/var/mobile/Media/";

class StagingArea final : public ORStagehold {
public:
    explicit StagingArea(device::RootedFileSystem& files) : _files(files) {}

    // ORStagehold
    void processCompletedAsset(ORAsset& asset) override;
    std::optional<std::string> artworkPathForDataclass(
        const std::string& dataclass, const std::optional<std::string>& artworkIdentifier) override;
    std::optional<std::string> kenningPathForDataclass(
        const std::string& dataclass, const std::string& kenningIdentifier) override;

    // Device paths, whether or not something is there.
    static std::string artworkPath(const std::string& artworkIdentifier);
    static std::string kenningPath(const std::string& kenningIdentifier);
    static std::string deliveredPath(const std::string& name);
    // Of another device's changes while they are received and read.
    static std::string changesDirectory();
    // `part` is a part's number; a chapter's picture adds its milliseconds.
    static std::string partialPath(const std::string& identifier, std::uint32_t part,
                                   std::optional<std::uint64_t> chapterMilliseconds = {});

    // Makes the directories that files are received into.
    platform::OptionalError makeDirectories();
    // Removes what was received and not taken. Partial files stay unless asked for.
    void sweep(bool partialFilesToo);

    // Between these, a pulled picture has its place under the identifier before it is there: the
    // plug-in moves it.
    void beginDelivery(const std::string& artworkIdentifier);
    void endDelivery(const std::string& artworkIdentifier);

    // A received file of a restore: processCompletedAsset of its asset moves it to `destination`,
    // for the staging area itself installs what a restore brings back.
    void keepForRestore(const std::string& identifier, std::string received,
                        std::string destination);
    // Where it lies now; absent when it was not installed. Forgets it.
    std::optional<std::string> takeRestored(const std::string& identifier);

private:
    struct Restore {
        std::string received;
        std::string destination;
        bool installed = false;
    };

    std::optional<std::string> existing(std::string path) const;

    device::RootedFileSystem& _files;
    std::mutex _mutex;
    std::map<std::string, Restore> _restores;  // by identifier; guarded by _mutex
    std::set<std::string> _deliveries;         // artwork identifiers; guarded by _mutex
};

}  // namespace orlith
