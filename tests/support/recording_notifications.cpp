#include "tests/support/recording_notifications.h"

#include <algorithm>

namespace support {

void RecordingNotificationCenter::addObserver(Observer observer, std::string_view name,
                                              platform::Job handler) {
    _recorder.record("NotificationCenter.addObserver", {name});
    const std::lock_guard lock(_mutex);
    _registrations.push_back({observer, std::string(name), std::move(handler)});
}

void RecordingNotificationCenter::removeObserver(Observer observer, std::string_view name) {
    _recorder.record("NotificationCenter.removeObserver", {name});
    const std::lock_guard lock(_mutex);
    std::erase_if(_registrations, [&](const Registration& registration) {
        return registration.observer == observer && registration.name == name;
    });
}

void RecordingNotificationCenter::removeObserver(Observer observer) {
    _recorder.record("NotificationCenter.removeObserver");
    const std::lock_guard lock(_mutex);
    std::erase_if(_registrations, [observer](const Registration& registration) {
        return registration.observer == observer;
    });
}

void RecordingNotificationCenter::post(std::string_view name) {
    std::vector<platform::Job> handlers;
    {
        const std::lock_guard lock(_mutex);
        for (const Registration& registration : _registrations) {
            if (registration.name == name)
                handlers.push_back(registration.handler);
        }
    }
    for (const platform::Job& handler : handlers)
        handler();
}

std::size_t RecordingNotificationCenter::observerCount(std::string_view name) const {
    const std::lock_guard lock(_mutex);
    return static_cast<std::size_t>(
        std::count_if(_registrations.begin(), _registrations.end(),
                      [name](const Registration& one) { return one.name == name; }));
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
    const std::string name = index < _namesByToken.size() ? _namesByToken[index] : "?";
    if (_recorder.fails("NamedNotifications.setState", {name, state}))
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
