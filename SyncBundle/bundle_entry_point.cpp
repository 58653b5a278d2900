#include <type_traits>

#include "SyncBundle/KVSyncClient.h"
#include "platform/platform.h"

// The module's one exported symbol; platform/platform.h describes it.
extern "C" [[gnu::visibility("default")]] ORBundleStatus ORBundleOpen(
    std::uint32_t interfaceVersion, platform::Platform* platform, ORBundleClients* clients) {
    if (interfaceVersion != ORBundleInterfaceVersion)
        return ORBundleStatus::WrongInterfaceVersion;
    if (!platform || !clients)
        return ORBundleStatus::InitFailed;
    try {
        platform::Platform::install(platform);
        const std::shared_ptr<KVSyncClient> client = KVSyncClient::init();
        if (!client)
            return ORBundleStatus::InitFailed;
        *clients = {client, client, client};
        return ORBundleStatus::Opened;
    } catch (...) {
        return ORBundleStatus::InitFailed;
    }
}

static_assert(std::is_same_v<decltype(ORBundleOpen), ORBundleOpenFunction>);
