#include "SyncBundle/KVSyncClient.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view assetTotalNotification = "com.vantor.kvsync.assetTotal";
constexpr std::string_view currentAssetNumberNotification = "com.vantor.kvsync.currentAssetNumber";
constexpr double secondsBetweenPosts = 1.0;

platform::OperatingSystem& operatingSystem() {
    return platform::Platform::current().operatingSystem();
}

}  // namespace

KVSyncClient::NotificationRegistration KVSyncClient::assetTotalRegistration;
KVSyncClient::NotificationRegistration KVSyncClient::currentAssetNumberRegistration;

// Absent when the name cannot be registered; the next call tries again.
std::optional<int> KVSyncClient::registeredToken(NotificationRegistration& registration,
                                                 std::string_view name) {
    const std::lock_guard lock(registration.mutex);
    if (!registration.token) {
        int token = 0;
        if (operatingSystem().namedNotifications().registerCheck(name, token) != 0)
            return std::nullopt;
        registration.token = token;
    }
    return registration.token;
}

void KVSyncClient::_postAssetTotal(std::uint64_t total) {
    const auto token = registeredToken(assetTotalRegistration, assetTotalNotification);
    if (!token)
        return;
    platform::NamedNotifications& notifications = operatingSystem().namedNotifications();
    notifications.setState(*token, total);
    notifications.post(assetTotalNotification);
}

void KVSyncClient::_postCurrentAssetNumber(std::uint64_t number) {
    const auto token =
        registeredToken(currentAssetNumberRegistration, currentAssetNumberNotification);
    if (!token)
        return;
    platform::NamedNotifications& notifications = operatingSystem().namedNotifications();
    notifications.setState(*token, number);
    const platform::Date now{operatingSystem().absoluteTime()};
    // Negated, so that a time that cannot be compared does not post.
    if (_lastAssetNumberPostDate &&
        !(now.secondsSince1970 - _lastAssetNumberPostDate->secondsSince1970 >= secondsBetweenPosts))
        return;
    notifications.post(currentAssetNumberNotification);
    _lastAssetNumberPostDate = now;
}
