#include "device/orlith/daemon_services.h"

#include <algorithm>

#include "device/system/rooted_file_system.h"

namespace orlith {

std::uint64_t DaemonServices::physicalSizeForLogicalSize(std::uint64_t logicalSize) {
    std::call_once(_blockSizeIsKnown,
                   [this] { _blockSize = std::max<std::uint64_t>(_files.blockSize("/"), 1); });
    const std::uint64_t overhang = logicalSize % _blockSize;
    const std::uint64_t missing = overhang == 0 ? 0 : _blockSize - overhang;
    return logicalSize <= UINT64_MAX - missing ? logicalSize + missing : UINT64_MAX;
}

}  // namespace orlith
