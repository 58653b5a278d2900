#include "device/korvane/owner_edit.h"

#include <utf8proc.h>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/library.h"
#include "device/korvane/smart_fill.h"
#include "device/korvane/smart_refill.h"

namespace korvane {

using platform::Error;
using platform::OptionalError;

Error refusedEdit(const std::string& text) {
    return {LibraryErrorDomain, LibraryErrorRefused, text};
}

Error notFound(const std::string& text) {
    return {LibraryErrorDomain, LibraryErrorNotFound, text};
}

OptionalError editAsOwner(Library& library, const OwnerEdit& edit) {
    OptionalError error;
    try {
        library.connections().write([&](common::Database& database) {
            const std::int64_t before = library.currentRevision();
            error = edit(database);
            if (!error && library.currentRevision() != before)
                library.connections().whenCommitted([&] { library.notifyContentsDidChange(); });
            return !error;
        });
    } catch (const common::SqliteError& failure) {
        return failure.platformError();
    }
    return error;
}

OptionalError editTrackAsOwner(Library& library, std::int64_t trackPID, const OwnerEdit& edit) {
    return editAsOwner(library, [&](common::Database& database) -> OptionalError {
        if (database.int64("SELECT count(*) FROM item WHERE item_pid = ?", trackPID) == 0)
            return notFound("there is no such track");
        SmartRefill playlists(database, trackPID, library.nowMilliseconds() / 1000);
        if (auto error = edit(database))
            return error;
        playlists.run();
        return std::nullopt;
    });
}

OptionalError editPlaylistAsOwner(Library& library, std::int64_t playlistPID,
                                  const OwnerEdit& edit) {
    return editAsOwner(library, [&](common::Database& database) -> OptionalError {
        if (database.int64("SELECT count(*) FROM container WHERE container_pid = ?", playlistPID) ==
            0)
            return notFound("there is no such playlist");
        const bool smartOnesAreCurrent = areSmartPlaylistsCurrent(database);
        auto error = edit(database);
        if (smartOnesAreCurrent)
            keepSmartPlaylistsCurrent(database);
        return error;
    });
}

bool isPlainText(const std::string& text, std::size_t longest) {
    if (text.size() > longest)
        return false;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    for (std::size_t at = 0; at < text.size();) {
        utf8proc_int32_t codepoint = 0;
        const auto length = utf8proc_iterate(
            bytes + at, static_cast<utf8proc_ssize_t>(text.size() - at), &codepoint);
        const bool isLayout = codepoint == '\n' || codepoint == '\t';
        if (length <= 0 || (codepoint < 0x20 && !isLayout) || codepoint == 0x7f)
            return false;
        at += static_cast<std::size_t>(length);
    }
    return true;
}

}  // namespace korvane
