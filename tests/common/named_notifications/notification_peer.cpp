// A process that takes part in named notifications, for tests.
//
// post PATH NAME FIRST LAST   sets each number as the state of NAME and posts it
// watch PATH NAME LAST        writes "ready", waits until the state is LAST, writes "seen"; fails
//                             when a state is smaller than one before, or after a minute
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

#include "common/named_notifications/notification_table.h"

namespace {

using common::NotificationTable;
using Clock = std::chrono::steady_clock;

int postStates(NotificationTable& table, NotificationTable::Token token, std::uint64_t first,
               std::uint64_t last) {
    for (std::uint64_t state = first; state <= last; ++state) {
        table.setState(token, state);
        table.post(token);
    }
    return 0;
}

int watchStates(NotificationTable& table, NotificationTable::Token token, std::uint64_t last) {
    const auto deadline = Clock::now() + std::chrono::minutes(1);
    std::uint32_t counter = table.counter(token);
    std::uint64_t latest = table.state(token);
    std::cout << "ready" << std::endl;
    while (latest != last) {
        if (Clock::now() > deadline)
            return 3;
        counter = table.wait(token, counter, std::chrono::minutes(1));
        const std::uint64_t state = table.state(token);
        if (state < latest)
            return 2;
        latest = state;
    }
    std::cout << "seen" << std::endl;
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 5)
        return 64;
    const auto table = NotificationTable::open(arguments[2], nullptr);
    if (!table)
        return 65;
    const auto token = table->registerName(arguments[3]);
    if (!token)
        return 66;
    const auto number = [&](int i) { return std::strtoull(arguments[i], nullptr, 10); };
    if (std::string(arguments[1]) == "post" && count == 6)
        return postStates(*table, *token, number(4), number(5));
    return watchStates(*table, *token, number(4));
}
