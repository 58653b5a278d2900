// The in-process notification centre and the named notifications. Callable from any thread.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/operating_system.h"
#include "tests/support/recorder.h"

namespace support {

class RecordingNotificationCenter : public platform::NotificationCenter {
public:
    explicit RecordingNotificationCenter(Recorder& recorder) : _recorder(recorder) {}

    void addObserver(Observer observer, std::string_view name, platform::Job handler) override;
    void removeObserver(Observer observer, std::string_view name) override;
    void removeObserver(Observer observer) override;
    void post(std::string_view name) override;

    // How many registrations there are for a name.
    std::size_t observerCount(std::string_view name) const;

private:
    struct Registration {
        Observer observer;
        std::string name;
        platform::Job handler;
    };

    template <typename Condition>
    void remove(const Condition& condition);
    bool isRegistered(const std::shared_ptr<Registration>& one) const;

    Recorder& _recorder;
    mutable std::mutex _mutex;
    std::vector<std::shared_ptr<Registration>> _registrations;  // guarded by _mutex
};

class RecordingNamedNotifications : public platform::NamedNotifications {
public:
    explicit RecordingNamedNotifications(Recorder& recorder) : _recorder(recorder) {}

    std::uint32_t registerCheck(std::string_view name, int& token) override;
    std::uint32_t setState(int token, std::uint64_t state) override;
    std::uint32_t post(std::string_view name) override;

    std::uint64_t stateOf(std::string_view name) const;
    std::size_t postsOf(std::string_view name) const;

private:
    Recorder& _recorder;
    mutable std::mutex _mutex;  // guards all below
    std::vector<std::string> _namesByToken;
    std::map<std::string, std::uint64_t, std::less<>> _states;
    std::map<std::string, std::size_t, std::less<>> _posts;
};

}  // namespace support
