#include "device/system/notification_center.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace device {

void NotificationCenter::addObserver(Observer observer, std::string_view name,
                                     platform::Job handler) {
    auto registration = std::make_shared<Registration>();
    registration->observer = observer;
    registration->handler = std::move(handler);
    const std::lock_guard lock(_mutex);
    _byName.try_emplace(std::string(name)).first->second.push_back(std::move(registration));
}

NotificationCenter::Registrations NotificationCenter::extract(Registrations& from,
                                                              Observer observer) {
    const auto first = std::stable_partition(
        from.begin(), from.end(), [&](const auto& each) { return each->observer != observer; });
    Registrations extracted(std::make_move_iterator(first), std::make_move_iterator(from.end()));
    from.erase(first, from.end());
    for (const auto& each : extracted)
        each->removed = true;
    return extracted;
}

void NotificationCenter::removeObserver(Observer observer, std::string_view name) {
    Registrations released;
    const std::lock_guard lock(_mutex);
    const auto found = _byName.find(name);
    if (found == _byName.end())
        return;
    released = extract(found->second, observer);
    if (found->second.empty())
        _byName.erase(found);
}

void NotificationCenter::removeObserver(Observer observer) {
    std::vector<Registrations> released;
    const std::lock_guard lock(_mutex);
    for (auto each = _byName.begin(); each != _byName.end();) {
        released.push_back(extract(each->second, observer));
        each = each->second.empty() ? _byName.erase(each) : std::next(each);
    }
}

void NotificationCenter::post(std::string_view name) {
    Registrations registrations;
    {
        const std::lock_guard lock(_mutex);
        const auto found = _byName.find(name);
        if (found == _byName.end())
            return;
        registrations = found->second;
    }
    for (const auto& each : registrations) {
        if (!each->removed)
            each->handler();
    }
}

}  // namespace device
