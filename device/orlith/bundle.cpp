#include "device/orlith/bundle.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;
namespace fs = std::filesystem;

constexpr char BundleName[] = "KVSyncClient.so";

OptionalError failure(int errorNumber, std::string text) {
    return Error(platform::POSIXErrorDomain, errorNumber, text);
}

}  // namespace

OptionalError checkClients(const ORBundleClients& clients) {
    if (!clients.client || !clients.syncClient || !clients.assetClient)
        return failure(EIO, "did not give a client of each kind");
    const std::vector<std::string> served = clients.client->supportedDataclasses();
    for (const std::string& dataClass :
         {clients.syncClient->syncDataClass(), clients.assetClient->assetDataClass()})
        if (std::ranges::find(served, dataClass) == served.end())
            return failure(
                EIO, fmt::format("exchanges \"{}\", which is no data that it serves", dataClass));
    return std::nullopt;
}

OptionalError openBundle(const std::string& path, platform::Platform& platform,
                         ORBundleClients& clients) {
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle) {
        const char* reason = ::dlerror();
        return failure(ENOENT, fmt::format("cannot load the plug-in {}: {}", path,
                                           reason ? reason : "no reason given"));
    }
    void* const symbol = ::dlsym(handle, ORBundleOpenSymbol);
    if (!symbol)
        return failure(ENOEXEC, fmt::format("{} is no plug-in: it does not export {}", path,
                                            ORBundleOpenSymbol));
    const auto entry = reinterpret_cast<ORBundleOpenFunction*>(symbol);
    ORBundleClients made;
    switch (entry(ORBundleInterfaceVersion, &platform, &made)) {
        case ORBundleStatus::Opened:
            break;
        case ORBundleStatus::WrongInterfaceVersion:
            return failure(ENOEXEC,
                           fmt::format("the plug-in {} was built for other interfaces than this "
                                       "daemon's (version {})",
                                       path, ORBundleInterfaceVersion));
        default:
            return failure(EIO, fmt::format("the plug-in {} could not start", path));
    }
    if (const OptionalError error = checkClients(made))
        return failure(EIO, fmt::format("the plug-in {} {}", path, error->text()));
    clients = std::move(made);
    return std::nullopt;
}

std::string defaultBundlePath() {
    std::error_code ignored;
    const fs::path folder = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    const fs::path first = (folder / ".." / "lib" / BundleName).lexically_normal();
    for (const fs::path& path :
         {first, folder / BundleName, (folder / ".." / "lib" / "orlith" / BundleName)})
        if (fs::exists(path, ignored))
            return path.lexically_normal().string();
    return first.string();
}

}  // namespace orlith
