#include "device/downloads/retry_plan.h"

#include <algorithm>

namespace downloads {

platform::Nanoseconds RetryPlan::due(std::int64_t download) const {
    const auto found = _failures.find(download);
    return found == _failures.end() ? 0 : found->second.due;
}

platform::Nanoseconds RetryPlan::nextDue(platform::Nanoseconds now) const {
    platform::Nanoseconds next = platform::Never;
    for (const auto& [download, failure] : _failures)
        if (failure.due > now)
            next = std::min(next, failure.due);
    return next;
}

bool RetryPlan::retry(std::int64_t download, bool hasGained,
                      std::optional<platform::Nanoseconds> retryAfter, platform::Nanoseconds now) {
    Failure& failure = _failures[download];
    if (hasGained)
        failure.attempts = 0;
    if (++failure.attempts >= _settings.attempts) {
        _failures.erase(download);
        return false;
    }
    platform::Nanoseconds delay = _settings.firstDelay;
    for (unsigned i = 1; i < failure.attempts && delay < _settings.longestDelay; ++i)
        delay *= 2;
    failure.due = now + std::max(std::min(delay, _settings.longestDelay), retryAfter.value_or(0));
    return true;
}

}  // namespace downloads
