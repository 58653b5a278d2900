// The device's named notifications, with observers in this process: they hear of every post of the
// daemon and its plug-ins in the order of the posts, on the posting thread. So a library that is
// told to hold and then to go on never hears it the other way round.
//
// Any thread.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device/korvane/background_tasks.h"
#include "platform/operating_system.h"

namespace orlith {

class ObservedNotifications final : public platform::NamedNotifications,
                                    public korvane::NotificationSource {
public:
    // `all` carries the posts to other processes; it outlives this.
    explicit ObservedNotifications(platform::NamedNotifications& all) : _all(all) {}

    // platform::NamedNotifications
    std::uint32_t registerCheck(std::string_view name, int& token) override {
        return _all.registerCheck(name, token);
    }
    std::uint32_t setState(int token, std::uint64_t state) override {
        return _all.setState(token, state);
    }
    std::uint32_t post(std::string_view name) override;

    // korvane::NotificationSource
    std::shared_ptr<void> observe(std::string_view name, std::function<void()> handler) override;

private:
    struct Observer {
        std::string name;
        std::function<void()> handler;
    };

    platform::NamedNotifications& _all;
    // Recursive, for a handler may post. Held while handlers run: once an observer is released, no
    // call of its handler is under way.
    std::recursive_mutex _mutex;
    std::vector<std::weak_ptr<Observer>> _observers;  // guarded by _mutex
};

}  // namespace orlith
