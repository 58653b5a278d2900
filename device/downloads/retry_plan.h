// When downloads that broke off are tried again: after a delay that doubles, anew from the shortest
// when bytes came in between, and not for ever.
//
// One thread. Times are points of the monotonic clock.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "platform/operating_system.h"

namespace downloads {

struct RetrySettings {
    platform::Nanoseconds firstDelay = 1'000'000'000;
    platform::Nanoseconds longestDelay = 60'000'000'000;
    unsigned attempts = 8;  // in a row without a byte
};

class RetryPlan {
public:
    explicit RetryPlan(const RetrySettings& settings) : _settings(settings) {}

    // 0 for one that never failed.
    platform::Nanoseconds due(std::int64_t download) const;
    // The earliest time after `now` at which one is due; Never when there is none.
    platform::Nanoseconds nextDue(platform::Nanoseconds now) const;
    // Notes a failure. False when it was the last attempt; it is forgotten then.
    bool retry(std::int64_t download, bool hasGained,
               std::optional<platform::Nanoseconds> retryAfter, platform::Nanoseconds now);
    void forget(std::int64_t download) { _failures.erase(download); }

private:
    struct Failure {
        unsigned attempts = 0;
        platform::Nanoseconds due = 0;
    };

    const RetrySettings _settings;
    std::map<std::int64_t, Failure> _failures;
};

}  // namespace downloads
