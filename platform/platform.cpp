#include "platform/platform.h"

#include <atomic>
#include <cstdlib>

namespace platform {
namespace {

std::atomic<Platform*> installed{nullptr};

}  // namespace

Platform& Platform::current() {
    Platform* platform = installed.load(std::memory_order_acquire);
    if (!platform)
        std::abort();
    return *platform;
}

void Platform::install(Platform* platform) {
    installed.store(platform, std::memory_order_release);
}

}  // namespace platform
