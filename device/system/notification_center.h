// The in-process notification centre.
//
// Handlers run on the posting thread, without a lock held: a handler may post, register and remove.
// One that joins during a delivery is not called by it; one that is removed during a delivery, and
// was not called yet, is not called either.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/operating_system.h"

namespace device {

class NotificationCenter final : public platform::NotificationCenter {
public:
    void addObserver(Observer observer, std::string_view name, platform::Job handler) override;
    void removeObserver(Observer observer, std::string_view name) override;
    void removeObserver(Observer observer) override;
    void post(std::string_view name) override;

private:
    struct Registration {
        Observer observer;
        platform::Job handler;
        std::atomic<bool> removed = false;
    };
    using Registrations = std::vector<std::shared_ptr<Registration>>;

    // Takes an observer's registrations out, so that the caller releases them without the lock.
    static Registrations extract(Registrations& from, Observer observer);

    std::mutex _mutex;
    std::map<std::string, Registrations, std::less<>> _byName;  // protected by _mutex
};

}  // namespace device
