#include "device/orlith/recovery.h"

#include <fmt/format.h>

#include "device/orlith/staged_media.h"
#include "device/orlith/sync_files.h"

namespace orlith {

void recoverLeftovers(device::RootedFileSystem& files, StagingArea& staging, LibraryAccess& library,
                      Notices& notices) {
    if (const std::size_t restored = putMediaBack(files); restored != 0)
        notices.add(
            fmt::format("A reset that did not finish had moved {} media file{} aside; {} "
                        "back in place.",
                        restored, restored == 1 ? "" : "s", restored == 1 ? "it is" : "they are"));
    library.unregisterHostData();
    if (files.unlink(HostDataPath) == 0)
        notices.add("An earlier session did not finish; this one goes on where it stopped.");
    staging.sweep(false);
}

}  // namespace orlith
