#include "device/orlith/observed_notifications.h"

#include <utility>

namespace orlith {

std::uint32_t ObservedNotifications::post(std::string_view name) {
    const std::scoped_lock lock(_mutex);
    std::erase_if(_observers, [](const auto& observer) { return observer.expired(); });
    const auto observers = _observers;
    for (const std::weak_ptr<Observer>& weak : observers)
        if (const std::shared_ptr<Observer> observer = weak.lock();
            observer && observer->name == name)
            observer->handler();
    return _all.post(name);
}

std::shared_ptr<void> ObservedNotifications::observe(std::string_view name,
                                                     std::function<void()> handler) {
    auto observer = std::make_shared<Observer>(Observer{std::string(name), std::move(handler)});
    {
        const std::scoped_lock lock(_mutex);
        _observers.push_back(observer);
    }
    // The observer goes with the result, and a call that is under way is waited for.
    return std::shared_ptr<void>(observer.get(), [this, observer](void*) mutable {
        const std::scoped_lock lock(_mutex);
        observer->handler = [] {};
        observer.reset();
    });
}

}  // namespace orlith
