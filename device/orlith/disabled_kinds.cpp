#include "device/orlith/disabled_kinds.h"

namespace orlith {

std::vector<std::string> disabledKindsOf(ORClient& client) {
    if (!client.respondsTo(ORClientOperation::disabledAssetTypes))
        return {};
    const auto types = client.disabledAssetTypes();
    return types ? std::vector<std::string>(types->begin(), types->end())
                 : std::vector<std::string>();
}

}  // namespace orlith
