#include "tests/support/recording_notifications.h"

#include <algorithm>

namespace support {

void RecordingNotificationCenter::addObserver(Observer observer, std::string_view name,
                                              platform::Job handler) {
    _recorder.record("NotificationCenter.addObserver", {name});
    const std::lock_guard lock(_mutex);
    _registrations.push_back(std::make_shared<Registration>(
        Registration{observer, std::string(name), std::move(handler)}));
}

template <typename Condition>
void RecordingNotificationCenter::remove(const Condition& condition) {
    // Declared before the lock: releasing a handler may lead back here.
    std::vector<std::shared_ptr<Registration>> released;
    const std::lock_guard lock(_mutex);
    const auto first = std::stable_partition(_registrations.begin(), _registrations.end(),
                                             [&](const auto& one) { return !condition(*one); });
    released.assign(first, _registrations.end());
    _registrations.erase(first, _registrations.end());
}

void RecordingNotificationCenter::removeObserver(Observer observer, std::string_view name) {
    _recorder.record("NotificationCenter.removeObserver", {name});
    remove([&](const Registration& one) { return one.observer == observer && one.name == name; });
}

void RecordingNotificationCenter::removeObserver(Observer observer) {
    _recorder.record("NotificationCenter.removeObserver");
    remove([&](const Registration& one) { return one.observer == observer; });
}

void RecordingNotificationCenter::post(std::string_view name) {
    std::vector<std::shared_ptr<Registration>> registrations;
    {
        const std::lock_guard lock(_mutex);
        registrations = _registrations;
    }
    for (const auto& one : registrations) {
        if (one->name == name && isRegistered(one))
            one->handler();
    }
}

bool RecordingNotificationCenter::isRegistered(const std::shared_ptr<Registration>& one) const {
    const std::lock_guard lock(_mutex);
    return std::find(_registrations.begin(), _registrations.end(), one) != _registrations.end();
}

std::size_t RecordingNotificationCenter::observerCount(std::string_view name) const {
    const std::lock_guard lock(_mutex);
    return static_cast<std::size_t>(
        std::count_if(_registrations.begin(), _registrations.end(),
                      [name](const auto& one) { return one->name == name; }));
}

std::uint32_t RecordingNamedNotifications::registerCheck(std::string_view name, int& token) {
    if (_recorder.fails("NamedNotifications.registerCheck", {name}))
        return 1;
    const std::lock_guard lock(_mutex);
    token = static_cast<int>(_namesByToken.size());
    _namesByToken.emplace_back(name);
    return 0;
}

std::uint32_t RecordingNamedNotifications::setState(int token, std::uint64_t state) {
    const std::lock_guard lock(_mutex);
    const auto index = static_cast<std::size_t>(token);
    const bool isKnown = token >= 0 && index < _namesByToken.size();
    const std::string name = isKnown ? _namesByToken[index] : "?";
    if (_recorder.fails("NamedNotifications.setState", {name, state}) || !isKnown)
        return 1;
    _states[name] = state;
    return 0;
}

std::uint32_t RecordingNamedNotifications::post(std::string_view name) {
    if (_recorder.fails("NamedNotifications.post", {name}))
        return 1;
    const std::lock_guard lock(_mutex);
    ++_posts[std::string(name)];
    return 0;
}

std::uint64_t RecordingNamedNotifications::stateOf(std::string_view name) const {
    const std::lock_guard lock(_mutex);
    const auto found = _states.find(name);
    return found == _states.end() ? 0 : found->second;
}

std::size_t RecordingNamedNotifications::postsOf(std::string_view name) const {
    const std::lock_guard lock(_mutex);
    const auto found = _posts.find(name);
    return found == _posts.end() ? 0 : found->second;
}

}  // namespace support
