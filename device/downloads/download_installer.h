// What downloads ask of the library: an item to download for, and to take the file in.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/store_downloads.h"

namespace downloads {

// What is known of a download's item.
struct DownloadItem {
    std::string kind;              // a VDDownloadKind
    std::int64_t libraryItem = 0;  // the library's persistent id; 0 before it has one
    std::int64_t storeItem = 0;
    std::int64_t storeAccount = 0;
    std::string title;         // as asked for; "" when it goes by the file
    std::string fileName;      // with extension, harmless as a name; what the source calls it
    bool isTemporary = false;  // not meant to stay
    std::string source;        // its address
};

struct PreparedItem {
    std::int64_t libraryItem = 0;  // the library's persistent id
    bool isNew = false;            // made just now, for this download
};

// How a file of the directory of purchases could come again if it were lost.
enum class FileClass : std::int64_t {
    Unowned = 0,    // it belongs to no item
    Fetchable = 1,  // a store, or the host, can be asked for it again
    Backup = VDDownloadFileClassBackup,
};

// Implemented by whoever owns the library. Any thread; it outlives the download service and its
// jobs, and may block.
class DownloadInstaller {
public:
    virtual ~DownloadInstaller() = default;
    // The library's item: found by its store item, else made, without a file. Absent with an error
    // in plain words; EEXIST when the item's file is on the device already, ESRCH when it is the
    // library's own number that was given and there is no such item (any more).
    virtual std::optional<PreparedItem> prepare(const DownloadItem& item,
                                                platform::OptionalError* error) = 0;
    // Moves the file at `stagedPath` (an absolute device path; on the disk in full) to its place
    // and records it. May be asked again after the process was killed in the middle: a file that
    // has been moved already is recorded then. ENOENT when it is nowhere, so that it has to come
    // again; ESRCH when the item has left the library, so that it need not;
    // EBADMSG when it is no media file, so that it would not help.
    virtual platform::OptionalError install(const DownloadItem& item,
                                            const std::string& stagedPath) = 0;
    // The download that the item was made for was cancelled; without another claim it goes.
    virtual void abandon(std::int64_t libraryItem) = 0;
    // The item's source has no such file any more: what waits for a restore is not to wait longer.
    // True when there is no use for the download either.
    virtual bool sourceIsGone(std::int64_t libraryItem) = 0;
    // The classes of these files of the directory of purchases, in their order. Files of items that
    // lack theirs are taken in first. Absent with an error when the library cannot be asked.
    virtual std::optional<std::vector<FileClass>> settleFiles(const std::vector<std::string>& names,
                                                              platform::OptionalError* error) = 0;
};

}  // namespace downloads
